#pragma once
#include <chrono>
#include <optional>

namespace tavorin {

// When the window draws. Nothing is drawn unless something asked: input, a change
// of the model, or motion on screen. Requests that come close together are drawn
// together, at most one frame an interval, and a frame owed is never later than
// one interval after it was asked for.
class FramePacer {
 public:
  using Clock = std::chrono::steady_clock;

  explicit FramePacer(Clock::duration interval = std::chrono::milliseconds(16)) : interval_(interval) {}

  // Asks for `frames` more frames (widgets settle over a frame or two after input).
  void request(int frames = 1);
  // While something plays or animates, a frame every interval, or every `pace` when
  // the motion has a slower rate of its own (a film plays at its frame rate); frames
  // owed to input still come at the interval.
  void setAnimating(bool animating, Clock::duration pace = Clock::duration::zero()) {
    animating_ = animating;
    pace_ = pace;
  }
  bool animating() const { return animating_; }

  // When the next frame is due; nothing when none is owed, so the loop may sleep.
  std::optional<Clock::time_point> next() const;
  bool due(Clock::time_point now) const;
  void drawn(Clock::time_point now);
  int owed() const { return owed_; }

 private:
  Clock::duration interval_;
  std::optional<Clock::time_point> last_;
  int owed_ = 0;
  bool animating_ = false;
  Clock::duration pace_ = Clock::duration::zero();
};

}  // namespace tavorin
