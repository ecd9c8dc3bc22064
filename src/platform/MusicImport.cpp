#include "platform/MusicImport.hpp"

#include <random>
#include <stdexcept>

#include "kit/Music.hpp"
#include "platform/AudioFile.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

std::string shortUnique() {
  static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  std::random_device device;
  std::string out;
  for (int i = 0; i < 6; ++i) out += digits[device() % 36];
  return out;
}

}  // namespace

double MusicImport::measure(const fs::path& source) {
  const std::string name = source.filename().string();
  std::error_code error;
  if (!fs::is_regular_file(source, error)) throw std::runtime_error("There is no file at " + source.string() + ".");
  double seconds = 0;
  try {
    seconds = AudioFile::duration(source);
  } catch (const UnreadableAudio&) {
    seconds = 0;
  }
  if (!(seconds > 0)) throw std::runtime_error(Music::noLength(name));
  return seconds;
}

MusicImport::Copied MusicImport::copyIn(const fs::path& production, const fs::path& source) {
  Copied copied;
  copied.seconds = measure(source);
  const fs::path folder = production / "music";
  const std::string own = source.filename().string();
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw std::runtime_error(Music::wouldNotCopy(own, error.message()));
  copied.name = own;
  while (fs::exists(folder / copied.name)) copied.name = Music::collisionName(own, shortUnique());
  fs::copy_file(source, folder / copied.name, fs::copy_options::none, error);
  if (error) {
    fs::remove(folder / copied.name);
    throw std::runtime_error(Music::wouldNotCopy(own, error.message()));
  }
  return copied;
}

}  // namespace tavorin
