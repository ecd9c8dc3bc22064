#pragma once
#include <filesystem>
#include <optional>
#include <string>

namespace tavorin {

// The desktop's folder chooser, which stands in for a save panel: zenity's, a child
// program, so the studio's own window keeps drawing while it is up.
namespace FolderChooser {

// zenity on PATH, or nothing when it is not installed.
std::optional<std::filesystem::path> program();

// Blocks until the person answers: call it off the main actor. The folder chosen, or
// nothing when they cancelled. Throws the sentence to show when no chooser can be
// raised or it fails.
std::optional<std::filesystem::path> ask(const std::string& title, const std::filesystem::path& start);
std::optional<std::filesystem::path> ask(const std::filesystem::path& program, const std::string& title,
                                         const std::filesystem::path& start);

// Closes every chooser still up, each answering as if cancelled: a studio that quits
// does not wait on a panel nobody will answer.
void closeAll();

}  // namespace FolderChooser

}  // namespace tavorin
