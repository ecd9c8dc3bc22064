#pragma once
#include <functional>
#include <memory>

namespace tavorin {

// Held by an owner that posts work to come back later (a worker's result, a
// timer). The posted completion is wrapped with `guard`, and runs only while the
// owner still lives: work that finishes after its owner died is dropped, never
// run against freed memory. Not thread-safe: create, guard and destroy on the
// main actor, where the completion also runs.
class LifetimeToken {
 public:
  LifetimeToken() : alive_(std::make_shared<bool>(true)) {}
  ~LifetimeToken() { *alive_ = false; }
  LifetimeToken(const LifetimeToken&) = delete;
  LifetimeToken& operator=(const LifetimeToken&) = delete;

  template <typename F>
  auto guard(F work) const {
    return [alive = std::weak_ptr<bool>(alive_), work = std::move(work)](auto&&... args) mutable {
      if (auto held = alive.lock(); held && *held) work(std::forward<decltype(args)>(args)...);
    };
  }

 private:
  std::shared_ptr<bool> alive_;
};

}  // namespace tavorin
