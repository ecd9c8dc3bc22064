#include "kit/Looks.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace tavorin::Looks {

Look fresh() {
  Look look;
  look.on = true;
  look.padding = defaultPadding;
  look.radius = defaultRadius;
  look.shadow = defaultShadow;
  return look;
}

const std::vector<Preset>& presets() {
  auto fields = [](std::string base, double grain, double vignette, std::vector<Field> pools) {
    Fields f;
    f.base = std::move(base);
    f.fields = std::move(pools);
    f.grain = grain;
    f.vignette = vignette;
    f.vignetteStart = 0.34;
    f.vignetteEnd = 1.05;
    return f;
  };
  static const std::vector<Preset> table = {
      {"slate", "Slate", Gradient{{{"#0C0E11", 0}, {"#161A20", 0.55}, {"#1B2028", 1}}, 160}},
      {"graphite", "Graphite", Gradient{{{"#0E0E0E", 0}, {"#232323", 1}}, 180}},
      {"ash", "Ash", Gradient{{{"#1E2126", 0}, {"#2E333A", 1}}, 155}},
      {"ember", "Ember", Gradient{{{"#150D0A", 0}, {"#2A1710", 0.6}, {"#33200F", 1}}, 145}},
      {"clay", "Clay", Gradient{{{"#1A1512", 0}, {"#38291D", 1}}, 150}},
      {"dusk", "Dusk", Gradient{{{"#0D1022", 0}, {"#221D45", 0.6}, {"#2C2350", 1}}, 150}},
      {"tide", "Tide", Gradient{{{"#06131A", 0}, {"#0F3346", 1}}, 155}},
      {"moss", "Moss", Gradient{{{"#091210", 0}, {"#17301F", 1}}, 165}},
      {"field-dusk", "Dusk",
       fields("#141A2E", 0.055, 0.42,
              {{"#2B3F7A", 0.18, 0.12, 0.95, 0.9},
               {"#55407F", 0.72, 0.08, 0.8, 0.75},
               {"#E8A05C", 0.58, 1.02, 0.85, 0.72},
               {"#C9657A", 0.9, 0.78, 0.6, 0.5},
               {"#1B2440", 0.02, 0.95, 0.7, 0.9}})},
      {"field-ocean", "Ocean",
       fields("#04141C", 0.055, 0.42,
              {{"#0E5E6B", 0.28, 0, 0.95, 0.95},
               {"#17A2A0", 0.82, 0.16, 0.62, 0.6},
               {"#06313F", 0.5, 1, 1, 1},
               {"#1D7F8F", 0.06, 0.68, 0.5, 0.45}})},
      {"field-green-gold", "Green-gold",
       fields("#121A10", 0.05, 0.45,
              {{"#2E4A22", 0.12, 0.1, 0.9, 0.95},
               {"#6E8A2E", 0.46, 0.42, 0.7, 0.6},
               {"#D9A82F", 0.92, 0.92, 0.75, 0.62},
               {"#1A2B1B", 0.88, 0.04, 0.6, 0.9}})},
  };
  return table;
}

const Preset& named(std::string_view id) {
  const auto& table = presets();
  auto found = std::ranges::find(table, id, &Preset::id);
  return found == table.end() ? table.front() : *found;
}

bool isOn(const Stored& look) { return look && look->on.value_or(false); }

double padding(const Stored& look) {
  return std::clamp(look && look->padding ? *look->padding : defaultPadding, minPadding, maxPadding);
}

double radius(const Stored& look) {
  return std::clamp(look && look->radius ? *look->radius : defaultRadius, minRadius, maxRadius);
}

bool shadow(const Stored& look) { return look && look->shadow ? *look->shadow : defaultShadow; }

std::optional<Preset> preset(const Stored& look) {
  const auto* background = look && look->background ? &*look->background : nullptr;
  if (background && background->preset) return named(*background->preset);
  if (background && (background->image || background->color)) return std::nullopt;
  return named(defaultPreset);
}

Ground ground(const Stored& look) {
  const auto* background = look && look->background ? &*look->background : nullptr;
  if (background && background->image) return {Ground::Kind::image, *background->image};
  if (background && background->color) return {Ground::Kind::color, *background->color};
  if (background && background->preset) return {Ground::Kind::preset, named(*background->preset).id};
  return {Ground::Kind::preset, std::string(defaultPreset)};
}

std::string groundSays(const Stored& look) {
  Ground g = ground(look);
  switch (g.kind) {
    case Ground::Kind::preset: return named(g.value).title;
    case Ground::Kind::color:
      std::ranges::transform(g.value, g.value.begin(), [](unsigned char c) { return char(std::toupper(c)); });
      return g.value;
    case Ground::Kind::image: {
      auto slash = g.value.find_last_of('/');
      return slash == std::string::npos ? g.value : g.value.substr(slash + 1);
    }
  }
  return g.value;
}

double fraction(const Stored& look) {
  if (!look || !look->padding) return std::max(1 - 2 * defaultPadding, 0.05);
  const double p = std::clamp(*look->padding, minPadding, maxPadding);
  return std::max(1 - 2 * p, 0.05);
}

Rect inset(double width, double height, const Stored& look) {
  if (!isOn(look)) return {0, 0, width, height};
  const double f = fraction(look);
  const double w = width * f, h = height * f;
  return {(width - w) * 0.5, (height - h) * 0.5, w, h};
}

double corner(double width, double height, const Stored& look) {
  if (!isOn(look)) return 0;
  return std::min(width, height) * radius(look);
}

Rect pixels(double width, double height, const Stored& look) {
  const double f = isOn(look) ? fraction(look) : 1;
  const double w = std::max(2 * std::floor(width * f * 0.5), 2.0);
  const double h = std::max(2 * std::floor(height * f * 0.5), 2.0);
  const double x = std::max(2 * std::floor((width - w) * 0.25), 0.0);
  const double y = std::max(2 * std::floor((height - h) * 0.25), 0.0);
  return {x, y, w, h};
}

std::pair<Point, Point> line(double angle) {
  const double a = angle * M_PI / 180;
  const double s = std::sin(a), c = std::cos(a);
  return {{0.5 - 0.5 * s, 0.5 - 0.5 * c}, {0.5 + 0.5 * s, 0.5 + 0.5 * c}};
}

std::string hex(double r, double g, double b) {
  auto byte = [](double v) { return int(std::lround(std::clamp(v, 0.0, 1.0) * 255)); };
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "#%02X%02X%02X", byte(r), byte(g), byte(b));
  return buffer;
}

std::optional<RGB> rgb(std::string_view text) {
  if (text.empty() || text[0] != '#') return std::nullopt;
  std::string digits(text.substr(1));
  if (digits.size() == 3) digits = {digits[0], digits[0], digits[1], digits[1], digits[2], digits[2]};
  if (digits.size() != 6 || !std::ranges::all_of(digits, [](unsigned char c) { return std::isxdigit(c); }))
    return std::nullopt;
  auto channel = [&](int i) { return std::stoi(digits.substr(i * 2, 2), nullptr, 16) / 255.0; };
  return RGB{channel(0), channel(1), channel(2)};
}

bool isColor(std::string_view text) { return rgb(text).has_value(); }

std::string summary(const Stored& look) {
  if (!isOn(look)) return "off";
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "%s · %.0f%% padding · %.1f%% corner%s", groundSays(look).c_str(),
                padding(look) * 100, radius(look) * 100, shadow(look) ? " · shadow" : "");
  return buffer;
}

}  // namespace tavorin::Looks
