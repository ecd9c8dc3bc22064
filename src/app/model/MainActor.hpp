#pragma once
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <thread>

namespace tavorin {

// The one thread that owns the model. Work is posted to it and timers fire on it.
// The model speaks only to this interface, so tests drive time by hand instead of sleeping.
class MainActor {
 public:
  using Clock = std::chrono::steady_clock;

  // A pending timer; cancelling one that already fired does nothing.
  class Timer {
   public:
    virtual ~Timer() = default;
    virtual void cancel() = 0;
  };

  virtual ~MainActor() = default;
  // Whether the caller runs on the actor's thread; by default the thread that made it.
  virtual bool onActor() const { return std::this_thread::get_id() == thread_; }
  // Debug builds stop at model code reached from another thread; such a call is
  // a data race that may work for months before it corrupts a production.
  void checkOnActor() const {
#ifndef NDEBUG
    if (!onActor()) std::terminate();
#endif
  }
  // Runs `work` when the actor comes round again, after the current handler.
  virtual void post(std::function<void()> work) = 0;
  // Runs `work` on the actor once `delay` has passed.
  virtual std::shared_ptr<Timer> after(Clock::duration delay, std::function<void()> work) = 0;
  virtual Clock::time_point now() const = 0;
  // Wall-clock time, for names and dates that people read.
  virtual std::chrono::system_clock::time_point wallNow() const { return std::chrono::system_clock::now(); }

 private:
  std::thread::id thread_ = std::this_thread::get_id();
};

}  // namespace tavorin
