#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "kit/Recording.hpp"

namespace tavorin {

// Camera moves over the picture. Zooms sit one at a time: two never overlap.
namespace Zooms {

inline constexpr double minScale = 1.1;
inline constexpr double maxScale = 5;
inline constexpr double scaleStep = 0.1;
inline constexpr double minLength = 0.2;
inline constexpr double defaultLength = 2;
inline constexpr double minRamp = 0.05;
inline constexpr double maxRamp = 4;
inline constexpr double rampStep = 0.05;
inline constexpr double rampShare = 0.4;
inline constexpr double springDecay = 5;
inline constexpr double springRate = 7;

// A stretch of the film's timeline, in seconds.
struct Span {
  double from = 0;
  double to = 0;
  bool operator==(const Span&) const = default;
};

// `v` held to 0 through 1, as every anchor coordinate is read.
double clamped01(double v);

// "z" and the first free number from 1 among the zooms', the timeline's and the
// stored segments' ids.
std::string nextId(const Recording& recording);

// The part of `from` to `to` that lies clear of every zoom but `id`, rounded to
// milliseconds; nothing when under a fifth of a second is left.
std::optional<Span> room(const Recording& recording, std::string_view id, double from, double to);

}  // namespace Zooms

}  // namespace tavorin
