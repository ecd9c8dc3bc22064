#pragma once
#include <filesystem>
#include <optional>
#include <string>

namespace tavorin {

// Reads of the process environment, in one place so that tests can see what is read.
namespace Environment {
// The value of a variable, or nothing when it is not set at all.
std::optional<std::string> value(const char* name);
// True when the variable is set, whatever its value (also empty).
bool present(const char* name);
// The user's home folder: $HOME, else the password database.
std::filesystem::path home();
// "~" and "~/..." against the home folder; every other text unchanged.
std::filesystem::path expandTilde(const std::string& text);
}  // namespace Environment

// Where things live on disk. Evaluated on every call, so a changed environment is seen.
namespace TavorinPaths {
// $XDG_DATA_HOME when set and absolute, else ~/.local/share: the desktop's
// per-user data folder, where the studio keeps its support folder.
std::filesystem::path applicationSupport();
// $TAVORIN_ROOT (non-empty, tilde-expanded), else ~/Tavorin.
std::filesystem::path productionsRoot();
// $TAVORIN_SUPPORT (non-empty, tilde-expanded), else applicationSupport()/Tavorin.
std::filesystem::path supportDir();
}  // namespace TavorinPaths

}  // namespace tavorin
