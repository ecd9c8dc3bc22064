#pragma once
#include <optional>
#include <string>

namespace tavorin {

// One camera move over the picture, on the film's timeline.
struct Zoom {
  // Spelled-out constructors rather than member initialisers: clang 14 does not treat a
  // nested type with member initialisers as default-constructible inside its enclosing one.
  struct Anchor {
    double x;
    double y;
    Anchor() : x(0.5), y(0.5) {}
    Anchor(double x, double y) : x(x), y(y) {}
    bool operator==(const Anchor&) const = default;
  };

  std::string id;
  double from = 0;
  double to = 0;
  double scale = 1;
  std::optional<Anchor> anchor;
  std::optional<std::string> style;
  std::optional<double> ramp;

  bool operator==(const Zoom&) const = default;
};

}  // namespace tavorin
