#pragma once
#include <optional>
#include <string>

namespace tavorin {

// How burned-in captions look; sizes and places are shares of the picture.
struct SubtitleStyle {
  // Spelled-out constructors: clang 14 does not treat a nested type with member
  // initialisers as default-constructible inside its enclosing one.
  struct Anchor {
    double x;
    double y;
    Anchor() : x(0.5), y(0.9) {}
    Anchor(double x, double y) : x(x), y(y) {}
    bool operator==(const Anchor&) const = default;
  };
  struct Highlight {
    std::optional<std::string> mode;
    std::optional<std::string> color;
    std::optional<std::string> fill;
    std::optional<double> lead;
    bool operator==(const Highlight&) const = default;
  };

  std::optional<bool> burn;
  std::optional<std::string> font;
  std::optional<double> size;
  std::optional<Anchor> anchor;
  std::optional<std::string> position;
  std::optional<double> margin;
  std::optional<Highlight> highlight;

  bool operator==(const SubtitleStyle&) const = default;
};

}  // namespace tavorin
