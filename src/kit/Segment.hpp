#pragma once
#include <optional>
#include <string>

namespace tavorin {

// One span of the cut: which seconds of a take's footage the film shows.
struct Segment {
  std::string id;
  std::optional<std::string> take;
  double from = 0;
  double to = 0;
  std::optional<double> rate;

  bool operator==(const Segment&) const = default;
};

}  // namespace tavorin
