#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tavorin {

// The faces this machine can draw with, through fontconfig, and the studio's own
// house faces, which ship with it rather than with the system.
namespace FontCatalog {

// The face drawn with when a house face is missing.
inline constexpr const char* fallbackFace = "DejaVu Sans";

// Where the house faces lie: $TAVORIN_FONTS, else share/tavorin/fonts beside an
// installed program, else the checkout it was built from. Nothing when none holds them.
std::optional<std::filesystem::path> houseFolder();

// Adds the house folder to this process's fontconfig, once. True when the folder was
// there and fontconfig took it.
bool registerHouseFaces();

// Whether a family of that name is installed (or registered), ignoring case.
bool has(const std::string& family);

// Every family the machine has, each once: the house faces first, then the rest in
// alphabetical order. A filter keeps names that contain it, ignoring case.
std::vector<std::string> families(const std::string& filter = "");

// What the `fonts` check reports: each house face found or not, and the note that
// says what is drawn instead when one is missing.
struct Report {
  std::optional<std::filesystem::path> folder;
  std::vector<std::pair<std::string, bool>> faces;
  std::optional<std::string> note;
};
Report report();

}  // namespace FontCatalog

}  // namespace tavorin
