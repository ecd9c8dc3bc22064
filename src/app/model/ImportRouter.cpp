#include "app/model/ImportRouter.hpp"

#include <algorithm>
#include <array>
#include <fstream>
#include <set>

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

std::string ImportRouter::refusal(const fs::path& file) {
  return file.filename().string() +
         " can't be imported yet: bringing footage, audio and stills into a production is not part of this build.";
}

}  // namespace tavorin
