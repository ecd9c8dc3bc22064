#include "kit/Subtitles.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "base/Text.hpp"

namespace tavorin::Subtitles {

namespace {

double clamp01(double v) { return std::clamp(v, 0.0, 1.0); }

std::string format(const char* pattern, auto... args) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, pattern, args...);
  return buffer;
}

}  // namespace

std::string name(Position position) {
  switch (position) {
    case Position::bottom: return "bottom";
    case Position::center: return "center";
    case Position::top: return "top";
  }
  return "bottom";
}

std::optional<Position> parsePosition(std::string_view text) {
  for (auto p : {Position::bottom, Position::center, Position::top})
    if (name(p) == text) return p;
  return std::nullopt;
}

bool burns(const Style& style) { return style && style->burn.value_or(false); }

std::string font(const Style& style) {
  std::string chosen = style && style->font ? std::string(Text::trimSpace(*style->font)) : std::string();
  return chosen.empty() ? std::string(defaultFont) : chosen;
}

bool isHouse(std::string_view name) {
  return std::ranges::any_of(houseFonts, [&](std::string_view f) { return Text::equalsIgnoringCase(f, name); });
}

double clampSize(double v) { return std::clamp(v, minSize, maxSize); }
double size(const Style& style) { return clampSize(style && style->size ? *style->size : defaultSize); }
double clampMargin(double v) { return std::clamp(v, minMargin, maxMargin); }
double margin(const Style& style) { return clampMargin(style && style->margin ? *style->margin : defaultMargin); }

Position position(const Style& style) {
  if (style && style->position)
    if (auto p = parsePosition(*style->position)) return *p;
  return defaultPosition;
}

SubtitleStyle::Anchor preset(Position position, double margin, double size) {
  const double d = (margin + size / 2) / 100;
  switch (position) {
    case Position::bottom: return {0.5, clamp01(1 - d)};
    case Position::center: return {0.5, 0.5};
    case Position::top: return {0.5, clamp01(d)};
  }
  return {0.5, clamp01(1 - d)};
}

SubtitleStyle::Anchor home(const Style& style) {
  const double s = style && style->size ? clampSize(*style->size) : defaultSize;
  return {0.5, clamp01(1 - (s / 2 + 5) / 100)};
}

bool same(const SubtitleStyle::Anchor& a, const SubtitleStyle::Anchor& b) {
  return std::abs(a.x - b.x) <= 0.0005 && std::abs(a.y - b.y) <= 0.0005;
}

SubtitleStyle::Anchor anchor(const Style& style) {
  if (style && style->anchor) return {clamp01(style->anchor->x), clamp01(style->anchor->y)};
  if (style && (style->position || style->margin)) return preset(position(style), margin(style), size(style));
  return home(style);
}

std::string placement(const Style& style) {
  const auto a = anchor(style);
  return format("%.0f%% × %.0f%%", a.x * 100, a.y * 100);
}

std::string summary(const Style& style) {
  const auto a = anchor(style);
  std::string place = placement(style);
  for (auto p : {Position::bottom, Position::center, Position::top}) {
    if (same(a, preset(p, margin(style), size(style)))) {
      place = name(p);
      break;
    }
  }
  return format("%s · %.1f%% · %s", font(style).c_str(), size(style), place.c_str());
}

}  // namespace tavorin::Subtitles
