#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "kit/Look.hpp"

namespace tavorin {

// The preset grounds and the reading of a stored look, shared by the monitor and
// the export so that what is seen is what is burned.
namespace Looks {

inline constexpr std::string_view defaultPreset = "slate";
inline constexpr double defaultPadding = 0.06;
inline constexpr double defaultRadius = 0.02;
inline constexpr bool defaultShadow = true;
inline constexpr std::string_view defaultColor = "#101216";
inline constexpr double minPadding = 0;
inline constexpr double maxPadding = 0.25;
inline constexpr double paddingStep = 0.01;
inline constexpr double minRadius = 0;
inline constexpr double maxRadius = 0.12;
inline constexpr double radiusStep = 0.005;
inline constexpr double shadowBlur = 0.035;
inline constexpr double shadowDrop = 0.012;
inline constexpr double shadowAlpha = 0.55;

struct Stop {
  std::string hex;
  double at = 0;
  bool operator==(const Stop&) const = default;
};

struct Gradient {
  std::vector<Stop> stops;
  double angle = 0;  // degrees
  bool operator==(const Gradient&) const = default;
};

// A soft pool of colour over the base; x, y are fractions of the rectangle.
struct Field {
  std::string hex;
  double x = 0.5;
  double y = 0.5;
  double radius = 1;
  double strength = 1;
  bool operator==(const Field&) const = default;
};

struct Fields {
  std::string base;
  std::vector<Field> fields;
  double grain = 0;
  double grainSpan = 0.22;
  int grainSamples = 220;
  std::uint64_t grainSeed = 0x9e3779b97f4a7c15ull;
  double vignette = 0;
  double vignetteStart = 0;
  double vignetteEnd = 1;
  bool operator==(const Fields&) const = default;
};

using Wallpaper = std::variant<Gradient, Fields>;

struct Preset {
  std::string id;
  std::string title;
  Wallpaper wallpaper;
  bool operator==(const Preset&) const = default;
};

// A rectangle in pixels, or fractions of them.
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const Rect&) const = default;
};

// A point in unit coordinates of a rectangle.
struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

struct RGB {
  double r = 0;
  double g = 0;
  double b = 0;
  bool operator==(const RGB&) const = default;
};

// What a look's background resolves to. `value` is the preset's id, the colour as
// written, or the image's path.
struct Ground {
  enum class Kind { preset, color, image };
  Kind kind = Kind::preset;
  std::string value;
  bool operator==(const Ground&) const = default;
};

using Stored = std::optional<Look>;

// The look a production gets when it is first turned on.
Look fresh();

const std::vector<Preset>& presets();
// The preset of an id, or the first one.
const Preset& named(std::string_view id);

bool isOn(const Stored& look);
double padding(const Stored& look);
double radius(const Stored& look);
bool shadow(const Stored& look);

// The preset a look resolves to; none when the background is a colour or an image.
std::optional<Preset> preset(const Stored& look);
// Image first, then colour, then preset; nothing at all means the default preset.
Ground ground(const Stored& look);
// The ground in words: the preset's title, the colour in capitals, or the image's file name.
std::string groundSays(const Stored& look);

// The share of the frame that the picture fills.
double fraction(const Stored& look);
// Where the picture sits in a frame, in fractions of pixels; the whole frame when off.
Rect inset(double width, double height, const Stored& look);
// The corner radius in pixels; 0 for a look that is off or missing.
double corner(double width, double height, const Stored& look);
// `inset` in whole even pixels, as the encoder's chroma planes demand.
Rect pixels(double width, double height, const Stored& look);

// The start and end of a gradient of `angle` degrees, in unit coordinates.
std::pair<Point, Point> line(double angle);
// "#RRGGBB" of components clamped to 0 through 1.
std::string hex(double r, double g, double b);
// "#RGB" or "#RRGGBB"; the "#" is required.
std::optional<RGB> rgb(std::string_view hex);
bool isColor(std::string_view text);

// "Slate · 6% padding · 2.0% corner · shadow", or "off".
std::string summary(const Stored& look);

}  // namespace Looks
}  // namespace tavorin
