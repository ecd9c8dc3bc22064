#pragma once
#include <map>
#include <optional>
#include <string>

#include "operator/JSONValue.hpp"

namespace tavorin {

// One verb with its text arguments, as it travels on the wire.
struct OperatorCommand {
  std::string verb;
  std::map<std::string, std::string> args;

  // The value, or nothing for a missing key and for an empty value alike.
  std::optional<std::string> arg(const std::string& name) const {
    auto it = args.find(name);
    if (it == args.end() || it->second.empty()) return std::nullopt;
    return it->second;
  }
  bool operator==(const OperatorCommand&) const = default;
};

struct OperatorRequest {
  std::string token;
  OperatorCommand command;
  bool operator==(const OperatorRequest&) const = default;
};

// What a verb answers: `data` when it reported something, `error` when refused.
struct OperatorResult {
  bool ok = true;
  std::optional<JSONValue> data;
  std::optional<std::string> error;

  static OperatorResult success() { return OperatorResult{}; }
  static OperatorResult success(JSONValue data) {
    OperatorResult r;
    r.data.emplace(std::move(data));
    return r;
  }
  static OperatorResult failure(std::string text) { return OperatorResult{false, std::nullopt, std::move(text)}; }
  bool operator==(const OperatorResult&) const = default;
};

}  // namespace tavorin
