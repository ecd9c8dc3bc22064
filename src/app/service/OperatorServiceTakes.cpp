// The record group's take verbs: the takes on disk, the program monitor, and footage
// coming in. Importing and revealing wait for work done off the main actor.
#include <asio/async_result.hpp>
#include <asio/post.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include "app/model/AppStore.hpp"
#include "app/model/ImportRouter.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Music.hpp"
#include "app/shoot/Stage.hpp"
#include "kit/TakesStore.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

struct Landing {
  std::optional<std::exception_ptr> result;
  std::function<void(std::exception_ptr)> resume;
};

}  // namespace

asio::awaitable<void> OperatorService::landed(const Start& start) {
  // The act may finish before this coroutine suspends (a still lands at once), so its
  // end is kept until there is someone to resume.
  auto landing = std::make_shared<Landing>();
  start([landing](std::exception_ptr failed) {
    if (landing->resume) landing->resume(failed);
    else landing->result = failed;
  });
  auto executor = co_await asio::this_coro::executor;
  // Built apart from the co_await: GCC 12 destroys temporaries of a co_await operand twice.
  auto resumed = asio::async_initiate<const asio::use_awaitable_t<>, void(std::exception_ptr)>(
      [landing, executor](auto handler) {
        auto shared = std::make_shared<decltype(handler)>(std::move(handler));
        auto resume = [shared, executor](std::exception_ptr failed) {
          asio::post(executor, [shared, failed] { (*shared)(failed); });
        };
        if (landing->result) resume(*landing->result);
        else landing->resume = resume;
      },
      asio::use_awaitable);
  co_await std::move(resumed);
}

JSONValue OperatorService::takeReport(const Take& take) const {
  const AppModel& m = model();
  std::error_code ec;
  const bool film = m.baseDir() && fs::is_regular_file(TakesStore(*m.baseDir()).video(take), ec);
  const auto monitor = m.monitorTake();
  return JSONValue::object({{"id", take.id},
                            {"length", JSONValue::seconds(take.seconds)},
                            {"footage", JSONValue::seconds(take.footage())},
                            {"status", name(take.status)},
                            {"cutOff", take.wasCutOff()},
                            {"source", name(take.origin())},
                            {"film", film},
                            {"video", take.video},
                            {"startedAt", take.startedAt},
                            {"scheduleDigest", JSONValue::optional(take.scheduleDigest.empty()
                                                                       ? std::nullopt
                                                                       : std::optional<std::string>(take.scheduleDigest))},
                            {"fromVersion", take.fromVersion.empty() ? JSONValue()
                                                                     : JSONValue(AppModel::shortVersion(take.fromVersion))},
                            {"onMonitor", monitor && monitor->id == take.id}});
}

JSONValue OperatorService::viewerReport() const {
  const AppModel& m = model();
  if (!m.isOpen())
    return JSONValue::object({{"state", "empty"}, {"take", JSONValue()}, {"film", JSONValue()},
                              {"picture", JSONValue()}, {"still", JSONValue()}, {"running", false}});
  static const char* const states[] = {"empty", "still", "take", "missing"};
  const auto take = m.monitorTake();
  JSONValue film, picture;
  if (take) {
    film = JSONValue(TakesStore(*m.baseDir()).video(*take).string());
    // Where in the file the frame under the playhead sits: footage time plus the slate.
    if (auto source = Cut::sourceTime(m.playhead(), m.placedSegments()))
      picture = JSONValue::seconds(*source + take->pads.slate);
  }
  JSONValue rolling;
  if (stage_ && stage_->shoot().isRolling() && stage_->shoot().take()) rolling = JSONValue(stage_->shoot().take()->id);
  return JSONValue::object({{"state", states[static_cast<int>(m.viewer())]},
                            {"take", take ? JSONValue(take->id) : JSONValue()},
                            {"film", film},
                            {"picture", picture},
                            {"still", m.monitorStill() ? JSONValue(m.monitorStill()->string()) : JSONValue()},
                            // A take being filmed stands on the monitor until it is finished.
                            {"running", stage_ && stage_->shoot().isRolling()},
                            {"rolling", std::move(rolling)}});
}

