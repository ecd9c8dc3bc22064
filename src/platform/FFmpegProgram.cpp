#include "platform/FFmpegProgram.hpp"

#include <unistd.h>

#include <sstream>

#include "platform/TavorinPaths.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

bool runnable(const fs::path& file) { return ::access(file.c_str(), X_OK) == 0 && fs::is_regular_file(file); }

}  // namespace

std::optional<fs::path> FFmpegProgram::locate() {
  std::error_code ec;
  fs::path self = fs::read_symlink("/proc/self/exe", ec);
  if (!ec && runnable(self.parent_path() / "ffmpeg")) return self.parent_path() / "ffmpeg";
  for (const char* place : {"/usr/local/bin/ffmpeg", "/usr/bin/ffmpeg"})
    if (runnable(place)) return fs::path(place);
  std::stringstream path(Environment::value("PATH").value_or(""));
  std::string dir;
  while (std::getline(path, dir, ':'))
    if (!dir.empty() && runnable(fs::path(dir) / "ffmpeg")) return fs::path(dir) / "ffmpeg";
  return std::nullopt;
}

}  // namespace tavorin
