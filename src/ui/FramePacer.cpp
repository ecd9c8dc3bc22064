#include "ui/FramePacer.hpp"

#include <algorithm>

namespace tavorin {

void FramePacer::request(int frames) { owed_ = std::max(owed_, frames); }

std::optional<FramePacer::Clock::time_point> FramePacer::next() const {
  if (owed_ == 0 && !animating_) return std::nullopt;
  // The first frame, and the first after a quiet spell, is drawn at once.
  if (!last_) return Clock::time_point::min();
  return *last_ + (owed_ > 0 ? interval_ : std::max(interval_, pace_));
}

bool FramePacer::due(Clock::time_point now) const {
  const auto at = next();
  return at && *at <= now;
}

void FramePacer::drawn(Clock::time_point now) {
  last_ = now;
  if (owed_ > 0) --owed_;
}

}  // namespace tavorin