JSONValue OperatorService::takesReport() const {
  const AppModel& m = model();
  JSONValue::Array list;
  for (const Take& t : m.takes()) list.push_back(takeReport(t));
  const auto monitor = m.monitorTake();
  return JSONValue::object({{"takes", JSONValue(std::move(list))},
                            {"monitor", monitor ? JSONValue(monitor->id) : JSONValue()},
                            {"viewer", *viewerReport()["state"]}});
}

asio::awaitable<OperatorResult> OperatorService::importVerb(const OperatorCommand&, const OperatorArgs& a) {
  const fs::path path = *a.path("path");
  const auto at = a.number("at");
  AppModel& m = model();
  const Start start = [&](auto done) { m.importFile(path, at, std::move(done)); };
  co_await landed(start);
  const auto kind = ImportRouter::kind(path);
  if (kind == ImportRouter::Kind::still)
    co_return OperatorResult::success(JSONValue::object({{"kind", "still"}, {"viewer", viewerReport()}}));
  if (kind == ImportRouter::Kind::audio) {
    const TimelineItem* bed = m.recording().item(*m.lastImported());
    co_return OperatorResult::success(JSONValue::object({{"kind", "audio"},
                                                         {"id", bed->id},
                                                         {"file", Reports::text(bed->file)},
                                                         {"start", Reports::seconds(bed->start)},
                                                         {"length", JSONValue::seconds(Music::length(*bed))}}));
  }
  const auto take = TakesStore(*m.baseDir()).take(*m.lastImported());
  JSONValue report = takeReport(*take);
  report.set("kind", "video");
  report.set("viewer", viewerReport());
  co_return OperatorResult::success(report);
}

asio::awaitable<OperatorResult> OperatorService::replaceVerb(const OperatorCommand&, const OperatorArgs& a) {
  const fs::path path = *a.path("path");
  AppModel& m = model();
  const auto old = m.monitorTake();
  const Start start = [&](auto done) { m.replaceTake(path, std::move(done)); };
  co_await landed(start);
  JSONValue report = takeReport(*TakesStore(*m.baseDir()).take(*m.lastImported()));
  report.set("replaced", old ? JSONValue(old->id) : JSONValue());
  co_return OperatorResult::success(report);
}

asio::awaitable<OperatorResult> OperatorService::revealVerb(const OperatorCommand&, const OperatorArgs& a) {
  const std::string id = *a.text("id");
  AppModel& m = model();
  const Start start = [&](auto done) { m.revealTake(id, std::move(done)); };
  co_await landed(start);
  const auto take = TakesStore(*m.baseDir()).take(id);
  co_return OperatorResult::success(
      JSONValue::object({{"id", id}, {"folder", TakesStore(*m.baseDir()).url(*take).string()}}));
}

OperatorService::Answer OperatorService::takeVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  const std::string& v = c.verb;
  if (v == "take.list") {
    if (!m.isOpen()) throw AppModel::Failure::noProduction();
    return OperatorResult::success(takesReport());
  }
  if (v == "take.select") {
    m.selectTake(*a.text("id"));
    return OperatorResult::success(takesReport());
  }
  if (v == "take.remove") {
    const auto id = m.clearMonitor();
    JSONValue report = takesReport();
    report.set("removed", id ? JSONValue(*id) : JSONValue());
    return OperatorResult::success(report);
  }
  if (v == "take.dismiss") {
    if (!m.isOpen()) throw AppModel::Failure::noProduction();
    // The take's report gives way to the slate; the take itself stays where it is. A
    // take still rolling keeps rolling: the slate shows it running.
    store_.showingSlate = true;
    m.note("back to the slate");
    const Shoot& shoot = stage().shoot();
    return OperatorResult::success(JSONValue::object({{"slate", true},
                                                      {"note", "back to the slate"},
                                                      {"running", shoot.isRolling()},
                                                      {"report", shoot.report()}}));
  }
  if (v == "viewer.info") return OperatorResult::success(viewerReport());
  return std::nullopt;
}

void OperatorService::registerTakes() {
  onBranch(&OperatorService::takeVerbs, {"take.list", "take.select", "take.remove", "take.dismiss", "viewer.info"});
  on("import", [this](const OperatorCommand& c, const OperatorArgs& a) { return importVerb(c, a); });
  on("take.replace", [this](const OperatorCommand& c, const OperatorArgs& a) { return replaceVerb(c, a); });
  on("take.reveal", [this](const OperatorCommand& c, const OperatorArgs& a) { return revealVerb(c, a); });
}

}  // namespace tavorin
