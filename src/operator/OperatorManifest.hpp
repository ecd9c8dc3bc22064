#pragma once
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "operator/JSONValue.hpp"
#include "operator/VerbTableData.hpp"

namespace tavorin {

// One parameter of a verb, as the client documents it. The dispatcher refuses a
// verb missing a required one with the verb's `needs` words.
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
  // Not on the wire. The refusal when a required argument is missing, in the
  // dispatcher's words ("nav needs route=<...>"); every row with a required parameter has one.
  std::optional<std::string> needs;
  // Not on the wire. For a former spelling kept for old scripts, the verb it answers as.
  std::optional<std::string> aliasOf;

  // {"name", "group", "summary", "params", "mutating"}.
  JSONValue toJSON() const;
  static VerbSpec fromJSON(const JSONValue& value);
  bool operator==(const VerbSpec&) const = default;
};

// The one list of what the control protocol can do, in the order the client prints
// it. Read once, on first use, from the group files the build embeds (src/operator/verbs).
namespace OperatorManifest {

const std::vector<VerbSpec>& verbs();
const std::set<std::string>& verbNames();
// The first row with exactly this name (no case folding), or nullptr.
const VerbSpec* find(std::string_view name);
// Each group once, in the order it first appears in verbs().
const std::vector<std::string>& groups();
// The whole list as a JSON array of verbs.
JSONValue toJSON();
// Reads a table from its group files and its printed order; a slip in them (an
// unknown member, a required parameter without its refusal, a name in one place
// and not the other) throws std::logic_error naming the file and the row.
std::vector<VerbSpec> read(std::string_view order, const std::vector<VerbTableData::File>& files);

}  // namespace OperatorManifest

}  // namespace tavorin
