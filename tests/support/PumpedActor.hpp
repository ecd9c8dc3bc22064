#pragma once
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "app/model/MainActor.hpp"

namespace tavorin::test {

// A main actor that child threads post to and the test pumps on its own thread. Timers
// wait until the test fires them, so a time limit is reached without waiting for it.
class PumpedActor final : public MainActor {
 public:
  void post(std::function<void()> work) override {
    std::lock_guard guard(lock_);
    queue_.push_back(std::move(work));
    ready_.notify_one();
  }
  std::shared_ptr<Timer> after(Clock::duration, std::function<void()> work) override {
    auto timer = std::make_shared<Pending>();
    timer->work = std::move(work);
    timers_.push_back(timer);
    return timer;
  }
  Clock::time_point now() const override { return Clock::now(); }

  // Runs posted work until `done` holds; false when a minute passes first.
  bool pumpUntil(const std::function<bool()>& done) {
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    while (!done()) {
      std::unique_lock guard(lock_);
      if (!ready_.wait_until(guard, deadline, [&] { return !queue_.empty(); })) return false;
      auto work = std::move(queue_.front());
      queue_.pop_front();
      guard.unlock();
      work();
    }
    return true;
  }
  // Runs what is posted for a while, for ends that should not come to anything.
  void pumpFor(Clock::duration span) {
    const auto deadline = Clock::now() + span;
    for (;;) {
      std::unique_lock guard(lock_);
      if (!ready_.wait_until(guard, deadline, [&] { return !queue_.empty(); })) return;
      auto work = std::move(queue_.front());
      queue_.pop_front();
      guard.unlock();
      work();
    }
  }
  // Fires every timer not cancelled, as if its time had come.
  void fireTimers() {
    auto due = std::move(timers_);
    for (auto& t : due)
      if (!t->cancelled) t->work();
  }

 private:
  struct Pending : Timer {
    std::function<void()> work;
    bool cancelled = false;
    void cancel() override { cancelled = true; }
  };
  std::mutex lock_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> queue_;
  std::vector<std::shared_ptr<Pending>> timers_;
};

}  // namespace tavorin::test
