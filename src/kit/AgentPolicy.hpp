#pragma once
#include <optional>
#include <string>
#include <vector>

namespace tavorin {

// What agent steps of a production may do: extra rules, a model, fences, a pace.
struct AgentPolicy {
  std::optional<std::string> rules;
  std::optional<std::string> model;
  std::optional<std::vector<std::string>> fences;
  std::optional<double> pace;

  bool isEmpty() const {
    return (!rules || rules->empty()) && (!model || model->empty()) &&
           (!fences || fences->empty()) && !pace;
  }
  bool operator==(const AgentPolicy&) const = default;
};

}  // namespace tavorin
