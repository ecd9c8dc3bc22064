#pragma once
#include <filesystem>

namespace tavorin {

// The desktop's file manager, reached through xdg-open.
namespace FileManager {

// Opens a folder in the file manager and waits for the launcher to hand it over.
// Blocking: run it off the main actor. Throws the sentence a user reads when
// xdg-open is missing or refuses.
void reveal(const std::filesystem::path& folder);

}  // namespace FileManager

}  // namespace tavorin
