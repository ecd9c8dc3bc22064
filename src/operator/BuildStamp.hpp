#pragma once
#include <filesystem>
#include <functional>
#include <optional>

namespace tavorin {

// Tells a client from a source checkout that the studio answering it was built
// from older sources.
namespace BuildStamp {

// The checkout a binary was built in: the nearest folder above the binary that is a
// CMake build folder (it holds CMakeCache.txt), whose parent holds the top
// CMakeLists.txt and src/. An installed binary has none. `exists` is the
// file-system test, passed in so the logic runs without a real tree.
std::optional<std::filesystem::path> checkoutRoot(
    const std::filesystem::path& binary,
    const std::function<bool(const std::filesystem::path&)>& exists =
        [](const std::filesystem::path& p) { return std::filesystem::exists(p); });

// The running program's own path, symlinks resolved.
std::filesystem::path currentExecutable();

}  // namespace BuildStamp

}  // namespace tavorin
