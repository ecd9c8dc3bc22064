#include "kit/Zooms.hpp"

#include <algorithm>
#include <cmath>

namespace tavorin {

double Zooms::clamped01(double v) { return std::clamp(v, 0.0, 1.0); }

std::string Zooms::nextId(const Recording& recording) {
  auto taken = recording.itemIds();
  if (recording.zooms)
    for (const auto& zoom : *recording.zooms) taken.insert(zoom.id);
  if (recording.segments)
    for (const auto& segment : *recording.segments) taken.insert(segment.id);
  for (int n = 1;; ++n) {
    std::string id = "z" + std::to_string(n);
    if (!taken.count(id)) return id;
  }
}

std::optional<Zooms::Span> Zooms::room(const Recording& recording, std::string_view id, double from, double to) {
  // The tenth of a millisecond of slack lets a zoom butt against its neighbour.
  constexpr double slack = 0.0001;
  const double f = std::max(from, 0.0);
  double lower = 0;
  std::optional<double> upper;
  if (recording.zooms) {
    for (const auto& other : *recording.zooms) {
      if (other.id == id) continue;
      if (other.to <= f + slack) lower = std::max(lower, other.to);
      if (other.from >= f - slack) upper = upper ? std::min(*upper, other.from) : other.from;
    }
  }
  const double start = std::max(f, lower);
  const double end = upper ? std::min(to, *upper) : to;
  if (end - start < 0.1999) return std::nullopt;
  auto milliseconds = [](double v) { return std::round(v * 1000) / 1000; };
  return Span{milliseconds(start), milliseconds(end)};
}

}  // namespace tavorin
