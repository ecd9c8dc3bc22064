#pragma once
#include <filesystem>
#include <string>

namespace tavorin {

// Bringing an audio file into a production's music/ folder, so that the production
// survives the move of the source.
namespace MusicImport {

struct Copied {
  std::string name;  // the file's name in music/
  double seconds = 0;
};

// The file's length; throws the sentence a user reads when it is missing, not
// audio, or has none.
double measure(const std::filesystem::path& source);

// Measures `source`, creates music/ under `production` when missing, and copies the
// file in under its own name, or a unique one when that is taken. Blocking: run it
// off the main actor. Throws a sentence and leaves nothing behind on failure.
Copied copyIn(const std::filesystem::path& production, const std::filesystem::path& source);

}  // namespace MusicImport

}  // namespace tavorin
