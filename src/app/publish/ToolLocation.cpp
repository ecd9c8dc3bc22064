#include "app/publish/ToolLocation.hpp"

#include <unistd.h>

#include <cstdlib>

#include "base/Text.hpp"

namespace tavorin {

bool isExecutable(const std::filesystem::path& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(path, ec) && ::access(path.c_str(), X_OK) == 0;
}

std::filesystem::path locateTool(const std::string& name) {
  const char* home = std::getenv("HOME");
  const std::filesystem::path local = std::filesystem::path(home ? home : "") / ".local" / "bin" / name;
  if (isExecutable(local)) return local;
  if (const char* path = std::getenv("PATH")) {
    for (const auto folder : Text::split(path, ':')) {
      if (folder.empty()) continue;
      const std::filesystem::path candidate = std::filesystem::path(std::string(folder)) / name;
      if (isExecutable(candidate)) return candidate;
    }
  }
  return local;
}

}  // namespace tavorin
