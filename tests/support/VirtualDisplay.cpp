#include "VirtualDisplay.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

extern char** environ;

namespace tavorin::test {

VirtualDisplay::VirtualDisplay(int width, int height) {
  if (::access("/usr/bin/Xvfb", X_OK) != 0) {
    missing_ = "Xvfb is not installed (Debian package xvfb)";
    return;
  }
  int fds[2];
  if (::pipe(fds) != 0) {
    missing_ = std::strerror(errno);
    return;
  }
  std::vector<std::string> args{"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0",
                                std::to_string(width) + "x" + std::to_string(height) + "x24", "-nolisten", "tcp",
                                "-noreset"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  const int failed = ::posix_spawn(&pid_, "/usr/bin/Xvfb", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(fds[1]);
  if (failed != 0) {
    ::close(fds[0]);
    pid_ = -1;
    missing_ = std::string("Xvfb could not start: ") + std::strerror(failed);
    return;
  }
  // The server writes its number once it accepts connections.
  std::string number;
  pollfd p{fds[0], POLLIN, 0};
  while (::poll(&p, 1, 10000) > 0) {
    char c;
    if (::read(fds[0], &c, 1) != 1 || c == '\n') break;
    number.push_back(c);
  }
  ::close(fds[0]);
  if (number.empty()) {
    kill();
    missing_ = "Xvfb started but named no display";
    return;
  }
  name_ = ":" + number;
}

VirtualDisplay::~VirtualDisplay() { kill(); }

void VirtualDisplay::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGTERM);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

}  // namespace tavorin::test
