#pragma once
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kit/Project.hpp"
#include "kit/RecordingStore.hpp"

namespace tavorin {

// A new production refused; what() is the sentence the user reads.
struct SeedError : std::runtime_error {
  using std::runtime_error::runtime_error;
  static SeedError duplicate(const std::string& slug);
  static SeedError noPrompt();
};

// New productions: from a sentence, blank, or the demo on a first launch.
namespace Seed {

struct Result {
  std::filesystem::path dir;
  std::string slug;
  std::string version;
};

// Lower case, letters and numbers kept, every other run a single "-", none at the ends;
// "untitled" when nothing is left.
std::string slug(std::string_view text);

// Makes <project>/recordings/<slug> with its first version and an empty blocking.stage.
// A prompt, kept byte for byte, becomes the production's origin; a blank one is
// refused. Throws SeedError for a slug that is taken.
Result recording(const Project& project, const std::string& slug, const std::optional<std::string>& title,
                 const std::optional<std::string>& prompt, const std::optional<std::string>& agent,
                 Clock::time_point now = Clock::now());

// Finds examples/halden-demo: in the resource folder, then in the working directory or
// any folder above it, then above the executable (a checkout holds it at its top, an
// installed build at <prefix>/share/tavorin). `executable` should have its symlinks
// resolved. A candidate counts when `exists` says it holds manifest.json.
std::optional<std::filesystem::path> demoFixture(
    const std::optional<std::filesystem::path>& resources, const std::filesystem::path& workingDirectory,
    const std::filesystem::path& executable,
    const std::function<bool(const std::filesystem::path&)>& exists = nullptr);

// What the user hands their own agent to author a seeded production.
std::string handoff(const std::filesystem::path& dir, const std::string& prompt);

}  // namespace Seed

}  // namespace tavorin
