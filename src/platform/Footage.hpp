#pragma once
#include <chrono>
#include <filesystem>
#include <optional>

namespace tavorin {

// Questions put to a film file. Each answer is missing for a file that will not say:
// not media, cut short, not a plain file, or too slow to answer. No question takes
// much more than the deadline, and none writes to the file.
namespace Footage {

struct Size {
  int width = 0;
  int height = 0;
  bool operator==(const Size&) const = default;
};

// Everything one opening of the file learns.
struct Answer {
  std::optional<double> seconds;
  std::optional<Size> size;
  std::optional<double> rate;
  std::optional<bool> hasAudio;
  bool operator==(const Answer&) const = default;
};

inline constexpr std::chrono::milliseconds deadline{800};

Answer probe(const std::filesystem::path& file, std::chrono::milliseconds within = deadline);

std::optional<double> seconds(const std::filesystem::path& file);
std::optional<Size> size(const std::filesystem::path& file);
std::optional<double> rate(const std::filesystem::path& file);
std::optional<bool> hasAudio(const std::filesystem::path& file);

}  // namespace Footage

}  // namespace tavorin
