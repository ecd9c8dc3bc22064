#include "kit/Agents.hpp"

#include <algorithm>
#include <cmath>

#include "base/Text.hpp"

namespace tavorin {

namespace Agents {

namespace {

constexpr Fence allFences[] = {Fence::fileEdits, Fence::shell};
const std::vector<std::string> modelNames{"sonnet", "opus", "haiku", "fable"};

std::string trimmedRules(const std::optional<std::string>& text) {
  if (!text) return {};
  return std::string(Text::trim(*text, " \t\r\n"));
}

}  // namespace

std::string_view name(Fence fence) { return fence == Fence::fileEdits ? "fileEdits" : "shell"; }

std::string_view title(Fence fence) { return fence == Fence::fileEdits ? "Deny file edits" : "Deny shell"; }

std::optional<Fence> fence(std::string_view text) {
  for (Fence f : allFences)
    if (name(f) == text) return f;
  return std::nullopt;
}

const std::vector<std::string>& tools(Fence fence) {
  static const std::vector<std::string> edits{"Edit", "Write", "NotebookEdit"};
  static const std::vector<std::string> shell{"Bash", "BashOutput", "KillShell"};
  return fence == Fence::fileEdits ? edits : shell;
}

double pace(const std::optional<AgentPolicy>& policy) {
  if (!policy || !policy->pace || std::isnan(*policy->pace)) return defaultPace;
  return std::clamp(*policy->pace, 0.0, maxPace);
}

std::vector<Fence> fences(const std::optional<AgentPolicy>& policy) {
  std::vector<Fence> out;
  if (!policy || !policy->fences) return out;
  for (Fence f : allFences)
    if (std::find(policy->fences->begin(), policy->fences->end(), std::string(name(f))) != policy->fences->end())
      out.push_back(f);
  return out;
}

std::vector<std::string> denied(const std::optional<AgentPolicy>& policy) {
  std::vector<std::string> out;
  for (Fence f : fences(policy))
    for (const auto& tool : tools(f)) out.push_back(tool);
  return out;
}

bool isModel(std::string_view model) {
  return std::find(modelNames.begin(), modelNames.end(), model) != modelNames.end();
}

std::string model(const std::optional<AgentPolicy>& policy, const std::optional<std::string>& step) {
  if (step && isModel(*step)) return *step;
  if (policy && policy->model && isModel(*policy->model)) return *policy->model;
  return "sonnet";
}

std::optional<std::string> rules(const std::optional<AgentPolicy>& policy, const std::optional<std::string>& step) {
  std::vector<std::string> parts;
  for (auto text : {trimmedRules(policy ? policy->rules : std::nullopt), trimmedRules(step)})
    if (!text.empty()) parts.push_back(std::move(text));
  if (parts.empty()) return std::nullopt;
  return Text::join(parts, "\n");
}

bool isEffort(std::string_view effort) { return effort == "low" || effort == "medium" || effort == "high"; }

std::string summary(const std::optional<AgentPolicy>& policy) {
  std::string out = model(policy, std::nullopt) + " · ";
  const auto up = fences(policy);
  if (up.empty()) return out + "full access";
  std::vector<std::string> titles;
  for (Fence f : up) titles.emplace_back(title(f));
  return out + Text::join(titles, ", ");
}

std::string timeoutWords(double seconds) {
  const double whole = std::round(seconds);
  const long long s = static_cast<long long>(whole);
  if (s >= 60 && s % 60 == 0 && whole == seconds) return std::to_string(s / 60) + "m";
  return std::to_string(s) + "s";
}

std::string claudePath(std::string_view home) { return std::string(home) + "/.local/bin/claude"; }

std::vector<std::string> arguments(const Blocking::AgentCall& call, const std::optional<AgentPolicy>& policy) {
  std::vector<std::string> out{
      "-p",
      "You are driving a screen recording that is rolling right now.\n\nUse the Claude in Chrome browser tools, "
      "and work in the Chrome tab that is already at the front — an earlier step in the script opened it. Do "
      "not open new windows and do not resize anything.\n\nThe task: " +
          call.prompt +
          "\n\nDo the task, then exit. Everything you do is on camera, so move deliberately and stop as soon as "
          "the task is done. No summary, no report.",
      "--output-format", "text", "--chrome", "--permission-mode", "dontAsk", "--model", model(policy, call.model)};
  if (call.effort && isEffort(*call.effort)) {
    out.push_back("--effort");
    out.push_back(*call.effort);
  }
  if (auto text = rules(policy, call.rules)) {
    out.push_back("--append-system-prompt");
    out.push_back(std::move(*text));
  }
  if (const auto tools = denied(policy); !tools.empty()) {
    out.push_back("--disallowedTools");
    out.push_back(Text::join(tools, ","));
  }
  return out;
}

std::map<std::string, std::string> sanitizedEnvironment(const std::map<std::string, std::string>& from) {
  std::map<std::string, std::string> out;
  for (const auto& [key, value] : from)
    if (key != "ANTHROPIC_API_KEY" && key.rfind("TAVORIN_", 0) != 0) out.emplace(key, value);
  return out;
}

}  // namespace Agents

AgentStepError AgentStepError::noClaude(const std::string& path) {
  return AgentStepError(Case::noClaude, "claude isn't where Tavorin expects it (" + path + ").");
}

AgentStepError AgentStepError::timedOut(double seconds) {
  return AgentStepError(Case::timedOut, "the agent ran past " + Agents::timeoutWords(seconds) +
                                            " and was stopped. Give it longer with `timeout`, or ask for less in "
                                            "one step.");
}

AgentStepError AgentStepError::failed(const std::string& why) {
  return AgentStepError(Case::failed, "the agent stopped: " + why);
}

AgentStepError AgentStepError::aborted() { return AgentStepError(Case::aborted, "the agent step was cut"); }

}  // namespace tavorin
