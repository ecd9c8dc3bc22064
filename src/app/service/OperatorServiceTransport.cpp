// The transport group's playing verbs, the music group, peaks, and the faces the
// subtitles can be burned in.
#include <filesystem>
#include <memory>

#include "app/model/AppStore.hpp"
#include "app/service/Offloaded.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Music.hpp"
#include "platform/FontCatalog.hpp"
#include "platform/MusicImport.hpp"
#include "platform/Peaks.hpp"

namespace tavorin {

namespace {

// As many slices as a lane draws at the default zoom; a waveform needs no more.
constexpr int peakBuckets = 200;

JSONValue texts(const std::vector<std::string>& list) {
  JSONValue::Array out;
  for (const auto& s : list) out.emplace_back(s);
  return JSONValue(std::move(out));
}

JSONValue bedReport(const TimelineItem& bed) {
  return JSONValue::object({{"id", bed.id},
                            {"file", Reports::text(bed.file)},
                            {"start", Reports::seconds(bed.start)},
                            {"length", JSONValue::seconds(Music::length(bed))},
                            {"duration", Reports::seconds(bed.duration)},
                            {"trimIn", Reports::seconds(bed.trimIn)},
                            {"trimOut", Reports::seconds(bed.trimOut)},
                            {"gain", JSONValue(Music::gain(bed.gain.value_or(Music::defaultGain)))},
                            {"source", Reports::text(bed.source)}});
}

}  // namespace

JSONValue OperatorService::transportReport() const {
  const AppModel& m = model();
  const Transport* t = m.transport();
  return JSONValue::object({{"state", t ? JSONValue(t->stateName()) : JSONValue("stopped")},
                            {"playing", m.isPlaying()},
                            {"playhead", JSONValue::seconds(m.playhead())},
                            {"timecode", m.timecode(m.playhead())},
                            {"length", JSONValue::seconds(m.isOpen() ? Reports::length(m.recording()) : 0)},
                            {"line", t && t->playingId() ? JSONValue(*t->playingId()) : JSONValue()},
                            {"skipped", texts(m.skippedLines())},
                            {"missing", t ? texts(t->missing()) : texts({})},
                            {"output", t != nullptr}});
}

OperatorService::Answer OperatorService::playbackVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  const std::string& v = c.verb;
  if (v == "timecode") {
    const auto format = a.text("format");
    if (!format) return OperatorResult::failure("timecode needs format=film|seconds");
    m.setTimecodeFormat(*format);
    return OperatorResult::success(JSONValue::object({{"format", m.timecodeFormat()}}));
  }
  if (v == "play") m.playTransport(a.number("from"));
  else if (v == "pause") m.pauseTransport();
  else if (v == "stop") m.stopTransport();
  else if (v == "seek") {
    const auto to = a.number("to");
    if (!to) return OperatorResult::failure("seek needs to=<seconds>");
    m.seek(*to);
  } else if (v == "line.play") {
    const auto id = a.text("id");
    if (!id) return OperatorResult::failure("line.play needs id=<line id>");
    m.playLine(*id);
  } else if (v == "line.stop") m.stopLine();
  else if (v != "transport") return std::nullopt;
  return OperatorResult::success(transportReport());
}

OperatorService::Answer OperatorService::musicVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  const std::string& v = c.verb;
  if (v == "music.list") {
    JSONValue::Array beds;
    for (const auto& item : m.recording().timeline)
      if (item.type == ItemType::audio) beds.push_back(bedReport(item));
    return OperatorResult::success(JSONValue::object({{"beds", JSONValue(std::move(beds))}}));
  }
  if (v == "music.trim") {
    const auto id = a.text("id");
    const auto in = a.number("in");
    const auto out = a.number("out");
    if (!id || !in || !out) return OperatorResult::failure("music.trim needs id=<item> in=<seconds> out=<seconds>");
    m.trimMusic(*id, *in, *out);
    return OperatorResult::success(bedReport(*m.recording().item(*id)));
  }
  if (v == "music.gain") {
    const auto id = a.text("id");
    const auto db = a.number("db");
    if (!id || !db) return OperatorResult::failure("music.gain needs id=<item> db=<decibels>");
    m.setMusicGain(*id, *db);
    return OperatorResult::success(bedReport(*m.recording().item(*id)));
  }
  if (v == "music.remove") {
    const std::string id = m.musicTarget(a.text("id"));
    m.removeMusic(id);
    return OperatorResult::success(JSONValue::object({{"removed", id}}));
  }
  if (v == "music.edit") {
    if (a.flag("close").value_or(false)) {
      m.editMusic(std::nullopt);
    } else {
      const auto id = a.text("id");
      if (!id) return OperatorResult::failure("music.edit needs id=<music item> or close=1");
      m.editMusic(*id);
    }
    const auto& open = m.editingMusic();
    return OperatorResult::success(JSONValue::object(
        {{"editing", open ? JSONValue(*open) : JSONValue()},
         {"bed", open ? bedReport(*m.recording().item(*open)) : JSONValue()}}));
  }
  if (v == "music.preview") {
    if (a.flag("stop").value_or(false)) m.stopLine();
    else m.previewMusic(m.musicTarget(a.text("id")));
    return OperatorResult::success(transportReport());
  }
  return std::nullopt;
}

