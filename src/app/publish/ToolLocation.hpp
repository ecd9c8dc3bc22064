#pragma once
#include <filesystem>
#include <string>

namespace tavorin {

// Where a command-line tool the studio runs is found: under ~/.local/bin first, where
// `uv tool` and `pipx` put them, then on PATH. Answers the ~/.local/bin path when it is
// in neither, so that a refusal can name where it was looked for.
std::filesystem::path locateTool(const std::string& name);
bool isExecutable(const std::filesystem::path& path);

}  // namespace tavorin
