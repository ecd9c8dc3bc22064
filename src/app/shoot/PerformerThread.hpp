#pragma once
#include <memory>

#include "app/model/MainActor.hpp"
#include "app/model/Offloader.hpp"

namespace tavorin {

// The one thread the desktop is driven from. Input goes to the display in order
// from a single connection, and no render or export in the worker pool can delay
// a step: the run's timing depends on it. Completions return through the actor.
class PerformerThread final : public Offloader {
 public:
  explicit PerformerThread(MainActor& actor);
  ~PerformerThread() override;
  void offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tavorin
