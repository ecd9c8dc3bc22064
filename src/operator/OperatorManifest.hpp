#pragma once
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "operator/JSONValue.hpp"

namespace tavorin {

// One parameter of a verb, as the client documents it. `required` is documentation
// only: the refusal for a missing argument comes from the dispatcher, in its words.
struct ParamSpec {
  std::string name;
  bool required = false;
  std::string description;

  // {"name", "required", "description"}; fromJSON throws std::runtime_error on
  // a missing or mistyped key.
  JSONValue toJSON() const;
  static ParamSpec fromJSON(const JSONValue& value);
  bool operator==(const ParamSpec&) const = default;
};

// One verb of the control protocol. `mutating` is false for pure reports and true
// for anything that changes the production, the window or the session.
struct VerbSpec {
  std::string name;
  std::string group;
  std::string summary;
  std::vector<ParamSpec> params;
  bool mutating = true;

  // {"name", "group", "summary", "params", "mutating"}.
  JSONValue toJSON() const;
  static VerbSpec fromJSON(const JSONValue& value);
  bool operator==(const VerbSpec&) const = default;
};

// The one list of what the control protocol can do, in the order the client prints
// it. Built once, on first use.
namespace OperatorManifest {

const std::vector<VerbSpec>& verbs();
const std::set<std::string>& verbNames();
// The first row with exactly this name (no case folding), or nullptr.
const VerbSpec* find(std::string_view name);
// Each group once, in the order it first appears in verbs().
const std::vector<std::string>& groups();
// The whole list as a JSON array of verbs.
JSONValue toJSON();

}  // namespace OperatorManifest

}  // namespace tavorin
