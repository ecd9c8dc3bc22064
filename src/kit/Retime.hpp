#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "kit/Recording.hpp"

namespace tavorin {

// Small edits of one item's start. None of them ripples.
namespace Retime {

// Where a dragged item lands, and the time it snapped to, if any.
struct Snap {
  double start = 0;
  std::optional<double> snapped;
  bool operator==(const Snap&) const = default;
};

// The first item with the id starts at `to` (never below 0); an unknown id changes nothing.
Recording move(Recording recording, std::string_view id, double to);

// A copy of the first item with the id, placed at `at` under a fresh id, without
// audio or its receipt and not approved, appended to the timeline.
std::optional<std::pair<Recording, std::string>> duplicate(const Recording& recording, std::string_view id,
                                                           double at);

// The nearest of the other lines' edges, the other items' starts, the whole second
// and 0, when it lies within the window.
Snap snap(const Recording& recording, std::string_view moving, double to, double within);

// Seconds covered by `pixels` at the given zoom; 0 when the zoom is not above 0.
double snapWindow(double pxPerSecond, double pixels);

// The id with the first free letter a to z, then "-2", "-3", ...
std::string nextId(std::string_view like, const Recording& recording);

}  // namespace Retime

}  // namespace tavorin
