#include "platform/ChromiumBrowser.hpp"
#include "platform/DevToolsMessage.hpp"
#include "platform/DevToolsSocket.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

extern char** environ;

namespace tavorin {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

struct ChromiumBrowser::Pipe {
  pid_t pid = -1;
  int toBrowser = -1;    // its descriptor 3
  int fromBrowser = -1;  // its descriptor 4
  std::string buffer;
  std::deque<std::string> waiting;
  int nextId = 1;
  std::string session;   // the front page's, once attached
  std::unique_ptr<DevToolsSocket> socket;  // the user's own browser, instead of a pipe

  ~Pipe() {
    if (toBrowser >= 0) ::close(toBrowser);
    if (fromBrowser >= 0) ::close(fromBrowser);
    if (pid > 0) {
      ::kill(pid, SIGTERM);
      // Chromium takes a moment to close its profile; it gets two seconds, then no more.
      for (int i = 0; i < 200; ++i) {
        if (::waitpid(pid, nullptr, WNOHANG) == pid) return;
        ::usleep(10000);
      }
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
    }
  }

  bool alive() {
    if (socket) return socket->isOpen();
    if (pid <= 0) return false;
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid) {
      pid = -1;
      return false;
    }
    return true;
  }

  void send(const json& message) {
    if (socket) return socket->send(message.dump());
    std::string text = message.dump();
    text.push_back('\0');
    const char* at = text.data();
    std::size_t left = text.size();
    while (left > 0) {
      const ssize_t n = ::write(toBrowser, at, left);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) throw std::runtime_error("the browser closed its pipe");
      at += n;
      left -= static_cast<std::size_t>(n);
    }
  }

  // The next whole message, or nothing when `until` passes first.
  std::optional<DevToolsMessage> receive(Clock::time_point until) {
    for (;;) {
      while (!waiting.empty()) {
        auto message = DevToolsMessage::decode(waiting.front());
        waiting.pop_front();
        if (message) return message;
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
      if (left <= 0) return std::nullopt;
      if (socket) {
        for (auto& text : socket->receive(until)) waiting.push_back(std::move(text));
        continue;
      }
      pollfd p{fromBrowser, POLLIN, 0};
      const int ready = ::poll(&p, 1, static_cast<int>(left));
      if (ready < 0 && errno == EINTR) continue;
      if (ready <= 0) continue;
      char chunk[65536];
      const ssize_t n = ::read(fromBrowser, chunk, sizeof chunk);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) throw std::runtime_error("the browser went away");
      buffer.append(chunk, static_cast<std::size_t>(n));
      for (auto& frame : DevToolsMessage::frames(buffer)) waiting.push_back(std::move(frame));
    }
  }

  // Sends a command and waits for its answer; events that come between are passed over.
  json call(const std::string& method, json params, std::chrono::milliseconds timeout, bool onPage = true) {
    json message{{"id", nextId++}, {"method", method}, {"params", std::move(params)}};
    if (onPage && !session.empty()) message["sessionId"] = session;
    const int id = message["id"];
    send(message);
    const auto until = Clock::now() + timeout;
    for (;;) {
      auto answer = receive(until);
      if (!answer) throw std::runtime_error(method + " got no answer in time");
      if (answer->id != id) continue;
      if (answer->error) throw std::runtime_error(*answer->error);
      return json::parse(answer->result, nullptr, false);
    }
  }

  // Waits for an event by name on the page's session.
  bool awaitEvent(const std::string& method, Clock::time_point until) {
    for (;;) {
      auto message = receive(until);
      if (!message) return false;
      if (message->method == method) return true;
    }
  }
};

ChromiumBrowser::ChromiumBrowser(std::filesystem::path profile, std::string program)
    : profile_(std::move(profile)), program_(program.empty() ? "chromium" : std::move(program)) {}

ChromiumBrowser::~ChromiumBrowser() = default;

bool ChromiumBrowser::isRunning() const { return pipe_ && pipe_->alive(); }

int ChromiumBrowser::pid() const { return pipe_ ? pipe_->pid : -1; }

void ChromiumBrowser::quit() { pipe_.reset(); }

