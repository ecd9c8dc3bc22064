#include "platform/FileManager.hpp"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

extern char** environ;

namespace tavorin {

void FileManager::reveal(const std::filesystem::path& folder) {
  std::error_code ec;
  if (!std::filesystem::is_directory(folder, ec))
    throw std::runtime_error("there is no folder at " + folder.string() + " to show");
  std::string program = "xdg-open", target = folder.string();
  char* argv[] = {program.data(), target.data(), nullptr};
  pid_t pid = 0;
  const int spawned = ::posix_spawnp(&pid, "xdg-open", nullptr, nullptr, argv, environ);
  if (spawned == ENOENT)
    throw std::runtime_error("xdg-open is not installed, so the folder cannot be shown. It is at " + target);
  if (spawned != 0)
    throw std::runtime_error("xdg-open would not start (" + std::string(std::strerror(spawned)) +
                             "), so the folder cannot be shown. It is at " + target);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) return;
  // posix_spawnp reports a program it could not run as an exit of 127 from the child.
  if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
    throw std::runtime_error("xdg-open is not installed, so the folder cannot be shown. It is at " + target);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("the file manager would not open " + target + " (xdg-open ended with status " +
                             std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + ")");
}

}  // namespace tavorin
