#pragma once
#include <filesystem>
#include <optional>
#include <string>

namespace tavorin {

// What kind of media a dropped file is, from its extension and, failing that, from
// the first bytes of its content.
namespace ImportRouter {

enum class Kind { audio, video, still };
std::string word(Kind);
std::optional<Kind> kind(const std::filesystem::path& file);
// The refusal when importing a file of that kind is not possible.
std::string refusal(const std::filesystem::path& file);

}  // namespace ImportRouter

}  // namespace tavorin
