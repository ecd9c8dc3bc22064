#pragma once
#include <optional>
#include <string>

namespace tavorin {

// One camera move over the picture, on the film's timeline.
struct Zoom {
  struct Anchor {
    double x = 0.5;
    double y = 0.5;
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
