#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// Camera moves over the picture. Zooms sit one at a time: two never overlap. The export
// turns them into one zoompan filter; the footage never holds them.
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
inline constexpr double smoothRamp = 0.6;
inline constexpr double springRamp = 0.45;

enum class Style { smooth, spring };
std::string name(Style);

// What the picture shows at one moment: how close, and the middle of the window.
struct Frame {
  double scale = 1;
  double x = 0.5;
  double y = 0.5;
  bool operator==(const Frame&) const = default;
};

// A stretch of the film's timeline, in seconds.
struct Span {
  double from = 0;
  double to = 0;
  bool operator==(const Span&) const = default;
};

// `v` held to 0 through 1, as every anchor coordinate is read.
double clamped01(double v);
double clampScale(double v);
Style style(const Zoom& zoom);
// Seconds the move takes at each end: the stored or the style's own ramp, never more
// than rampShare of the zoom.
double ramp(const Zoom& zoom);
// The curve from 0 to 1; a spring overshoots and settles.
double eased(double t, Style style);
double scale(const Zoom& zoom, double t);
// The frame held inside the picture.
Frame window(double scale, double x, double y);

std::vector<Zoom> list(const Recording& recording);
std::optional<std::vector<Zoom>> stored(const Recording& recording);
const Zoom* zoom(std::string_view id, const Recording& recording);
const Zoom* active(double t, const Recording& recording);
Frame frame(double t, const Recording& recording);

// "z" and the first free number from 1 among the zooms', the timeline's and the
// stored segments' ids.
std::string nextId(const Recording& recording);

// The part of `from` to `to` that lies clear of every zoom but `id`: it starts after any
// zoom begun before `from` and stops at the next one. Rounded to milliseconds; nothing
// when under a fifth of a second is left.
std::optional<Span> room(const Recording& recording, std::string_view id, double from, double to);

// Each edit answers missing or false, leaving the recording as it was, when it cannot act.
std::optional<std::string> add(Recording& recording, double at, double length, double scale,
                               std::optional<Zoom::Anchor> anchor, std::optional<std::string> style);
std::optional<std::string> duplicate(Recording& recording, std::string_view id, std::optional<double> at);
bool remove(Recording& recording, std::string_view id);
bool move(Recording& recording, std::string_view id, double to);
bool resize(Recording& recording, std::string_view id, std::optional<double> from, std::optional<double> to);
bool setScale(Recording& recording, std::string_view id, double scale);
bool setAnchor(Recording& recording, std::string_view id, double x, double y);
bool setStyle(Recording& recording, std::string_view id, const std::string& style);
// A missing value removes the stored ramp.
bool setRamp(Recording& recording, std::string_view id, std::optional<double> seconds);
// Follows the cut: ends at or after `from` move by `by`.
void slide(Recording& recording, double from, double by);

// "2.00× smooth at 50% × 50%"
std::string summary(const Zoom& zoom);
// The zoompan filter the export runs, with `clock` the expression of the film's time;
// missing when no zoom is long enough or the picture has no size.
std::optional<std::string> filter(const std::vector<Zoom>& zooms, int width, int height, double fps,
                                  const std::string& clock);
// The easing as an ffmpeg expression on `p`.
std::string curve(const std::string& p, Style style);
// A frame rate as ffmpeg reads it: whole numbers bare, others to three places.
std::string rate(double fps);

}  // namespace Zooms

}  // namespace tavorin
