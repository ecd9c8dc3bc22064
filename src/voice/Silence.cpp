#include "voice/Silence.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "kit/VoiceSplit.hpp"
#include "platform/FFmpegProgram.hpp"

extern char** environ;

namespace tavorin {

std::string Silence::filter() {
  char buffer[96];
  std::snprintf(buffer, sizeof buffer, "silencedetect=noise=%gdB:d=%g", VoiceSplit::noiseFloor,
                VoiceSplit::shortestPause);
  return buffer;
}

std::optional<std::string> Silence::log(const std::filesystem::path& file) {
  auto ffmpeg = FFmpegProgram::locate();
  if (!ffmpeg) return std::nullopt;
  return log(file, *ffmpeg);
}

std::optional<std::string> Silence::log(const std::filesystem::path& file, const std::filesystem::path& ffmpeg) {
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) return std::nullopt;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  // Nothing comes on standard output with `-f null`; it goes nowhere rather than to
  // a pipe nobody would drain.
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 2);
  const std::string program = ffmpeg.string(), input = file.string(), graph = filter();
  std::vector<std::string> args{program, "-hide_banner", "-nostats", "-i", input, "-af", graph, "-f", "null", "-"};
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFds[1]);
  if (spawned != 0) {
    ::close(pipeFds[0]);
    return std::nullopt;
  }
  std::string text;
  char buffer[4096];
  while (true) {
    ssize_t n = ::read(pipeFds[0], buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
  }
  ::close(pipeFds[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return text;
}

}  // namespace tavorin
