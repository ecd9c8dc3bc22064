#include "kit/Music.hpp"

#include <algorithm>

namespace tavorin {

std::pair<double, double> Music::trim(double in, double out, double duration) {
  if (!(duration > 0)) return {0, 0};
  in = std::clamp(in, 0.0, duration);
  out = std::clamp(out, 0.0, duration);
  if (!(out > in)) out = std::min(in + 0.1, duration);
  // The mark lay at the file's end: take the tenth from before it instead.
  if (!(out > in)) in = std::max(out - 0.1, 0.0);
  return {in, out};
}

std::string Music::nextId(const Recording& recording) {
  const auto taken = recording.itemIds();
  for (int n = 1;; ++n) {
    std::string id = "m" + std::to_string(n);
    if (!taken.count(id)) return id;
  }
}

}  // namespace tavorin
