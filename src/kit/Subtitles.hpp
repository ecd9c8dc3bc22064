#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/SubtitleStyle.hpp"

namespace tavorin {

// Reading a caption style: defaults, clamps and where the text sits.
// Sizes and margins are percentages of the picture height, so one style holds at
// any resolution.
namespace Subtitles {

enum class Position { bottom, center, top };
std::string name(Position);
std::optional<Position> parsePosition(std::string_view);

inline constexpr std::string_view houseFonts[] = {"Archivo", "IBM Plex Mono"};
inline constexpr std::string_view defaultFont = "Archivo";
inline constexpr double defaultSize = 5;
inline constexpr double defaultMargin = 5;
inline constexpr Position defaultPosition = Position::bottom;
inline constexpr double minSize = 2;
inline constexpr double maxSize = 14;
inline constexpr double minMargin = 0;
inline constexpr double maxMargin = 30;
inline constexpr int fallbackWidth = 1920;
inline constexpr int fallbackHeight = 1080;

using Style = std::optional<SubtitleStyle>;

// One caption on the output's clock.
struct Caption {
  double at = 0;
  double seconds = 0;
  std::string text;
};

bool burns(const Style& style);
std::string font(const Style& style);
bool isHouse(std::string_view name);
double clampSize(double v);
double size(const Style& style);
double clampMargin(double v);
double margin(const Style& style);
Position position(const Style& style);

// The anchor a named place means, for a margin and a size.
SubtitleStyle::Anchor preset(Position position, double margin, double size);
// Where captions sit when nothing says otherwise.
SubtitleStyle::Anchor home(const Style& style);
bool same(const SubtitleStyle::Anchor& a, const SubtitleStyle::Anchor& b);
// The anchor in force: a stored one, else a named place, else home.
SubtitleStyle::Anchor anchor(const Style& style);

// Pixel sizes of the face and its outline in a picture `pictureHeight` high.
int fontPixels(double size, double pictureHeight);
int outlinePixels(int fontPixels);

// "H:MM:SS.cc", hundredths cut down; negative times count as 0.
std::string assTime(double t);
// Caption text safe for a dialogue line: no override blocks, line breaks as \N.
std::string escape(std::string_view text);
// The "Style: Default,..." line for a picture of that size.
std::string styleLine(const Style& style, double width, double height);
// The whole ASS file; a size not above 0 takes the fallback picture.
std::string ass(const std::vector<Caption>& captions, const Style& style, double width, double height);

// The sentence that refuses a face name no style line can carry, or nothing.
std::optional<std::string> fontRefusal(std::string_view name);
// A file path escaped for ffmpeg's `subtitles=` filter inside a filter graph.
std::string filterPath(std::string_view path);

// "50% × 93%": the anchor in whole percent.
std::string placement(const Style& style);
// "Archivo · 5.0% · bottom": font, size, and the place's name when the anchor is one
// of the named places, else its placement.
std::string summary(const Style& style);

}  // namespace Subtitles
}  // namespace tavorin
