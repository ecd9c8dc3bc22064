// system: the permissions ritual and its sheet; record: what the slate shows before a
// roll, and the caption on the program monitor.
#include <asio/co_spawn.hpp>
#include <asio/use_awaitable.hpp>
#include <fstream>
#include <spawn.h>
#include <unistd.h>

#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/shoot/LinuxPermissionsProbe.hpp"
#include "app/shoot/PermissionsRitual.hpp"
#include "app/shoot/Stage.hpp"
#include "kit/RunPlan.hpp"
#include "kit/Subtitles.hpp"

extern char** environ;

namespace tavorin {

namespace {

// A fresh copy of this program with the arguments it was given, started a moment
// from now in a session of its own, so this one can stop and give up its control file.
void startFreshCopy() {
  std::ifstream in("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> args;
  std::string arg;
  while (std::getline(in, arg, '\0')) args.push_back(arg);
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec || args.empty()) return;
  std::vector<std::string> argv{"/bin/sh", "-c", "sleep 1; exec \"$0\" \"$@\"", exe.string()};
  argv.insert(argv.end(), args.begin() + 1, args.end());
  std::vector<char*> raw;
  for (auto& a : argv) raw.push_back(a.data());
  raw.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t pid = -1;
  ::posix_spawn(&pid, "/bin/sh", nullptr, &attributes, raw.data(), environ);
  posix_spawnattr_destroy(&attributes);
}

JSONValue buttonJSON(const PermissionsRitual::Button& b) {
  static const char* const acts[] = {"request", "openSettings", "relaunch", "openChrome", "checkCamera"};
  return JSONValue::object({{"label", b.label},
                            {"enabled", b.enabled},
                            {"act", b.act ? JSONValue(acts[static_cast<int>(*b.act)]) : JSONValue()}});
}

}  // namespace

void OperatorService::usePermissionsProbe(std::unique_ptr<PermissionsProbe> probe) {
  ritual_.reset();
  probe_ = std::move(probe);
}

PermissionsRitual& OperatorService::permissions() {
  if (!probe_) {
    LinuxPermissionsProbe::Options options;
    options.relaunch = [this] {
      startFreshCopy();
      if (terminate_) terminate_();
    };
    probe_ = std::make_unique<LinuxPermissionsProbe>(std::move(options));
  }
  if (!ritual_) ritual_ = std::make_unique<PermissionsRitual>(*probe_, model().actor(), model().offloader());
  return *ritual_;
}

void OperatorService::raisePermissionsAtLaunch(bool forced) {
  PermissionsRitual& ritual = permissions();
  if (!forced && !ritual.wanting()) return;
  ritual.refresh();
  ritual.show();
  model().note("permissions sheet up");
}

JSONValue OperatorService::permissionsReport() {
  PermissionsRitual& ritual = permissions();
  JSONValue::Array rows;
  for (const auto& row : ritual.rows())
    rows.push_back(JSONValue::object({{"need", word(row.need)},
                                      {"title", row.title},
                                      {"line", row.line},
                                      {"state", row.state.wire()},
                                      {"button", buttonJSON(row.button)},
                                      {"note", Reports::text(row.note)}}));
  const GrantHolder holder = ritual.probe().grantHolder();
  JSONValue lines = JSONValue::array({JSONValue(ritual.identityLine())});
  if (ritual.showsStaleNote()) lines.push(JSONValue(PermissionsRitual::staleNote()));
  const auto& camera = ritual.camera();
  JSONValue verdict, path;
  if (camera) verdict = JSONValue(CameraVerdict::name(camera->kind));
  if (!holder.path.empty()) path = JSONValue(holder.path);
  return JSONValue::object(
      {{"rows", JSONValue(std::move(rows))},
       {"allSettled", ritual.allSettled()},
       {"showing", ritual.showing()},
       {"camera", std::move(verdict)},
       {"checkingCamera", ritual.checkingCamera()},
       {"identity", JSONValue::object({{"holder", holder.name},
                                       {"path", std::move(path)},
                                       {"pid", static_cast<long long>(holder.pid)},
                                       {"bundled", ritual.probe().isBundled()},
                                       {"lines", std::move(lines)}})}});
}

asio::awaitable<OperatorResult> OperatorService::permissionsOpen(const OperatorArgs& a) {
  const std::string which = *a.text("which");
  const auto need = needNamed(which);
  if (!need || *need == Need::agent)
    co_return OperatorResult::failure("no grant '" + which + "'. Try: screenRecording, accessibility, automation or chrome");
  PermissionsRitual& ritual = permissions();
  // The settings, whatever the row's own button offers: opening them is always honest.
  auto opened = std::make_shared<SettingsOpened>();
  const Start open = [&ritual, opened, n = *need](auto done) {
    ritual.openSettings(n, [opened, done](const SettingsOpened& o) {
      *opened = o;
      done(nullptr);
    });
  };
  co_await landed(open);
  model().note("permissions.open " + which + ": " + opened->said);
  if (!opened->opened) co_return OperatorResult::failure(opened->said);
  JSONValue report = permissionsReport();
  report.set("opened", opened->said);
  co_return OperatorResult::success(report);
}

OperatorService::Answer OperatorService::permissionsVerbs(const OperatorCommand& c, const OperatorArgs&) {
  const std::string& v = c.verb;
  if (v == "permissions") {
    permissions().refresh();
    return OperatorResult::success(permissionsReport());
  }
  if (v == "permissions.show") {
    permissions().refresh();
    permissions().show();
    model().note("permissions sheet up");
    return OperatorResult::success(permissionsReport());
  }
  if (v == "permissions.dismiss") {
    permissions().dismiss();
    const std::string note = "parked until the next launch or an explicit ask";
    model().note("permissions sheet " + note);
    return OperatorResult::success(JSONValue::object({{"showing", false}, {"note", note}}));
  }
  return std::nullopt;
}

void OperatorService::registerPermissions() {
  onBranch(&OperatorService::permissionsVerbs, {"permissions", "permissions.show", "permissions.dismiss"});
  on("permissions.open", [this](const OperatorCommand&, const OperatorArgs& a) { return permissionsOpen(a); });
}

JSONValue OperatorService::shootInfoReport() {
  AppModel& m = model();
  const auto refusal = stage().canRoll(m, false, &permissions());
  JSONValue::Array warnings;
  for (const auto& w : Stage::preflight(m)) warnings.emplace_back(w);
  const double planned = m.isOpen() ? RunPlan::make(m.blocking(), m.recording()).duration : 0;
  const CaptureConfig capture = m.isOpen() ? m.recording().capture.value_or(CaptureConfig{}) : CaptureConfig{};
  const std::string films = capture.app ? "the largest window of " + *capture.app : "the whole screen";
  // Built apart: GCC 12 misreads conditional temporaries inside a long initializer list.
  JSONValue fps;
  if (capture.fps) fps = JSONValue(*capture.fps);
  return JSONValue::object({{"canRoll", !refusal},
                            {"refusal", Reports::text(refusal)},
                            {"warnings", JSONValue(std::move(warnings))},
                            {"planned", JSONValue::seconds(planned)},
                            {"total", JSONValue::seconds(Shoot::countFrom + Shoot::slatePad + planned + Shoot::tailPad)},
                            {"films", films},
                            {"app", Reports::text(capture.app)},
                            {"fps", std::move(fps)},
                            {"audio", capture.audio.value_or(false)},
                            {"slate", store_.showingSlate},
                            {"rolling", stage().shoot().isRolling()},
                            {"report", stage().shoot().report()}});
}

void OperatorService::registerShootInfo() {
  on("shoot.info", [this](const OperatorCommand&, const OperatorArgs&) -> asio::awaitable<OperatorResult> {
    co_return OperatorResult::success(shootInfoReport());
  });
  on("viewer.caption", [this](const OperatorCommand&, const OperatorArgs& a) -> asio::awaitable<OperatorResult> {
    AppModel& m = model();
    if (!m.isOpen()) throw AppModel::Failure::noProduction();
    const auto show = a.flag("show");
    m.monitorCaption = show.value_or(!m.monitorCaption);
    // The words of the line under the playhead, if any.
    JSONValue words;
    for (const auto& item : m.recording().timeline) {
      if (item.type != ItemType::line || !item.start || !item.text) continue;
      const double length = item.effectiveDuration().value_or(0);
      if (m.playhead() >= *item.start && m.playhead() < *item.start + length) {
        words = JSONValue(*item.text);
        break;
      }
    }
    const SubtitleStyle style = m.recording().subtitles.value_or(SubtitleStyle{});
    m.note(std::string("monitor caption ") + (m.monitorCaption ? "shown" : "hidden"));
    co_return OperatorResult::success(JSONValue::object({{"show", m.monitorCaption},
                                                         {"words", m.monitorCaption ? words : JSONValue()},
                                                         {"drawn", Subtitles::summary(style)}}));
  });
}

}  // namespace tavorin
