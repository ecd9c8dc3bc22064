#include "kit/Looks.hpp"

#include <algorithm>
#include <cctype>
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
  static const std::vector<Preset> table = {
      {"slate", "Slate"},           {"graphite", "Graphite"},     {"ash", "Ash"},
      {"ember", "Ember"},           {"clay", "Clay"},             {"dusk", "Dusk"},
      {"tide", "Tide"},             {"moss", "Moss"},             {"field-dusk", "Dusk"},
      {"field-ocean", "Ocean"},     {"field-green-gold", "Green-gold"},
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

std::string summary(const Stored& look) {
  if (!isOn(look)) return "off";
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "%s · %.0f%% padding · %.1f%% corner%s", groundSays(look).c_str(),
                padding(look) * 100, radius(look) * 100, shadow(look) ? " · shadow" : "");
  return buffer;
}

}  // namespace tavorin::Looks
