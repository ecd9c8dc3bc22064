#pragma once
#include <optional>
#include <string>

namespace tavorin {

// What the picture sits on: a frame with padding, rounded corners, a shadow and a ground.
struct Look {
  struct Background {
    std::optional<std::string> preset;
    std::optional<std::string> color;
    std::optional<std::string> image;
    bool operator==(const Background&) const = default;
  };

  std::optional<bool> on;
  std::optional<double> padding;
  std::optional<double> radius;
  std::optional<bool> shadow;
  std::optional<Background> background;

  bool isEmpty() const { return !on && !padding && !radius && !shadow && !background; }
  bool operator==(const Look&) const = default;
};

}  // namespace tavorin
