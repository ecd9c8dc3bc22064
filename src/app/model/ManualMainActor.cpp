#include "app/model/ManualMainActor.hpp"

namespace tavorin {

void ManualMainActor::offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) {
  post([this, work = std::move(work), then = std::move(then)]() mutable {
    std::exception_ptr failure;
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
    post([then = std::move(then), failure] { then(failure); });
  });
}

struct ManualMainActor::Entry final : MainActor::Timer {
  std::function<void()> work;
  bool cancelled = false;
  void cancel() override { cancelled = true; }
};

std::shared_ptr<MainActor::Timer> ManualMainActor::after(Clock::duration delay, std::function<void()> work) {
  auto e = std::make_shared<Entry>();
  e->work = std::move(work);
  timers_.emplace(now_ + delay, e);
  return e;
}

void ManualMainActor::drain() {
  while (!queue_.empty()) {
    auto work = std::move(queue_.front());
    queue_.pop_front();
    work();
  }
}

void ManualMainActor::advance(Clock::duration by) {
  const auto target = now_ + by;
  drain();
  while (!timers_.empty() && timers_.begin()->first <= target) {
    auto [when, entry] = *timers_.begin();
    timers_.erase(timers_.begin());
    now_ = when;
    if (!entry->cancelled) entry->work();
    drain();
  }
  now_ = target;
}

std::size_t ManualMainActor::pendingTimers() const {
  std::size_t n = 0;
  for (const auto& [when, e] : timers_)
    if (!e->cancelled) ++n;
  return n;
}

}  // namespace tavorin
