#include "kit/Retime.hpp"

#include <algorithm>
#include <cmath>
#include <unordered_set>
#include <vector>

#include "kit/Schedule.hpp"

namespace tavorin::Retime {

Recording move(Recording recording, std::string_view id, double to) {
  if (auto* item = recording.item(id)) item->start = std::max(to, 0.0);
  return recording;
}

std::optional<std::pair<Recording, std::string>> duplicate(const Recording& recording, std::string_view id,
                                                           double at) {
  const auto* source = recording.item(id);
  if (!source) return std::nullopt;
  TimelineItem copy = *source;
  copy.id = nextId(id, recording);
  copy.start = std::max(at, 0.0);
  copy.audio.reset();
  copy.renderedFrom.reset();
  copy.approved = false;
  std::string newId = copy.id;
  Recording changed = recording;
  changed.timeline.push_back(std::move(copy));
  return std::make_pair(std::move(changed), std::move(newId));
}

Snap snap(const Recording& recording, std::string_view moving, double to, double within) {
  if (!(within > 0)) return {std::max(to, 0.0), std::nullopt};
  std::vector<double> candidates;
  for (const auto& span : Schedule::lineSpans(recording)) {
    if (span.id == moving) continue;
    candidates.push_back(span.start);
    candidates.push_back(span.end);
  }
  for (const auto& item : recording.timeline)
    if (item.type != ItemType::line && item.id != moving && item.start) candidates.push_back(*item.start);
  candidates.push_back(std::round(to));
  candidates.push_back(0);

  std::optional<double> nearest;
  for (double candidate : candidates) {
    if (candidate < 0) continue;
    if (!nearest || std::abs(candidate - to) < std::abs(*nearest - to)) nearest = candidate;
  }
  if (nearest && std::abs(*nearest - to) <= within) return {*nearest, *nearest};
  return {std::max(to, 0.0), std::nullopt};
}

double snapWindow(double pxPerSecond, double pixels) { return pxPerSecond > 0 ? pixels / pxPerSecond : 0; }

std::string nextId(std::string_view like, const Recording& recording) {
  std::unordered_set<std::string> taken;
  for (const auto& item : recording.timeline) taken.insert(item.id);
  const std::string base(like);
  for (char letter = 'a'; letter <= 'z'; ++letter)
    if (std::string id = base + letter; !taken.count(id)) return id;
  for (int n = 2;; ++n)
    if (std::string id = base + "-" + std::to_string(n); !taken.count(id)) return id;
}

}  // namespace tavorin::Retime
