// Revision by claude and audio fetched by yt-dlp: each starts a child and answers at
// once; its `.status` verb follows it, and what it brings lands through the model.
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/service/Outside.hpp"
#include "kit/Music.hpp"
#include "platform/MusicImport.hpp"

namespace tavorin {

void OperatorService::registerRevise() {
  if (!outside_) outside_ = std::make_unique<Outside>(model().actor());
  outside_->revise.onFailure = [this](const std::string& text) { model().note("revision failed: " + text); };
  onBranch(&OperatorService::reviseVerbs, {"revise", "revise.status"});
}

JSONValue OperatorService::reviseReport() const {
  const Revise& r = outside_->revise;
  return JSONValue::object(
      {{"phase", name(r.phase())},
       {"instruction", r.instruction().empty() ? JSONValue() : JSONValue(r.instruction())},
       {"failure", Reports::text(r.failure())},
       {"version", Reports::text(r.version())},
       {"short", r.version() ? JSONValue(AppModel::shortVersion(*r.version())) : JSONValue()},
       {"claude", r.claudePath().string()}});
}

OperatorService::Answer OperatorService::reviseVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  if (c.verb == "revise.status") return OperatorResult::success(reviseReport());
  if (c.verb != "revise") return std::nullopt;
  const auto instruction = a.text("instruction");
  if (!instruction) return OperatorResult::failure("revise needs instruction=<what should change>");
  AppModel& m = model();
  if (!m.isOpen()) throw AppModel::Failure::noProduction();
  m.requireEditable();
  const std::filesystem::path dir = *m.baseDir();
  outside_->revise.start(m.recording(), dir, *instruction,
                         [this, dir](const Recording& revised) { return model().landRevision(dir, revised); });
  m.note("revising: " + outside_->revise.instruction());
  return OperatorResult::success(reviseReport());
}

void OperatorService::registerFetch() {
  outside_->fetch.onFailure = [this](const std::string& text) { model().note("fetch failed: " + text); };
  store_.fetchMusic = [this](const AppStore::FetchAsk& ask) { startFetch(ask.url, ask.start, ask.end, std::nullopt); };
  onBranch(&OperatorService::fetchVerbs, {"music.fetch", "music.fetch.status", "music.fetch.open"});
}

JSONValue OperatorService::fetchReport() const {
  const Fetch& f = outside_->fetch;
  return JSONValue::object({{"phase", name(f.phase())},
                            {"progress", f.progress()},
                            {"url", f.url().empty() ? JSONValue() : JSONValue(f.url())},
                            {"failure", Reports::text(f.failure())},
                            {"output", f.output() ? JSONValue(f.output()->string()) : JSONValue()},
                            {"bed", Reports::text(outside_->fetchedBed)},
                            {"open", store_.showingFetchSheet},
                            {"ytdlp", f.ytdlpPath().string()}});
}

OperatorService::Answer OperatorService::fetchVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "music.fetch.status") return OperatorResult::success(fetchReport());
  if (v == "music.fetch.open") {
    // The sheet that asks for a URL; closing it leaves a running fetch running.
    if (a.flag("close").value_or(false)) store_.dismissFetchSheet();
    else store_.openFetchSheet();
    return OperatorResult::success(fetchReport());
  }
  if (v != "music.fetch") return std::nullopt;
  const auto url = a.text("url");
  if (!url)
    return OperatorResult::failure(
        "music.fetch needs url=<youtube or other URL> [start=<seconds>] [end=<seconds>] [at=<seconds>]");
  startFetch(*url, a.number("start"), a.number("end"), a.number("at"));
  return OperatorResult::success(fetchReport());
}

void OperatorService::startFetch(const std::string& url, std::optional<double> start, std::optional<double> end,
                                 std::optional<double> at) {
  AppModel& m = model();
  if (!m.isOpen()) throw AppModel::Failure::noProduction();
  m.requireEditable();
  const std::filesystem::path dir = *m.baseDir();
  outside_->fetch.start(url, dir / "music", start, end, [this, dir, at, source = url](const std::filesystem::path& file) {
    AppModel& now = model();
    // The bed belongs to the production that asked; the file stays in its music folder either way.
    if (!now.baseDir() || *now.baseDir() != dir)
      throw std::runtime_error("The production closed while " + file.filename().string() +
                               " was being fetched; it is kept in its music folder.");
    now.requireEditable();
    const double seconds = MusicImport::measure(file);
    const std::string id = now.addMusic(file.filename().string(), seconds, at);
    now.setMusicSource(id, source);
    outside_->fetchedBed = id;
    store_.dismissFetchSheet();
  });
  outside_->fetchedBed.reset();
  m.note("fetching " + url);
}

}  // namespace tavorin