asio::awaitable<OperatorResult> OperatorService::musicAdd(const OperatorArgs& a) {
  const auto file = a.path("file");
  if (!file) co_return OperatorResult::failure("music.add needs file=<path to an audio file> [at=<seconds>]");
  const auto at = a.number("at");
  AppModel& m = model();
  m.requireEditable();
  const std::filesystem::path folder = *m.baseDir();
  // Copying and measuring a long file would stall every other verb; the bed is laid
  // once the copy is whole, on the production that asked for it.
  auto copied = std::make_shared<MusicImport::Copied>();
  std::function<void()> copy = [copied, folder, source = *file] { *copied = MusicImport::copyIn(folder, source); };
  co_await offloaded(m.offloader(), std::move(copy));
  AppModel& now = model();
  if (!now.baseDir() || *now.baseDir() != folder)
    co_return OperatorResult::failure("The production closed while " + copied->name +
                                      " was being copied; it is kept in its music folder.");
  now.requireEditable();
  const std::string id = now.addMusic(copied->name, copied->seconds, at);
  co_return OperatorResult::success(bedReport(*now.recording().item(id)));
}

asio::awaitable<OperatorResult> OperatorService::peaks(const OperatorArgs& a) {
  const auto id = a.text("id");
  if (!id) co_return OperatorResult::failure("peaks requires id=<item id>");
  const AppModel& m = model();
  const TimelineItem* item = m.recording().item(*id);
  if (!item) throw AppModelFailure::noSuchItem(*id);
  std::optional<std::string> file;
  double from = 0;
  std::optional<double> seconds;
  if (item->type == ItemType::audio) {
    file = item->file;
    const double duration = item->duration.value_or(0);
    if (duration > 0) {
      const auto [in, out] = Music::trim(item->trimIn.value_or(0), item->trimOut.value_or(duration), duration);
      from = in;
      seconds = out - in;
    }
  } else if (item->type == ItemType::line) {
    if (!item->audio) throw AppModelFailure::notRendered(*id);
    file = item->audio;
    from = item->renderedFrom ? item->renderedFrom->startsAt() : 0;
    seconds = item->duration;
  } else {
    throw AppModelFailure::cannotUse(*id + " is a " + name(item->type) + " and has no audio");
  }
  const std::filesystem::path path =
      std::filesystem::path(*file).is_absolute() ? std::filesystem::path(*file) : *m.baseDir() / *file;
  // Decoding a long bed takes a while; the cache makes a second ask cheap.
  auto values = std::make_shared<std::vector<float>>();
  std::function<void()> decode = [values, path, from, seconds] { *values = Peaks::peaks(path, peakBuckets, from, seconds); };
  co_await offloaded(m.offloader(), std::move(decode));
  JSONValue::Array out;
  for (float p : *values) out.emplace_back(double(p));
  co_return OperatorResult::success(JSONValue::object({{"id", *id},
                                                       {"from", JSONValue::seconds(from)},
                                                       {"seconds", Reports::seconds(seconds)},
                                                       {"peaks", JSONValue(std::move(out))}}));
}

OperatorService::Answer OperatorService::waveformVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "subtitles.fonts") {
    const auto families = FontCatalog::families(a.text("filter").value_or(""));
    return OperatorResult::success(JSONValue::object({{"fonts", texts(families)}}));
  }
  if (v == "fonts") {
    const auto report = FontCatalog::report();
    JSONValue::Array faces;
    for (const auto& [face, found] : report.faces)
      faces.push_back(JSONValue::object({{"family", face}, {"registered", found}}));
    return OperatorResult::success(
        JSONValue::object({{"faces", JSONValue(std::move(faces))},
                           {"folder", report.folder ? JSONValue(report.folder->string()) : JSONValue()},
                           {"fallback", report.note ? JSONValue(FontCatalog::fallbackFace) : JSONValue()},
                           {"note", Reports::text(report.note)}}));
  }
  return std::nullopt;
}

void OperatorService::registerPlayback() {
  onBranch(&OperatorService::playbackVerbs,
           {"timecode", "play", "pause", "stop", "seek", "transport", "line.play", "line.stop"});
}

void OperatorService::registerMusic() {
  on("music.add", [this](const OperatorCommand&, const OperatorArgs& a) { return musicAdd(a); });
  on("peaks", [this](const OperatorCommand&, const OperatorArgs& a) { return peaks(a); });
  onBranch(&OperatorService::musicVerbs, {"music.list", "music.trim", "music.gain", "music.remove",
                                          "music.edit", "music.preview"});
  onBranch(&OperatorService::waveformVerbs, {"subtitles.fonts", "fonts"});
}

}  // namespace tavorin
