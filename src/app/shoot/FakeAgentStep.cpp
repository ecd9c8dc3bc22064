#include "app/shoot/FakeAgentStep.hpp"

#include "kit/Agents.hpp"

namespace tavorin {

FakeAgentStep::~FakeAgentStep() {
  if (timer_) timer_->cancel();
}

void FakeAgentStep::run(const Blocking::AgentCall& call, const std::optional<AgentPolicy>& policy, Done done) {
  asked.emplace_back(call, policy);
  pending_ = std::move(done);
  timer_ = actor_.after(takes, [this] {
    timer_.reset();
    if (auto done = std::exchange(pending_, nullptr)) done(result);
  });
}

void FakeAgentStep::abort() {
  aborted = true;
  if (timer_) timer_->cancel();
  timer_.reset();
  if (auto done = std::exchange(pending_, nullptr))
    actor_.post([done] { done(std::make_exception_ptr(AgentStepError::aborted())); });
}

}  // namespace tavorin