void ChromiumBrowser::ensureRunning() {
  if (isRunning()) return;
  pipe_.reset();
  if (attachPort) {
    auto pipe = std::make_unique<Pipe>();
    pipe->socket = std::make_unique<DevToolsSocket>(*attachPort, timeout);
    attach(*pipe);
    pipe_ = std::move(pipe);
    return;
  }
  std::error_code ignored;
  std::filesystem::create_directories(profile_, ignored);

  int requests[2], answers[2];
  if (::pipe2(requests, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
  if (::pipe2(answers, O_CLOEXEC) != 0) {
    ::close(requests[0]);
    ::close(requests[1]);
    throw std::runtime_error(std::strerror(errno));
  }
  auto pipe = std::make_unique<Pipe>();
  pipe->toBrowser = requests[1];
  pipe->fromBrowser = answers[0];

  std::vector<std::string> args{program_, "--remote-debugging-pipe", "--user-data-dir=" + profile_.string(),
                                "--no-first-run", "--no-default-browser-check", "--password-store=basic",
                                "--disable-features=Translate", "--new-window", "about:blank"};
  if (fill) {
    // Chromium keeps a window asked for at exactly the screen's size a pixel short of it
    // each way, which leaves a dark edge on camera; a pixel more covers the screen.
    args.insert(args.end() - 1, {"--kiosk", "--window-position=0,0",
                                 "--window-size=" + std::to_string(fill->first + 1) + "," +
                                     std::to_string(fill->second + 1)});
  }
  // Chromium's sandbox refuses to start under root, which is how these desktops are often
  // run; --test-type keeps the bar that warns of it off the page, and off camera.
  if (::geteuid() == 0) args.insert(args.begin() + 1, {"--no-sandbox", "--test-type"});
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, requests[0], 3);
  posix_spawn_file_actions_adddup2(&actions, answers[1], 4);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  pid_t pid = -1;
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e)
    if (!display || std::string_view(*e).rfind("DISPLAY=", 0) != 0) env.emplace_back(*e);
  if (display) env.push_back("DISPLAY=" + *display);
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  const int failed = ::posix_spawnp(&pid, program_.c_str(), &actions, &attributes, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  ::close(requests[0]);
  ::close(answers[1]);
  if (failed != 0) throw std::runtime_error(program_ + " could not start: " + std::strerror(failed));
  pipe->pid = pid;
  attach(*pipe);
  pipe_ = std::move(pipe);
}

void ChromiumBrowser::attach(Pipe& pipe) const {
  // The first page target is the front tab; attach to it once, flat, so commands go by session.
  const auto until = Clock::now() + timeout;
  for (;;) {
    const auto targets = pipe.call("Target.getTargets", json::object(), timeout, false);
    for (const auto& info : targets.value("targetInfos", json::array())) {
      if (info.value("type", std::string()) != "page") continue;
      const auto attached = pipe.call("Target.attachToTarget",
                                       {{"targetId", info.value("targetId", std::string())}, {"flatten", true}},
                                       timeout, false);
      pipe.session = attached.value("sessionId", std::string());
      break;
    }
    if (!pipe.session.empty()) break;
    if (Clock::now() > until) throw std::runtime_error("Chromium started but showed no page");
    ::usleep(50000);
  }
  pipe.call("Page.enable", json::object(), timeout);
}

void ChromiumBrowser::navigate(const std::string& url) {
  ensureRunning();
  try {
    const auto result = pipe_->call("Page.navigate", {{"url", url}}, timeout);
    if (result.contains("errorText")) throw std::invalid_argument(result["errorText"].get<std::string>());
    pipe_->awaitEvent("Page.loadEventFired", Clock::now() + timeout);
    pipe_->call("Page.bringToFront", json::object(), timeout);
  } catch (const std::runtime_error&) {
    if (!isRunning()) pipe_.reset();
    throw;
  }
}

std::string ChromiumBrowser::evaluate(const std::string& script) {
  if (!isRunning()) throw std::runtime_error("Chromium is not running");
  json result;
  try {
    result = pipe_->call("Runtime.evaluate",
                         {{"expression", script}, {"returnByValue", true}, {"awaitPromise", true}}, timeout);
  } catch (const std::runtime_error&) {
    if (!isRunning()) pipe_.reset();
    throw;
  }
  if (result.contains("exceptionDetails")) {
    const auto& details = result["exceptionDetails"];
    std::string text = details.value("text", std::string("the script threw"));
    if (details.contains("exception") && details["exception"].contains("description"))
      text = details["exception"]["description"].get<std::string>();
    throw std::invalid_argument(text);
  }
  const auto& value = result.value("result", json::object());
  if (value.contains("value")) return value["value"].dump();
  return "null";
}

}  // namespace tavorin
