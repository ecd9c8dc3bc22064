#pragma once
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kit/AgentPolicy.hpp"
#include "kit/Blocking.hpp"

namespace tavorin {

// The pure rules of what an agent step may do, and the command line it spawns.
namespace Agents {

enum class Fence { fileEdits, shell };

inline constexpr double defaultPace = 0.15;
inline constexpr double maxPace = 2;

std::string_view name(Fence fence);
std::string_view title(Fence fence);
std::optional<Fence> fence(std::string_view name);
// The tools a fence takes away, in the order the agent's program knows them.
const std::vector<std::string>& tools(Fence fence);

double pace(const std::optional<AgentPolicy>& policy);
// The fences the policy names, each once, in fence order; unknown names dropped.
std::vector<Fence> fences(const std::optional<AgentPolicy>& policy);
std::vector<std::string> denied(const std::optional<AgentPolicy>& policy);
bool isModel(std::string_view model);
std::string model(const std::optional<AgentPolicy>& policy, const std::optional<std::string>& step);
// The policy's rules, then the step's, each trimmed, joined by a line feed; the step adds, never replaces.
std::optional<std::string> rules(const std::optional<AgentPolicy>& policy, const std::optional<std::string>& step);
bool isEffort(std::string_view effort);
// One line for the panel: the model, then "full access" or the fences that are up.
std::string summary(const std::optional<AgentPolicy>& policy);

// "5m" for a whole number of minutes of at least a minute, "90s" otherwise.
std::string timeoutWords(double seconds);

// ~/.local/bin/claude under `home`.
std::string claudePath(std::string_view home);
// The words the agent is started with, after its program's path.
std::vector<std::string> arguments(const Blocking::AgentCall& call, const std::optional<AgentPolicy>& policy);
// The environment without the studio's own switches and without the API key: the
// agent signs in as the user does, never with a key the studio was handed.
std::map<std::string, std::string> sanitizedEnvironment(const std::map<std::string, std::string>& from);

}  // namespace Agents

// Why an agent step ended a run, in the words the user reads.
class AgentStepError : public std::runtime_error {
 public:
  enum class Case { noClaude, timedOut, failed, aborted };
  static AgentStepError noClaude(const std::string& path);
  static AgentStepError timedOut(double seconds);
  static AgentStepError failed(const std::string& why);
  static AgentStepError aborted();
  Case which() const { return case_; }

 private:
  AgentStepError(Case c, const std::string& text) : std::runtime_error(text), case_(c) {}
  Case case_;
};

}  // namespace tavorin
