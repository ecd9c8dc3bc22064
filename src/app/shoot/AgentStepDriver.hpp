#pragma once
#include <exception>
#include <functional>
#include <optional>

#include "kit/AgentPolicy.hpp"
#include "kit/Blocking.hpp"

namespace tavorin {

// What runs an `agent` step. `run` returns at once; `done` comes back on the main
// actor with the step's AgentStepError, or null when the agent finished its task.
class AgentStepDriver {
 public:
  using Done = std::function<void(std::exception_ptr)>;
  virtual ~AgentStepDriver() = default;
  virtual void run(const Blocking::AgentCall& call, const std::optional<AgentPolicy>& policy, Done done) = 0;
  // Cuts the step under way: its `done` gets AgentStepError::aborted.
  virtual void abort() = 0;
};

}  // namespace tavorin
