#include "app/shoot/ClaudeAgentStep.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "base/LifetimeToken.hpp"
#include "base/Text.hpp"
#include "kit/Agents.hpp"
#include "platform/TavorinPaths.hpp"

extern char** environ;

namespace tavorin {

namespace {

bool isExecutable(const std::filesystem::path& p) {
  struct stat s{};
  return ::stat(p.c_str(), &s) == 0 && S_ISREG(s.st_mode) && ::access(p.c_str(), X_OK) == 0;
}

std::map<std::string, std::string> environment() {
  std::map<std::string, std::string> out;
  for (char** e = environ; *e; ++e) {
    std::string_view entry(*e);
    const auto eq = entry.find('=');
    if (eq == std::string_view::npos) continue;
    out.emplace(std::string(entry.substr(0, eq)), std::string(entry.substr(eq + 1)));
  }
  return out;
}

}  // namespace

// One running child, shared with the thread that waits for it.
struct ClaudeAgentStep::Child {
  std::mutex lock;
  pid_t pid = -1;
  bool exited = false;
  std::atomic<bool> cancelled{false};
  bool timedOut = false;
  double timeout = 0;
  Done done;
  std::shared_ptr<MainActor::Timer> timer;
};

ClaudeAgentStep::ClaudeAgentStep(MainActor& actor, std::filesystem::path home)
    : actor_(actor), home_(std::move(home)) {}

ClaudeAgentStep::~ClaudeAgentStep() {
  if (child_) {
    child_->done = nullptr;
    kill();
  }
}

std::string ClaudeAgentStep::program() const {
  const auto home = home_.empty() ? Environment::home() : home_;
  const std::string expected = Agents::claudePath(home.string());
  if (isExecutable(expected)) return expected;
  const std::string path = Environment::value("PATH").value_or("");
  for (auto dir : Text::split(path, ':')) {
    if (dir.empty()) continue;
    const auto candidate = std::filesystem::path(std::string(dir)) / "claude";
    if (isExecutable(candidate)) return candidate.string();
  }
  return expected;
}

void ClaudeAgentStep::run(const Blocking::AgentCall& call, const std::optional<AgentPolicy>& policy, Done done) {
  const std::string path = program();
  if (!isExecutable(path)) {
    actor_.post([done, path] { done(std::make_exception_ptr(AgentStepError::noClaude(path))); });
    return;
  }
  std::vector<std::string> args{path};
  for (auto& a : Agents::arguments(call, policy)) args.push_back(std::move(a));
  std::vector<std::string> env;
  for (const auto& [key, value] : Agents::sanitizedEnvironment(environment())) env.push_back(key + "=" + value);

  int out[2], err[2];
  if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
    const std::string why = std::strerror(errno);
    actor_.post([done, why] { done(std::make_exception_ptr(AgentStepError::failed(why))); });
    return;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  if (workingDirectory) posix_spawn_file_actions_addchdir_np(&actions, workingDirectory->c_str());
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // Its own process group, so an end reaches the helpers it starts too.
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes, 0);
  std::vector<char*> argv, envp;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  pid_t pid = -1;
  const int failed = ::posix_spawn(&pid, path.c_str(), &actions, &attributes, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  ::close(out[1]);
  ::close(err[1]);
  if (failed != 0) {
    ::close(out[0]);
    ::close(err[0]);
    const std::string why = std::strerror(failed);
    actor_.post([done, why] { done(std::make_exception_ptr(AgentStepError::failed(why))); });
    return;
  }

  auto child = std::make_shared<Child>();
  child->pid = pid;
  child->timeout = call.timeout;
  child->done = std::move(done);
  child_ = child;

  child->timer = actor_.after(
      std::chrono::duration_cast<MainActor::Clock::duration>(std::chrono::duration<double>(call.timeout)),
      [this, child] {
        if (child_ != child) return;
        {
          std::lock_guard guard(child->lock);
          if (child->exited) return;
          child->timedOut = true;
        }
        kill();
      });

  // The waiting thread reads both pipes to their end, keeps the last line of the
  // error output, reaps the child and brings the outcome back to the actor.
  auto land = alive_.guard([this, child](int status, const std::string& lastLine) {
    if (child->timer) child->timer->cancel();
    if (child_ == child) child_.reset();
    auto done = std::exchange(child->done, nullptr);
    if (!done) return;
    std::exception_ptr error;
    if (child->timedOut) error = std::make_exception_ptr(AgentStepError::timedOut(child->timeout));
    else if (child->cancelled) error = std::make_exception_ptr(AgentStepError::aborted());
    else if (WIFEXITED(status) && WEXITSTATUS(status) == 0) error = nullptr;
    else if (!lastLine.empty()) error = std::make_exception_ptr(AgentStepError::failed(lastLine));
    else {
      const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      error = std::make_exception_ptr(AgentStepError::failed("exit status " + std::to_string(code)));
    }
    done(error);
  });
  std::thread([child, land, outFd = out[0], errFd = err[0], &actor = actor_]() mutable {
    std::string errors, lastLine;
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    int open = 2;
    while (open > 0) {
      if (::poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        break;
      }
      for (auto& f : fds) {
        if (f.fd < 0 || !(f.revents & (POLLIN | POLLHUP | POLLERR))) continue;
        char buffer[4096];
        const ssize_t n = ::read(f.fd, buffer, sizeof buffer);
        if (n <= 0) {
          ::close(f.fd);
          f.fd = -1;
          --open;
        } else if (f.fd == errFd) {
          errors.append(buffer, static_cast<std::size_t>(n));
          // Only the tail matters; the rest is let go as it comes.
          if (errors.size() > 65536) errors.erase(0, errors.size() - 4096);
        }
      }
    }
    for (auto& f : fds)
      if (f.fd >= 0) ::close(f.fd);
    // Seen as ended before it is reaped, so a late kill never reaches a reused id.
    siginfo_t info{};
    ::waitid(P_PID, static_cast<id_t>(child->pid), &info, WEXITED | WNOWAIT);
    {
      std::lock_guard guard(child->lock);
      child->exited = true;
    }
    int status = 0;
    ::waitpid(child->pid, &status, 0);
    for (auto line : Text::split(errors, '\n'))
      if (!Text::trimSpace(line).empty()) lastLine = std::string(Text::trimSpace(line));
    actor.post([land, status, lastLine]() mutable { land(status, lastLine); });
  }).detach();
}

void ClaudeAgentStep::kill() {
  auto child = child_;
  if (!child) return;
  pid_t pid;
  {
    std::lock_guard guard(child->lock);
    if (child->exited) return;
    pid = child->pid;
  }
  ::kill(-pid, SIGTERM);
  const auto grace = std::chrono::duration<double>(graceSeconds);
  std::thread([child, pid, grace] {
    std::this_thread::sleep_for(grace);
    std::lock_guard guard(child->lock);
    // Not reaped yet, so the id is still the child's.
    if (!child->exited) ::kill(-pid, SIGKILL);
  }).detach();
}

void ClaudeAgentStep::abort() {
  if (!child_) return;
  child_->cancelled = true;
  kill();
}

}  // namespace tavorin
