#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tavorin {

// What kind of media a dropped file is, from its extension and, failing that, from
// the first bytes of its content.
namespace ImportRouter {

enum class Kind { audio, video, still };
std::string word(Kind);
std::optional<Kind> kind(const std::filesystem::path& file);
// The sentence for a file that cannot come in, naming what the desktop calls its type.
std::string refusal(const std::filesystem::path& file);
// What the shared MIME database in `mimeDirs` calls files with this extension
// (".txt": "plain text document"); nothing when no database knows it.
std::optional<std::string> describe(const std::string& extension, const std::vector<std::filesystem::path>& mimeDirs);
// Where the desktop keeps its MIME database, the user's own first.
std::vector<std::filesystem::path> mimeDirs();

}  // namespace ImportRouter

}  // namespace tavorin
