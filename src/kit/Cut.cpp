#include "kit/Cut.hpp"

namespace tavorin {

std::string Cut::nextId(const Recording& recording, const std::vector<std::string>& avoiding) {
  auto taken = recording.itemIds();
  if (recording.segments)
    for (const auto& segment : *recording.segments) taken.insert(segment.id);
  taken.insert(avoiding.begin(), avoiding.end());
  for (int n = 1;; ++n) {
    std::string id = "s" + std::to_string(n);
    if (!taken.count(id)) return id;
  }
}

}  // namespace tavorin
