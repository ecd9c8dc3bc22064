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

int fontPixels(double size, double pictureHeight) {
  return std::max(1, int(std::lround(pictureHeight * clampSize(size) / 100)));
}

int outlinePixels(int fontPixels) { return std::max(1, int(std::lround(fontPixels * 0.05))); }

std::string assTime(double t) {
  if (!(t > 0)) t = 0;
  // Whole hundredths first, so that the fraction is cut and never rounds up a second.
  const auto total = static_cast<long long>(std::floor(t * 100 + 1e-7));
  const long long hundredths = total % 100;
  const long long seconds = total / 100;
  return format("%lld:%02lld:%02lld.%02lld", seconds / 3600, seconds / 60 % 60, seconds % 60, hundredths);
}

std::string escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '{') out += '(';
    else if (c == '}') out += ')';
    else if (c == '\r') {
      if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
      out += "\\N";
    } else if (c == '\n') out += "\\N";
    else out += c;
  }
  return out;
}

std::string styleLine(const Style& style, double width, double height) {
  const int f = fontPixels(size(style), height);
  const int o = outlinePixels(f);
  const long m = std::lround(width * 0.08);
  // A comma or a line break would end the field early and shift every field after it.
  std::string face = font(style);
  std::ranges::replace_if(face, [](char c) { return c == ',' || c == '\n' || c == '\r'; }, ' ');
  return "Style: Default," + face + "," + std::to_string(f) +
         ",&H00FFFFFF,&H000000FF,&H00000000,&H80000000,0,0,0,0,100,100,0,0,1," + std::to_string(o) + ",0,5," +
         std::to_string(m) + "," + std::to_string(m) + "," + std::to_string(m) + ",1";
}

std::string ass(const std::vector<Caption>& captions, const Style& style, double width, double height) {
  if (!(width > 0)) width = fallbackWidth;
  if (!(height > 0)) height = fallbackHeight;
  std::string out =
      "[Script Info]\n; Written by Tavorin\nScriptType: v4.00+\nWrapStyle: 0\nScaledBorderAndShadow: yes\n"
      "PlayResX: " + std::to_string(std::lround(width)) + "\nPlayResY: " + std::to_string(std::lround(height));
  out += "\n\n[V4+ Styles]\nFormat: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, "
         "BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, "
         "Shadow, Alignment, MarginL, MarginR, MarginV, Encoding\n";
  out += styleLine(style, width, height);
  out += "\n\n[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n";
  const auto a = anchor(style);
  const std::string pos = "{\\pos(" + std::to_string(std::lround(a.x * width)) + "," +
                          std::to_string(std::lround(a.y * height)) + ")}";
  for (const auto& caption : captions) {
    out += "Dialogue: 0," + assTime(caption.at) + "," + assTime(caption.at + std::max(caption.seconds, 0.0)) +
           ",Default,,0,0,0,," + pos + escape(caption.text) + "\n";
  }
  return out;
}

std::optional<std::string> fontRefusal(std::string_view name) {
  if (name.find_first_of(",\n\r") == std::string_view::npos) return std::nullopt;
  return "A subtitle font's name can't hold a comma or a line break.";
}

std::string filterPath(std::string_view path) {
  // Two levels: the option value inside the filter, then the filter graph around it.
  std::string option;
  for (char c : path) {
    if (c == '\\' || c == '\'' || c == ':') option += '\\';
    option += c;
  }
  std::string graph;
  for (char c : option) {
    if (c == '\\' || c == '\'' || c == '[' || c == ']' || c == ',' || c == ';') graph += '\\';
    graph += c;
  }
  return graph;
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
