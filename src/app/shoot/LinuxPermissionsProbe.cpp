#include "app/shoot/LinuxPermissionsProbe.hpp"

#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <cctype>
#include <cstring>
#include <fstream>

#include "kit/Agents.hpp"
#include "platform/ChromiumBrowser.hpp"
#include "platform/TavorinPaths.hpp"
#include "platform/X11Performer.hpp"
#include "platform/camera/X11Recorder.hpp"

extern char** environ;

namespace tavorin {

namespace fs = std::filesystem;

namespace {

bool runnable(const fs::path& p) {
  std::error_code ec;
  return fs::is_regular_file(p, ec) && ::access(p.c_str(), X_OK) == 0;
}

// Runs a program to its end with its output thrown away; its exit status, or -1.
int runQuietly(const std::vector<std::string>& args, bool wait) {
  std::vector<char*> argv;
  std::vector<std::string> copy = args;
  for (auto& a : copy) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // Its own session: a browser left open outlives the studio.
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t pid = -1;
  const int failed = ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (failed != 0) return -1;
  if (!wait) return 0;
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string readLine(const fs::path& p) {
  std::ifstream in(p);
  std::string line;
  std::getline(in, line);
  return line;
}

}  // namespace

std::map<Need, std::vector<std::string>> LinuxPermissionsProbe::defaultSettings() {
  return {{Need::screenRecording,
           {"/usr/share/man/man7/Xsecurity.7.gz", "/usr/share/man/man1/xhost.1.gz", "/usr/share/doc/xserver-common"}},
          {Need::accessibility, {"/usr/share/man/man3/XTest.3.gz", "/usr/share/doc/libxtst6"}},
          {Need::automation, {"/usr/share/doc/chromium/README.Debian", "/usr/share/doc/chromium"}},
          {Need::chromeJS, {"/usr/share/doc/chromium/README.Debian", "/usr/share/doc/chromium"}}};
}

std::optional<fs::path> LinuxPermissionsProbe::findProgram(const std::string& name) {
  if (name.empty()) return std::nullopt;
  if (name.find('/') != std::string::npos) return runnable(name) ? std::optional<fs::path>(name) : std::nullopt;
  const auto path = Environment::value("PATH");
  if (!path) return std::nullopt;
  std::size_t from = 0;
  for (;;) {
    const std::size_t colon = path->find(':', from);
    const std::string dir = path->substr(from, colon == std::string::npos ? std::string::npos : colon - from);
    if (!dir.empty() && runnable(fs::path(dir) / name)) return fs::path(dir) / name;
    if (colon == std::string::npos) return std::nullopt;
    from = colon + 1;
  }
}

LinuxPermissionsProbe::LinuxPermissionsProbe() : LinuxPermissionsProbe(Options{}) {}

LinuxPermissionsProbe::LinuxPermissionsProbe(Options options) : options_(std::move(options)) {
  if (options_.browserProfile.empty()) options_.browserProfile = TavorinPaths::supportDir() / "chromium-check";
  if (options_.settings.empty()) options_.settings = defaultSettings();
  if (options_.home.empty()) options_.home = Environment::home();
  if (options_.executable.empty()) {
    std::error_code ec;
    options_.executable = fs::read_symlink("/proc/self/exe", ec);
  }
}

bool LinuxPermissionsProbe::isBundled() const {
  // An installed copy lives under a system prefix; a build runs from its checkout.
  const std::string exe = options_.executable.string();
  return exe.rfind("/usr/", 0) == 0 || exe.rfind("/opt/", 0) == 0;
}

GrantHolder LinuxPermissionsProbe::grantHolder() const {
  if (isBundled()) return GrantHolder{"Tavorin", options_.executable.string(), static_cast<int>(::getpid()), false};
  // A build started from a terminal or an IDE runs in that program's session, and
  // the X server lets in whatever that session may.
  const int parent = static_cast<int>(::getppid());
  const fs::path proc = "/proc/" + std::to_string(parent);
  std::error_code ec;
  const fs::path exe = fs::read_symlink(proc / "exe", ec);
  std::string name = readLine(proc / "comm");
  if (name.empty()) name = exe.empty() ? "pid " + std::to_string(parent) : exe.filename().string();
  return GrantHolder{name, exe.string(), parent, true};
}

bool LinuxPermissionsProbe::screenRecording() {
  const auto refusal = X11Recorder::screenRefusal(options_.display.value_or(""));
  std::lock_guard guard(lock_);
  if (refusal) why_[Need::screenRecording] = *refusal;
  else why_.erase(Need::screenRecording);
  return !refusal;
}

bool LinuxPermissionsProbe::accessibility() {
  auto refusal = X11Performer::inputRefusal(options_.display);
  std::lock_guard guard(lock_);
  if (refusal) {
    refusal->front() = static_cast<char>(std::toupper(static_cast<unsigned char>(refusal->front())));
    why_[Need::accessibility] = *refusal + ".";
  } else {
    why_.erase(Need::accessibility);
  }
  return !refusal;
}

AutomationState LinuxPermissionsProbe::automation(bool ask) {
  if (!findProgram(options_.browserProgram)) {
    std::lock_guard guard(lock_);
    why_[Need::automation] = "There is no " + options_.browserProgram + " on this desktop; install it to film pages.";
    return AutomationState::chromeNotInstalled;
  }
  if (ask) tryBrowser();
  std::lock_guard guard(lock_);
  return automation_.value_or(AutomationState::notDetermined);
}

namespace {

// A browser that dies while it is asked must not take the studio with it: while it
// is held, a write to its closed pipe fails with EPIPE on this thread instead of
// raising SIGPIPE, and one already raised here is taken back before letting go.
class PipeSignalHeld {
 public:
  PipeSignalHeld() {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &before_);
  }
  ~PipeSignalHeld() {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    const timespec none{0, 0};
    while (sigtimedwait(&pipe, nullptr, &none) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  PipeSignalHeld(const PipeSignalHeld&) = delete;
  PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

void LinuxPermissionsProbe::tryBrowser() {
  const PipeSignalHeld held;
  ChromiumBrowser browser(options_.browserProfile, options_.browserProgram);
  browser.display = options_.display;
  browser.timeout = std::chrono::milliseconds(15000);
  AutomationState state = AutomationState::denied;
  ChromeJSState js = ChromeJSState::unknown;
  std::optional<std::string> why;
  try {
    browser.ensureRunning();
    state = AutomationState::granted;
    try {
      js = browser.evaluate("1 + 1") == "2" ? ChromeJSState::on : ChromeJSState::unknown;
    } catch (const std::invalid_argument& e) {
      js = ChromeJSState::off;
      why = std::string("Chromium refused the page's JavaScript: ") + e.what();
    }
  } catch (const std::exception& e) {
    why = options_.browserProgram + " would not answer over its DevTools pipe: " + e.what();
  }
  browser.quit();
  std::lock_guard guard(lock_);
  automation_ = state;
  js_ = js;
  if (state == AutomationState::denied) why_[Need::automation] = *why;
  else why_.erase(Need::automation);
  if (js == ChromeJSState::off) why_[Need::chromeJS] = *why;
  else why_.erase(Need::chromeJS);
}

void LinuxPermissionsProbe::requestAutomation() {
  if (findProgram(options_.browserProgram)) tryBrowser();
}

ChromeJSState LinuxPermissionsProbe::probeChromeJS() {
  if (!findProgram(options_.browserProgram)) return ChromeJSState::unknown;
  {
    // The browser was just asked when its automation was: that answer stands.
    std::lock_guard guard(lock_);
    if (automation_ == AutomationState::granted) return js_;
  }
  tryBrowser();
  std::lock_guard guard(lock_);
  return js_;
}

CameraVerdict LinuxPermissionsProbe::exerciseCamera() {
  return X11Recorder(options_.display.value_or("")).check(std::optional<unsigned long>());
}

SettingsOpened LinuxPermissionsProbe::openSettings(Need need) {
  const std::string title = word(need);
  const auto opener = findProgram(options_.opener);
  if (!opener) return {false, "There is no " + options_.opener + " on this desktop to open settings with."};
  const auto found = options_.settings.find(need);
  if (found != options_.settings.end()) {
    for (const auto& target : found->second) {
      std::error_code ec;
      if (!fs::exists(target, ec)) continue;
      if (runQuietly({opener->string(), target}, true) != 0)
        return {false, options_.opener + " could not open " + target + "."};
      return {true, "opened " + target};
    }
  }
  return {false, "This desktop has no settings tool or documentation for " + title + "."};
}

void LinuxPermissionsProbe::openChrome() {
  const auto program = findProgram(options_.browserProgram);
  if (!program) return;
  std::vector<std::string> args{program->string(), "--user-data-dir=" + options_.browserProfile.string(),
                                "--no-first-run", "--no-default-browser-check"};
  if (::geteuid() == 0) args.insert(args.begin() + 1, "--no-sandbox");
  runQuietly(args, false);
}

void LinuxPermissionsProbe::relaunch() {
  if (options_.relaunch) options_.relaunch();
}

bool LinuxPermissionsProbe::agentCommand() {
  const bool found = runnable(Agents::claudePath(options_.home.string())) || findProgram("claude").has_value();
  std::lock_guard guard(lock_);
  if (found) why_.erase(Need::agent);
  else why_[Need::agent] = "There is no claude command (~/.local/bin/claude or on PATH); agent steps will fail.";
  return found;
}

std::optional<std::string> LinuxPermissionsProbe::why(Need need) const {
  std::lock_guard guard(lock_);
  const auto found = why_.find(need);
  if (found == why_.end()) return std::nullopt;
  return found->second;
}

}  // namespace tavorin
