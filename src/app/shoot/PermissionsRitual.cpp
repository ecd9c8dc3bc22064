#include "app/shoot/PermissionsRitual.hpp"

#include <cstdio>

namespace tavorin {

using Kind = PermissionsRitual::State::Kind;

std::string word(Need need) {
  switch (need) {
    case Need::screenRecording: return "screenRecording";
    case Need::accessibility: return "accessibility";
    case Need::automation: return "automation";
    case Need::chromeJS: return "chromeJS";
    case Need::agent: return "agent";
  }
  return "screenRecording";
}

std::optional<Need> needNamed(std::string_view w) {
  for (Need n : PermissionsRitual::needs)
    if (word(n) == w) return n;
  // The browser's row answers to the name its settings button carries.
  if (w == "chrome") return Need::chromeJS;
  return std::nullopt;
}

std::string PermissionsRitual::State::wire() const {
  switch (kind) {
    case Kind::missing: return canPrompt ? "missing" : "missing-prompt-spent";
    case Kind::granted: return "granted";
    case Kind::captureProven: return "capture-proven";
    case Kind::captureBlocked: return "blocked";
    case Kind::checkingCapture: return "checking-capture";
    case Kind::relaunchNeeded: return "relaunch-needed";
    case Kind::waitingOnChrome: return "waiting-on-chrome";
    case Kind::unavailable: return "unavailable";
    case Kind::on: return "on";
    case Kind::off: return "off";
    case Kind::unknown: return "unknown-chrome-closed";
  }
  return "missing";
}

std::string PermissionsRitual::title(Need need) {
  switch (need) {
    case Need::screenRecording: return "Screen Recording";
    case Need::accessibility: return "Synthetic Input";
    case Need::automation: return "Automation · Chromium";
    case Need::chromeJS: return "Chromium · JavaScript over DevTools";
    case Need::agent: return "Agent Steps · claude";
  }
  return "";
}

std::string PermissionsRitual::line(Need need) {
  switch (need) {
    case Need::screenRecording: return "Allow Tavorin to record your screen.";
    case Need::accessibility: return "Allow Tavorin to control clicks, scrolls, and keys.";
    case Need::automation: return "Allow Tavorin to operate Chromium.";
    case Need::chromeJS: return "Let Tavorin run JavaScript in Chromium's page through its DevTools connection.";
    case Need::agent: return "Let agent steps hand the screen to the claude command.";
  }
  return "";
}

PermissionsRitual::PermissionsRitual(PermissionsProbe& probe, MainActor& actor, Offloader& lane)
    : probe_(probe), actor_(actor), lane_(lane), alive_(std::make_shared<bool>(true)) {
  // A process films with what it could reach when it started.
  screenAtLaunch_ = probe_.screenRecording();
  screen_ = screenAtLaunch_;
  ax_ = probe_.accessibility();
  automation_ = probe_.automation(false);
  agent_ = probe_.agentCommand();
  // A need the desktop cannot prompt for offers its settings from the first look.
  for (Need n : needs)
    if (!probe_.canPrompt(n)) promptSpent_.insert(n);
}

PermissionsRitual::~PermissionsRitual() {
  *alive_ = false;
  if (rereading_) rereading_->cancel();
}

void PermissionsRitual::show() {
  showing_ = true;
  keepRereading();
}

void PermissionsRitual::keepRereading() {
  if (rereading_) return;
  rereading_ = actor_.after(rereadEvery, [this, alive = alive_] {
    if (!*alive) return;
    rereading_.reset();
    if (!showing_) return;
    refresh();
    keepRereading();
  });
}

void PermissionsRitual::changed() {
  if (onChange) onChange();
}

void PermissionsRitual::refresh(std::optional<bool> jsRefused) {
  screen_ = probe_.screenRecording();
  ax_ = probe_.accessibility();
  automation_ = probe_.automation(false);
  agent_ = probe_.agentCommand();
  if (jsRefused) jsRefused_ = *jsRefused;
  exerciseCameraIfNeeded();
  // A browser that answers is asked about its JavaScript once, off the actor.
  if (automation_ == AutomationState::granted && js_ == ChromeJSState::unknown && !probingJS_ && !askedJS_)
    probeChromeJS();
  changed();
}

PermissionsRitual::State PermissionsRitual::state(Need need) const {
  const auto missing = [&](bool canPrompt) { return State{Kind::missing, canPrompt && !promptSpent_.count(need)}; };
  switch (need) {
    case Need::screenRecording:
      if (!screen_) return settingsVisited_.count(need) ? State{Kind::relaunchNeeded} : missing(true);
      if (!screenAtLaunch_) return State{Kind::relaunchNeeded};
      if (checkingCamera_) return State{Kind::checkingCapture};
      if (camera_ && camera_->kind == CameraVerdict::Kind::proven) return State{Kind::captureProven};
      if (camera_ && camera_->kind == CameraVerdict::Kind::blocked) return State{Kind::captureBlocked};
      return State{Kind::granted};
    case Need::accessibility: return ax_ ? State{Kind::granted} : missing(true);
    case Need::automation:
      switch (automation_) {
        case AutomationState::granted: return State{Kind::granted};
        case AutomationState::notDetermined: return missing(true);
        case AutomationState::denied: return missing(false);
        case AutomationState::chromeNotRunning: return State{Kind::waitingOnChrome};
        case AutomationState::chromeNotInstalled: return State{Kind::unavailable};
      }
      return missing(true);
    case Need::chromeJS:
      if (automation_ == AutomationState::chromeNotInstalled) return State{Kind::unavailable};
      switch (js_) {
        case ChromeJSState::on: return State{Kind::on};
        case ChromeJSState::off: return State{Kind::off};
        case ChromeJSState::unknown: return jsRefused_ ? State{Kind::off} : State{Kind::unknown};
      }
      return State{Kind::unknown};
    case Need::agent: return agent_ ? State{Kind::granted} : State{Kind::unavailable};
  }
  return State{};
}

namespace {

bool settled(Need need, Kind k) {
  switch (need) {
    case Need::screenRecording: return k == Kind::granted || k == Kind::captureProven;
    case Need::accessibility: return k == Kind::granted;
    case Need::automation: return k == Kind::granted || k == Kind::unavailable;
    case Need::chromeJS: return k == Kind::unavailable || k == Kind::on;
    // Agent steps are a choice of the script, not a grant: a missing claude fails its step.
    case Need::agent: return true;
  }
  return true;
}

}  // namespace

bool PermissionsRitual::allSettled() const {
  for (Need n : needs)
    if (!settled(n, state(n).kind)) return false;
  return true;
}

bool PermissionsRitual::wanting() const {
  return state(Need::screenRecording).kind == Kind::missing || state(Need::accessibility).kind == Kind::missing ||
         automation_ == AutomationState::denied;
}

PermissionsRitual::Button PermissionsRitual::button(Need need) const {
  const State s = state(need);
  if (need == Need::chromeJS) {
    if (s.kind == Kind::unavailable) return {"Chromium Missing", false, std::nullopt};
    if (s.kind == Kind::on) return {"Enabled", false, std::nullopt};
    return {"Open Chromium", true, Act::openChrome};
  }
  switch (s.kind) {
    case Kind::missing:
      return s.canPrompt ? Button{"Grant", true, Act::request} : Button{"Open Settings", true, Act::openSettings};
    case Kind::granted: return {need == Need::agent ? "Ready" : "Granted", false, std::nullopt};
    case Kind::captureProven: return {"Ready", false, std::nullopt};
    case Kind::captureBlocked: return {"Check again", true, Act::checkCamera};
    case Kind::checkingCapture: return {"Checking", false, std::nullopt};
    case Kind::relaunchNeeded: return {"Relaunch", true, Act::relaunch};
    case Kind::waitingOnChrome: return {"Open Chromium", true, Act::openChrome};
    case Kind::unavailable: return {need == Need::agent ? "claude Missing" : "Chromium Missing", false, std::nullopt};
    default: return {"", false, std::nullopt};
  }
}

std::optional<std::string> PermissionsRitual::note(Need need, const State& s) const {
  if (need != Need::screenRecording) {
    // What the desktop said about a need it refuses, where it said anything.
    if (s.kind == Kind::missing || s.kind == Kind::unavailable || s.kind == Kind::off) return probe_.why(need);
    return std::nullopt;
  }
  const bool bundled = probe_.isBundled();
  switch (s.kind) {
    case Kind::captureProven: return "The camera works now.";
    case Kind::captureBlocked:
      return "The X server is not delivering frames of the screen. Fix the display, then Check again, so a 3am "
             "shoot can roll.";
    case Kind::checkingCapture: return "Checking the camera now.";
    case Kind::relaunchNeeded:
      if (screen_) return bundled ? "Granted. It applies at the next launch." : "Granted. Restart this run to film.";
      return bundled ? "This copy learns the answer at its next launch. Relaunch."
                     : "This copy learns the answer at its next launch.";
    case Kind::missing: return probe_.why(need);
    default: return std::nullopt;
  }
}

std::vector<PermissionsRitual::Row> PermissionsRitual::rows() const {
  std::vector<Row> list;
  for (Need n : needs) {
    const State s = state(n);
    list.push_back(Row{n, title(n), line(n), s, button(n), note(n, s)});
  }
  return list;
}

std::string PermissionsRitual::identityLine() const {
  const GrantHolder holder = probe_.grantHolder();
  if (holder.otherProgram)
    return "These grants belong to " + holder.name + ". The X server gives them to the session it runs in.";
  return "These grants belong to " + holder.name + ".";
}

bool PermissionsRitual::showsStaleNote() const {
  // Looked granted, and the camera was refused all the same; or settings were visited
  // and the desktop still says no.
  if (screen_ && camera_ && camera_->kind == CameraVerdict::Kind::noAccess) return true;
  return settingsVisited_.count(Need::accessibility) && !ax_;
}

std::string PermissionsRitual::staleNote() {
  return "An older grant does nothing: the X server reads this session's cookie. Grant it again from this session.";
}

void PermissionsRitual::act(Need need, std::function<void(const std::string&)> done) {
  const Button b = button(need);
  auto finish = [this, done = std::move(done), alive = alive_](const std::string& said) {
    if (!*alive) return;
    refresh();
    if (done) done(said);
  };
  if (!b.enabled || !b.act) {
    finish("");
    return;
  }
  switch (*b.act) {
    case Act::request:
      // The desktop shows a prompt once; the next press opens the settings instead.
      promptSpent_.insert(need);
      if (need == Need::automation) {
        askingChrome_ = true;
        changed();
        lane_.offload([this] { probe_.requestAutomation(); },
                      [this, finish, alive = alive_](std::exception_ptr) {
                        if (!*alive) return;
                        askingChrome_ = false;
                        finish("");
                      });
        return;
      }
      if (need == Need::screenRecording) probe_.requestScreenRecording();
      else probe_.requestAccessibility();
      finish("");
      return;
    case Act::openSettings:
      openSettings(need, [finish](const SettingsOpened& opened) { finish(opened.said); });
      return;
    case Act::relaunch:
      probe_.relaunch();
      finish("");
      return;
    case Act::openChrome:
      lane_.offload([this] { probe_.openChrome(); }, [finish](std::exception_ptr) { finish(""); });
      return;
    case Act::checkCamera:
      recheckCamera([finish] { finish(""); });
      return;
  }
}

void PermissionsRitual::openSettings(Need need, std::function<void(const SettingsOpened&)> done) {
  settingsVisited_.insert(need);
  auto opened = std::make_shared<SettingsOpened>();
  lane_.offload([this, opened, need] { *opened = probe_.openSettings(need); },
                [this, opened, done = std::move(done), alive = alive_](std::exception_ptr) {
                  if (!*alive) return;
                  refresh();
                  if (done) done(*opened);
                });
}

void PermissionsRitual::probeChromeJS(std::function<void()> done) {
  auto answer = std::make_shared<ChromeJSState>(ChromeJSState::unknown);
  probingJS_ = true;
  askedJS_ = true;
  lane_.offload([this, answer] { *answer = probe_.probeChromeJS(); },
                [this, answer, done = std::move(done), alive = alive_](std::exception_ptr) {
                  if (!*alive) return;
                  js_ = *answer;
                  probingJS_ = false;
                  changed();
                  if (done) done();
                });
}

void PermissionsRitual::exerciseCameraIfNeeded() {
  if (!screen_ || !screenAtLaunch_ || camera_ || checkingCamera_) return;
  runCamera({});
}

void PermissionsRitual::recheckCamera(std::function<void()> done) {
  if (checkingCamera_) {
    if (done) done();
    return;
  }
  camera_.reset();
  runCamera(std::move(done));
}

void PermissionsRitual::runCamera(std::function<void()> done) {
  checkingCamera_ = true;
  changed();
  auto verdict = std::make_shared<CameraVerdict>();
  lane_.offload([this, verdict] { *verdict = probe_.exerciseCamera(); },
                [this, verdict, done = std::move(done), alive = alive_](std::exception_ptr) {
                  if (!*alive) return;
                  checkingCamera_ = false;
                  camera_ = *verdict;
                  changed();
                  if (done) done();
                });
}

namespace SystemsCopy {

std::optional<std::string> wanting(Need need, const PermissionsRitual::State& s) {
  const std::string title = PermissionsRitual::title(need);
  switch (s.kind) {
    case Kind::missing: return title + " not granted";
    case Kind::checkingCapture: return "Checking the camera";
    case Kind::captureBlocked: return "Screen capture blocked";
    case Kind::relaunchNeeded: return "Restart app to apply " + title;
    case Kind::waitingOnChrome: return "Chromium is not open";
    case Kind::off: return "Chromium JavaScript is turned off";
    case Kind::unknown: return "Could not check Chromium setting";
    default: return std::nullopt;
  }
}

std::string status(bool engineChecking, bool engineOnline, const PermissionsRitual& ritual) {
  if (engineChecking) return "Checking voice engine";
  if (!engineOnline) return "Voice engine not responding";
  for (Need n : PermissionsRitual::needs)
    if (auto phrase = wanting(n, ritual.state(n))) return *phrase;
  if (ritual.checkingCamera()) return "Checking the camera";
  if (!ritual.camera()) return "Screen capture test not run";
  return "Ready to record";
}

std::string cameraState(const PermissionsRitual& ritual) {
  if (ritual.checkingCamera()) return "checking";
  if (!ritual.camera()) return "unchecked";
  switch (ritual.camera()->kind) {
    case CameraVerdict::Kind::proven: {
      char text[32];
      std::snprintf(text, sizeof text, "ready in %.2fs", ritual.camera()->secondsToFirstFrame);
      return text;
    }
    case CameraVerdict::Kind::blocked: return "blocked";
    case CameraVerdict::Kind::noAccess: return "no screen access";
    case CameraVerdict::Kind::noTarget: return "nothing to point at";
  }
  return "unchecked";
}

std::vector<Row> rows(bool engineChecking, bool engineOnline, const PermissionsRitual& ritual) {
  int toGrant = 0;
  for (Need n : PermissionsRitual::needs)
    if (!settled(n, ritual.state(n).kind)) ++toGrant;
  const std::string camera = cameraState(ritual);
  return {Row{"Voice engine", engineChecking ? "checking" : engineOnline ? "online" : "offline", engineOnline,
              engineChecking},
          Row{"Permissions", toGrant ? std::to_string(toGrant) + " to grant" : "all granted", toGrant == 0, false},
          Row{"Camera", camera, ritual.camera() && ritual.camera()->kind == CameraVerdict::Kind::proven,
              ritual.checkingCamera()}};
}

}  // namespace SystemsCopy

}  // namespace tavorin
