// run: the runner's verbs, and the policy of agent steps.
#include <cstdlib>

#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/service/Outside.hpp"
#include "app/shoot/ClaudeAgentStep.hpp"
#include "app/shoot/PermissionsRitual.hpp"
#include "app/shoot/Stage.hpp"
#include "kit/Agents.hpp"

namespace tavorin {

namespace {

JSONValue eventJSON(const RunPlan::Event& e) {
  return JSONValue::object({{"id", e.id},
                            {"time", JSONValue::seconds(e.time)},
                            {"kind", std::string(Blocking::name(e.kind.mark()))},
                            {"label", e.description},
                            {"line", e.sourceLine}});
}

JSONValue texts(const std::vector<std::string>& list) {
  JSONValue::Array out;
  for (const auto& t : list) out.emplace_back(t);
  return JSONValue(std::move(out));
}

JSONValue planJSON(const RunPlan& plan, const std::vector<std::string>& skipped) {
  JSONValue::Array events;
  for (const auto& e : plan.events) events.push_back(eventJSON(e));
  return JSONValue::object({{"events", JSONValue(std::move(events))},
                            {"count", static_cast<long long>(plan.events.size())},
                            {"duration", JSONValue::seconds(plan.duration)},
                            {"skipped", texts(skipped)}});
}

JSONValue policyJSON(const std::optional<AgentPolicy>& policy) {
  JSONValue::Array fences;
  for (auto f : Agents::fences(policy)) fences.emplace_back(std::string(Agents::name(f)));
  return JSONValue::object(
      {{"rules", policy && policy->rules ? JSONValue(*policy->rules) : JSONValue()},
       {"model", Agents::model(policy, std::nullopt)},
       {"fences", JSONValue(std::move(fences))},
       {"denied", texts(Agents::denied(policy))},
       {"pace", Agents::pace(policy)},
       {"summary", Agents::summary(policy)}});
}

}  // namespace

OperatorService::~OperatorService() {
  // The model may outlive the service; nothing of it may call back into a service gone.
  model().clearStage = nullptr;
  model().onExportDelivered = nullptr;
  model().onPublishForgotten = nullptr;
}

void OperatorService::useStage(std::unique_ptr<Stage> stage) { stage_ = std::move(stage); }

Stage& OperatorService::stage() {
  if (!stage_) stage_ = std::make_unique<Stage>(model().actor());
  return *stage_;
}

void OperatorService::registerRun() {
  model().clearStage = [this] {
    if (stage_) stage_->clear(model());
  };
  onBranch(&OperatorService::runVerbs,
           {"run", "run.plan", "run.status", "run.abort", "agent.policy", "agent.command"});
}

JSONValue OperatorService::runStatusReport() {
  Runner& r = stage().runner();
  JSONValue::Array performed;
  for (int id : r.performed()) performed.emplace_back(id);
  JSONValue agent;
  if (const auto& step = r.agentStep())
    agent = JSONValue::object({{"prompt", step->call.prompt},
                               {"timeout", JSONValue::seconds(step->call.timeout)},
                               {"model", step->model},
                               {"elapsed", JSONValue::seconds(r.agentElapsed().value_or(0))}});
  const auto next = r.nextEvent();
  const std::string upNext = r.upNext();
  return JSONValue::object({{"running", r.isRunning()},
                            {"mode", r.mode() == Runner::Mode::dry ? "dry" : "rehearse"},
                            {"live", r.live()},
                            {"elapsed", JSONValue::seconds(r.elapsed())},
                            {"duration", JSONValue::seconds(r.plan().duration)},
                            {"total", static_cast<long long>(r.plan().events.size())},
                            {"done", static_cast<long long>(r.performed().size())},
                            {"performed", JSONValue(std::move(performed))},
                            {"next", next ? eventJSON(*next) : JSONValue()},
                            {"upNext", upNext.empty() ? JSONValue() : JSONValue(upNext)},
                            {"report", r.report()},
                            {"failure", JSONValue::optional(r.failure())},
                            {"aborted", r.aborted()},
                            {"skipped", texts(r.skipped())},
                            {"agentStep", std::move(agent)},
                            {"heldAgents", texts(r.heldAgents())}});
}

OperatorService::Answer OperatorService::runVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  AppModel& m = model();
  if (v == "run") {
    const bool rehearse = a.flag("rehearse").value_or(false);
    const bool dry = a.flag("dry").value_or(!rehearse);
    if (dry && rehearse)
      throw AppModel::Failure::cannotUse("run takes dry=1 or rehearse=1, not both.");
    const auto mode = rehearse ? Runner::Mode::rehearse : Runner::Mode::dry;
    const RunPlan plan = stage().run(m, mode);
    JSONValue::Object report = *planJSON(plan, stage().runner().skipped()).objectValue();
    report.emplace("mode", rehearse ? "rehearse" : "dry");
    report.emplace("running", stage().runner().isRunning());
    report.emplace("report", stage().runner().report());
    return OperatorResult::success(JSONValue(std::move(report)));
  }
  if (v == "run.plan") {
    const Recording& rec = m.recording();
    return OperatorResult::success(planJSON(RunPlan::make(m.blocking(), rec), RunPlan::skipped(m.blocking())));
  }
  if (v == "run.status") return OperatorResult::success(runStatusReport());
  if (v == "run.abort") {
    stage().abort(m);
    return OperatorResult::success(runStatusReport());
  }
  if (v == "agent.policy") {
    const Recording& rec = m.recording();
    (void)rec;
    const bool setting = c.args.count("rules") || c.args.count("model") || c.args.count("deny") ||
                         c.args.count("pace");
    if (setting) {
      m.requireEditable();
      std::optional<double> pace;
      if (c.args.count("pace") && a.text("pace")) pace = a.number("pace");
      const auto model = a.text("model");
      if (model && !Agents::isModel(*model))
        throw AppModel::Failure::badChoice(*model, "model", "sonnet, opus, haiku or fable");
      const auto deny = a.idList("deny");
      for (const auto& d : deny)
        if (!Agents::fence(d)) throw AppModel::Failure::badChoice(d, "deny", "fileEdits or shell");
      // All checked; now the edits, each its own undo step.
      if (c.args.count("rules")) m.setAgentRules(a.text("rules"));
      if (c.args.count("model")) m.setAgentModel(model);
      if (c.args.count("deny")) m.setAgentFences(deny);
      if (c.args.count("pace")) m.setAgentPace(pace);
    }
    return OperatorResult::success(policyJSON(m.agentPolicy()));
  }
  if (v == "agent.command") {
    std::optional<int> id;
    if (const auto n = a.integer("id")) id = static_cast<int>(*n);
    const auto* claude = dynamic_cast<ClaudeAgentStep*>(&stage().agents());
    const std::string program = claude ? claude->program() : ClaudeAgentStep(m.actor()).program();
    const auto command = m.agentCommand(id, program);
    JSONValue::Array argv;
    for (const auto& word : command.argv) argv.emplace_back(word);
    return OperatorResult::success(
        JSONValue::object({{"id", command.step.id},
                           {"line", command.step.sourceLine},
                           {"cue", command.cue},
                           {"prompt", command.step.call.prompt},
                           {"timeout", JSONValue::seconds(command.step.call.timeout)},
                           {"model", Agents::model(m.agentPolicy(), command.step.call.model)},
                           {"argv", JSONValue(std::move(argv))}}));
  }
  return std::nullopt;
}

}  // namespace tavorin
