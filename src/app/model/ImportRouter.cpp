#include "app/model/ImportRouter.hpp"

#include <algorithm>
#include <array>
#include <fstream>
#include <cstdlib>
#include <set>
#include <vector>

namespace tavorin {

namespace fs = std::filesystem;

std::string ImportRouter::word(Kind k) {
  switch (k) {
    case Kind::audio: return "audio";
    case Kind::video: return "video";
    case Kind::still: return "still";
  }
  return "audio";
}

namespace {

std::optional<ImportRouter::Kind> byExtension(std::string ext) {
  using K = ImportRouter::Kind;
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  static const std::set<std::string> audio{".wav", ".wave", ".mp3", ".m4a", ".aac", ".aif", ".aiff", ".flac",
                                           ".ogg", ".oga", ".opus", ".caf"};
  static const std::set<std::string> video{".mov", ".mp4", ".m4v", ".mkv", ".webm", ".avi", ".mpg", ".mpeg"};
  static const std::set<std::string> still{".png", ".jpg", ".jpeg", ".gif", ".heic", ".tif", ".tiff", ".webp", ".bmp"};
  if (audio.count(ext)) return K::audio;
  if (video.count(ext)) return K::video;
  if (still.count(ext)) return K::still;
  return std::nullopt;
}

// The content type from the file's signature, for a name that says nothing.
std::optional<ImportRouter::Kind> bySignature(const fs::path& file) {
  using K = ImportRouter::Kind;
  std::ifstream in(file, std::ios::binary);
  std::array<unsigned char, 16> b{};
  in.read(reinterpret_cast<char*>(b.data()), b.size());
  const auto n = in.gcount();
  if (n < 4) return std::nullopt;
  auto at = [&](std::size_t i, const char* s) { return std::equal(s, s + std::char_traits<char>::length(s), b.begin() + i); };
  if (at(0, "RIFF") && n >= 12 && at(8, "WAVE")) return K::audio;
  if (at(0, "ID3") || (b[0] == 0xFF && (b[1] & 0xE0) == 0xE0)) return K::audio;
  if (at(0, "fLaC") || at(0, "OggS") || at(0, "FORM")) return K::audio;
  if (n >= 12 && at(4, "ftyp")) return at(8, "M4A ") ? K::audio : K::video;
  if (b[0] == 0x1A && b[1] == 0x45 && b[2] == 0xDF && b[3] == 0xA3) return K::video;  // Matroska, WebM
  if (b[0] == 0x89 && at(1, "PNG")) return K::still;
  if (b[0] == 0xFF && b[1] == 0xD8) return K::still;
  if (at(0, "GIF8")) return K::still;
  return std::nullopt;
}

}  // namespace

std::optional<ImportRouter::Kind> ImportRouter::kind(const fs::path& file) {
  std::error_code ec;
  if (fs::is_directory(file, ec)) return std::nullopt;
  if (auto k = byExtension(file.extension().string())) return k;
  if (fs::is_regular_file(file, ec)) return bySignature(file);
  return std::nullopt;
}

std::optional<std::string> ImportRouter::describe(const std::string& extension, const std::vector<fs::path>& mimeDirs) {
  if (extension.size() < 2 || extension[0] != '.') return std::nullopt;
  std::string glob = "*" + extension;
  std::transform(glob.begin(), glob.end(), glob.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const auto& dir : mimeDirs) {
    // globs2 lists weight:type:glob, heaviest first: the first match is the one the desktop uses.
    std::ifstream globs(dir / "globs2");
    std::string line, type;
    while (type.empty() && std::getline(globs, line)) {
      const auto first = line.find(':'), second = line.find(':', first + 1);
      if (line.empty() || line[0] == '#' || second == std::string::npos) continue;
      const std::string pattern = line.substr(second + 1, line.find(':', second + 1) - second - 1);
      if (pattern == glob) type = line.substr(first + 1, second - first - 1);
    }
    if (type.empty() || type.find("..") != std::string::npos) continue;
    std::ifstream xml(dir / (type + ".xml"));
    while (std::getline(xml, line)) {
      // The untranslated comment is the one without a language.
      const auto open = line.find("<comment>"), close = line.find("</comment>");
      if (open != std::string::npos && close != std::string::npos && close > open)
        return line.substr(open + 9, close - open - 9);
    }
  }
  return std::nullopt;
}

std::vector<fs::path> ImportRouter::mimeDirs() {
  std::vector<fs::path> dirs;
  const char* home = std::getenv("XDG_DATA_HOME");
  if (home && *home) dirs.push_back(fs::path(home) / "mime");
  const char* data = std::getenv("XDG_DATA_DIRS");
  std::string list = data && *data ? data : "/usr/local/share:/usr/share";
  for (std::size_t at = 0; at <= list.size();) {
    const auto colon = std::min(list.find(':', at), list.size());
    if (colon > at) dirs.push_back(fs::path(list.substr(at, colon - at)) / "mime");
    at = colon + 1;
  }
  return dirs;
}

std::string ImportRouter::refusal(const fs::path& file) {
  const std::string extension = file.extension().string();
  std::string description = describe(extension, mimeDirs()).value_or(extension.empty() ? "no file type" : extension);
  return "can't use " + file.filename().string() + " — " + description + ". Tavorin takes video, audio and stills.";
}

}  // namespace tavorin
