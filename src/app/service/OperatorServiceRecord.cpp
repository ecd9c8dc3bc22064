// record: rolling a take, the camera's check, and what a take films.
#include <memory>

#include "app/model/AppStore.hpp"
#include "app/service/Offloaded.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/shoot/PermissionsRitual.hpp"
#include "app/shoot/Stage.hpp"

namespace tavorin {

namespace {

JSONValue verdictJSON(const CameraVerdict& v) {
  return JSONValue::object({{"verdict", CameraVerdict::name(v.kind)},
                            {"proven", v.kind == CameraVerdict::Kind::proven},
                            {"seconds", v.kind == CameraVerdict::Kind::proven ? JSONValue::seconds(v.secondsToFirstFrame)
                                                                                : JSONValue()},
                            {"seen", Reports::text(v.seen)},
                            {"refusal", Reports::text(Stage::refusal(v))}});
}

std::string clock(double seconds) {
  const int whole = static_cast<int>(seconds < 0 ? 0 : seconds);
  char text[16];
  std::snprintf(text, sizeof text, "%d:%02d", whole / 60, whole % 60);
  return text;
}

}  // namespace

// The check runs off the actor: it may wait up to three seconds for a frame.
asio::awaitable<CameraVerdict> OperatorService::checkCamera() {
  auto verdict = std::make_shared<CameraVerdict>();
  ScreenRecorder& recorder = stage().recorder();
  const std::optional<CaptureConfig> capture = model().isOpen() ? model().recording().capture : std::nullopt;
  std::function<void()> look = [verdict, capture, &recorder] { *verdict = recorder.check(capture); };
  co_await offloaded(model().offloader(), std::move(look));
  co_return *verdict;
}

JSONValue OperatorService::recordStatusReport() {
  Shoot& s = stage().shoot();
  const Runner& r = stage().runner();
  const AppModel& m = model();
  // While rolling, the length locked in at the roll; at rest, the schedule's.
  const double planned = s.isRolling() ? s.plannedSeconds()
                         : m.isOpen()   ? RunPlan::make(m.blocking(), m.recording()).duration
                                        : 0;
  const double total = Shoot::countFrom + Shoot::slatePad + planned + Shoot::tailPad;
  const double elapsed = s.isRolling() ? s.tick() : 0;
  const double remaining = s.isRolling() && !s.isFree() ? std::max(0.0, total - elapsed) : 0;
  JSONValue clockText, counting, take, status;
  if (s.isRolling()) clockText = r.agentStep() || s.isFree() ? clock(elapsed) : clock(remaining);
  // Built apart: GCC 12 misreads conditional temporaries inside a long initializer list.
  if (s.phase() == Shoot::Phase::counting) counting = JSONValue(s.counting());
  if (s.take()) {
    take = JSONValue(s.take()->id);
    status = JSONValue(name(s.take()->status));
  }
  return JSONValue::object({{"rolling", s.isRolling()},
                            {"filming", s.isFilming()},
                            {"phase", Shoot::name(s.phase())},
                            {"counting", std::move(counting)},
                            {"take", std::move(take)},
                            {"status", std::move(status)},
                            {"free", s.isFree()},
                            {"elapsed", JSONValue::seconds(elapsed)},
                            {"planned", JSONValue::seconds(planned)},
                            {"total", JSONValue::seconds(total)},
                            {"remaining", JSONValue::seconds(remaining)},
                            {"clock", std::move(clockText)},
                            {"failure", Reports::text(s.failure())},
                            {"report", s.report()}});
}

asio::awaitable<OperatorResult> OperatorService::record(const OperatorArgs& a) {
  const bool free = a.flag("free").value_or(false);
  // Refusals come before the camera is asked, and nothing is written until it is proven.
  PermissionsRitual& ritual = permissions();
  ritual.refresh();
  if (const auto why = stage().canRoll(model(), free, &ritual)) {
    // The slate's refusal over the screen brings the sheet back, dismissed or not.
    if (*why == Stage::screenRefusal && !ritual.showing()) {
      ritual.show();
      model().note("permissions sheet up");
    }
    co_return OperatorResult::failure(*why);
  }
  const CameraVerdict verdict = co_await checkCamera();
  if (const auto why = Stage::refusal(verdict)) co_return OperatorResult::failure(*why);
  stage().record(model(), free);
  co_return OperatorResult::success(recordStatusReport());
}

OperatorService::Answer OperatorService::recordVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "record.status") return OperatorResult::success(recordStatusReport());
  if (v == "record.stop") {
    if (!stage().shoot().isRolling()) return OperatorResult::failure("not rolling");
    stage().cut(model());
    return OperatorResult::success(recordStatusReport());
  }
  if (v == "capture") {
    AppModel& m = model();
    if (c.args.count("audio") || c.args.count("app")) {
      std::optional<std::optional<std::string>> app;
      if (c.args.count("app")) app = a.text("app");
      m.setCapture(c.args.count("audio") ? a.flag("audio") : std::nullopt, app);
    }
    const CaptureConfig capture = m.recording().capture.value_or(CaptureConfig{});
    JSONValue app, fps;
    if (capture.app) app = JSONValue(*capture.app);
    if (capture.fps) fps = JSONValue(*capture.fps);
    const std::string films = capture.app ? "the largest window of " + *capture.app : "the whole screen";
    return OperatorResult::success(JSONValue::object({{"app", std::move(app)},
                                                      {"fps", std::move(fps)},
                                                      {"audio", capture.audio.value_or(false)},
                                                      {"films", films}}));
  }
  return std::nullopt;
}

void OperatorService::registerRecord() {
  on("record", [this](const OperatorCommand&, const OperatorArgs& a) { return record(a); });
  on("camera", [this](const OperatorCommand&, const OperatorArgs&) -> asio::awaitable<OperatorResult> {
    const CameraVerdict verdict = co_await checkCamera();
    co_return OperatorResult::success(verdictJSON(verdict));
  });
  onBranch(&OperatorService::recordVerbs, {"record.status", "record.stop", "capture"});
}

}  // namespace tavorin
