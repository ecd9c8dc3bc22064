#pragma once
#include <deque>
#include <map>
#include <vector>

#include "app/model/MainActor.hpp"
#include "app/model/Offloader.hpp"

namespace tavorin {

// A main actor whose clock moves only when told: posted work runs on `drain`,
// timers fire as `advance` passes their time. For tests and headless tools. Its
// offloaded work runs on `drain` too, in order, so a test sees a disk write land
// at a point it chose.
class ManualMainActor final : public MainActor, public Offloader {
 public:
  void offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) override;
  void post(std::function<void()> work) override { queue_.push_back(std::move(work)); }
  std::shared_ptr<Timer> after(Clock::duration delay, std::function<void()> work) override;
  Clock::time_point now() const override { return now_; }
  std::chrono::system_clock::time_point wallNow() const override { return wall_ + (now_ - Clock::time_point{}); }

  // Runs posted work, including work that work posts, until none is left.
  void drain();
  // Moves the clock forward, firing due timers in time order, draining after each.
  void advance(Clock::duration by);
  void setWall(std::chrono::system_clock::time_point wall) { wall_ = wall; }
  std::size_t pendingTimers() const;

 private:
  struct Entry;
  std::deque<std::function<void()>> queue_;
  std::multimap<Clock::time_point, std::shared_ptr<Entry>> timers_;
  Clock::time_point now_{};
  std::chrono::system_clock::time_point wall_{std::chrono::sys_days{std::chrono::year{2026} / 1 / 1}};
};

}  // namespace tavorin
