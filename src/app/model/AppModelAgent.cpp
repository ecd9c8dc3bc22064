// The production's policy for agent steps, and the command line one step would spawn.
#include <algorithm>

#include "app/model/AppModel.hpp"
#include "kit/Agents.hpp"

namespace tavorin {

namespace {

std::optional<AgentPolicy> stored(AgentPolicy policy) {
  if (policy.rules && policy.rules->empty()) policy.rules.reset();
  if (policy.model && policy.model->empty()) policy.model.reset();
  if (policy.fences && policy.fences->empty()) policy.fences.reset();
  if (policy.isEmpty()) return std::nullopt;
  return policy;
}

}  // namespace

std::optional<AgentPolicy> AppModel::agentPolicy() const { return recording().agent; }

std::vector<AppModel::AgentStepRef> AppModel::agentSteps() const {
  recording();
  std::vector<AgentStepRef> out;
  for (const auto& step : blockingSteps_)
    if (const auto* call = step.kind.as<Blocking::AgentCall>()) out.push_back({step.id, *call, step.sourceLine});
  return out;
}

AppModel::AgentCommand AppModel::agentCommand(std::optional<int> id, const std::string& program) const {
  const auto steps = agentSteps();
  const auto found = std::find_if(steps.begin(), steps.end(),
                                  [&](const AgentStepRef& s) { return !id || s.id == *id; });
  if (found == steps.end()) throw Failure::noAgentStep();
  AgentCommand command{*found, {}, {program}};
  for (const auto& cue : cues_)
    if (cue.id == found->id) command.cue = cue.label;
  for (auto& a : Agents::arguments(found->call, agentPolicy())) command.argv.push_back(std::move(a));
  return command;
}

void AppModel::setAgentRules(std::optional<std::string> rules) {
  requireEditable();
  Recording next = *stored_;
  AgentPolicy policy = next.agent.value_or(AgentPolicy{});
  policy.rules = std::move(rules);
  next.agent = stored(policy);
  if (next == *stored_) return;
  remember("agent rules");
  setRecording(std::move(next));
  scheduleDraft();
  note(stored_->agent && stored_->agent->rules ? "agent rules set" : "agent rules cleared");
}

void AppModel::setAgentModel(std::optional<std::string> model) {
  requireEditable();
  if (model && !model->empty() && !Agents::isModel(*model))
    throw Failure::badChoice(*model, "model", "sonnet, opus, haiku or fable");
  Recording next = *stored_;
  AgentPolicy policy = next.agent.value_or(AgentPolicy{});
  policy.model = std::move(model);
  next.agent = stored(policy);
  if (next == *stored_) return;
  remember("agent model");
  setRecording(std::move(next));
  scheduleDraft();
  note("agent model " + Agents::model(stored_->agent, std::nullopt));
}

void AppModel::setAgentPace(std::optional<double> pace) {
  requireEditable();
  Recording next = *stored_;
  AgentPolicy policy = next.agent.value_or(AgentPolicy{});
  if (pace) policy.pace = std::clamp(*pace, 0.0, Agents::maxPace);
  else policy.pace.reset();
  next.agent = stored(policy);
  if (next == *stored_) return;
  remember("agent pace");
  setRecording(std::move(next));
  scheduleDraft();
  note("agent pace " + Schedule::plainDecimal(Agents::pace(stored_->agent)) + "s");
}

void AppModel::setAgentFences(const std::vector<std::string>& up) {
  requireEditable();
  std::vector<std::string> names;
  for (const auto& name : up) {
    if (!Agents::fence(name)) throw Failure::badChoice(name, "deny", "fileEdits or shell");
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  Recording next = *stored_;
  AgentPolicy policy = next.agent.value_or(AgentPolicy{});
  policy.fences = names;
  // Kept in fence order, so the file does not change with the order they were named in.
  AgentPolicy ordered = policy;
  ordered.fences = std::vector<std::string>{};
  for (auto f : Agents::fences(policy)) ordered.fences->emplace_back(Agents::name(f));
  next.agent = stored(ordered);
  if (next == *stored_) return;
  remember("agent fences");
  setRecording(std::move(next));
  scheduleDraft();
  note("agent " + Agents::summary(stored_->agent));
}

}  // namespace tavorin
