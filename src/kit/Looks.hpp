#pragma once
#include <optional>
#include <string>
#include <string_view>
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

struct Preset {
  std::string id;
  std::string title;
  bool operator==(const Preset&) const = default;
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

// "Slate · 6% padding · 2.0% corner · shadow", or "off".
std::string summary(const Stored& look);

}  // namespace Looks
}  // namespace tavorin
