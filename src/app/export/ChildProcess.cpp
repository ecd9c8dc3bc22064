#include "app/export/ChildProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

extern char** environ;

namespace tavorin {

struct ChildProcess::State {
  pid_t pid = -1;
  int out = -1;
  int err = -1;
  Callbacks callbacks;
  std::atomic<bool> silenced{false};
  std::atomic<bool> reaped{false};
  std::thread reader;

  void read() {
    std::string pending[2];
    pollfd fds[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    int open = 2;
    char buffer[4096];
    while (open > 0) {
      if (poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        break;
      }
      for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
        if (n <= 0) {
          if (n < 0 && errno == EINTR) continue;
          if (!pending[i].empty()) deliver(i, pending[i]);
          ::close(fds[i].fd);
          fds[i].fd = -1;
          --open;
          continue;
        }
        pending[i].append(buffer, size_t(n));
        for (size_t nl; (nl = pending[i].find('\n')) != std::string::npos;) {
          deliver(i, pending[i].substr(0, nl));
          pending[i].erase(0, nl + 1);
        }
      }
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    reaped = true;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (!silenced && callbacks.onExit) callbacks.onExit(code);
  }

  void deliver(int stream, std::string line) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (silenced) return;
    const auto& f = stream == 0 ? callbacks.stdoutLine : callbacks.stderrLine;
    if (f) f(line);
  }
};

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& args, Callbacks callbacks)
    : ChildProcess(program, args, std::move(callbacks), Options{}) {}

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& args, Callbacks callbacks,
                           const Options& options)
    : state_(std::make_unique<State>()) {
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  if (pipe2(err, O_CLOEXEC) != 0) {
    const int e = errno;
    ::close(out[0]);
    ::close(out[1]);
    throw std::system_error(e, std::generic_category());
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (options.workingDirectory) posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory->c_str());
  std::vector<char*> envp;
  if (options.environment) {
    for (const auto& e : *options.environment) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
  }
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  // A group of its own, so that stopping the child also stops what it started: a
  // grandchild left holding the pipes would keep the reader waiting.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes, 0);
  pid_t pid = -1;
  const int rc = posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(),
                             options.environment ? envp.data() : environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  ::close(out[1]);
  ::close(err[1]);
  if (rc != 0) {
    ::close(out[0]);
    ::close(err[0]);
    throw std::system_error(rc, std::generic_category());
  }
  state_->pid = pid;
  state_->out = out[0];
  state_->err = err[0];
  state_->callbacks = std::move(callbacks);
  state_->reader = std::thread([s = state_.get()] { s->read(); });
}

ChildProcess::~ChildProcess() {
  state_->silenced = true;
  terminate();
  if (state_->reader.joinable()) state_->reader.join();
}

void ChildProcess::terminate() {
  // A reaped child's number may already belong to another process.
  if (state_->pid > 0 && !state_->reaped) {
    ::kill(-state_->pid, SIGKILL);
    ::kill(state_->pid, SIGKILL);
  }
}

int ChildProcess::pid() const { return state_->pid; }

}  // namespace tavorin
