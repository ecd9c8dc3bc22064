#pragma once
#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include "app/model/MainActor.hpp"
#include "app/shoot/AgentStepDriver.hpp"

namespace tavorin {

// Stands in for the agent wherever no program may start: records what it was
// asked, takes `takes` on the actor's clock, and gives `result`.
class FakeAgentStep final : public AgentStepDriver {
 public:
  explicit FakeAgentStep(MainActor& actor) : actor_(actor) {}
  ~FakeAgentStep() override;

  std::vector<std::pair<Blocking::AgentCall, std::optional<AgentPolicy>>> asked;
  bool aborted = false;
  MainActor::Clock::duration takes = std::chrono::seconds(1);
  std::exception_ptr result;

  void run(const Blocking::AgentCall& call, const std::optional<AgentPolicy>& policy, Done done) override;
  void abort() override;

 private:
  MainActor& actor_;
  std::shared_ptr<MainActor::Timer> timer_;
  Done pending_;
};

}  // namespace tavorin
