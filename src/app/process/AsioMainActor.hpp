#pragma once
#include "app/model/MainActor.hpp"

namespace asio {
class io_context;
}

namespace tavorin {

// The main actor over the process's one io_context, run on the main thread.
class AsioMainActor final : public MainActor {
 public:
  explicit AsioMainActor(asio::io_context& context) : context_(context) {}
  void post(std::function<void()> work) override;
  std::shared_ptr<Timer> after(Clock::duration delay, std::function<void()> work) override;
  Clock::time_point now() const override { return Clock::now(); }
  // The thread that runs the context, whichever made the actor.
  bool onActor() const override;
  asio::io_context& context() const { return context_; }

 private:
  asio::io_context& context_;
};

}  // namespace tavorin
