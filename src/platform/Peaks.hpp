#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/AudioFile.hpp"

namespace tavorin {

// The numbers a waveform is drawn from, cached for the life of the process.
namespace Peaks {

// A changed file misses by its size or its date, so nothing needs invalidating.
struct Key {
  std::string path;
  std::uintmax_t size = 0;
  std::int64_t modified = 0;  // nanoseconds of the file's modification time
  int buckets = 0;
  double from = 0;
  double seconds = -1;  // below 0: to the end of the file
  auto operator<=>(const Key&) const = default;
};

using Unreadable = UnreadableAudio;

Key key(const std::filesystem::path& path, int buckets, double from, std::optional<double> seconds);

// The largest absolute sample of each of `buckets` equal slices of the span.
// Safe from any thread. Throws Unreadable on a file the decoder refuses.
std::vector<float> peaks(const std::filesystem::path& path, int buckets, double from = 0,
                         std::optional<double> seconds = std::nullopt);

// The file's length in seconds; 0 when it has none.
double duration(const std::filesystem::path& path);

// Entries held now; the tests read it to see a hit.
std::size_t cached();

}  // namespace Peaks

}  // namespace tavorin
