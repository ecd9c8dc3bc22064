#include "operator/OperatorManifest.hpp"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "operator/VerbTableData.hpp"

namespace tavorin {

namespace {

std::string member(const JSONValue& value, const char* key, const char* what) {
  const JSONValue* m = value[key];
  if (!m || !m->stringValue())
    throw std::runtime_error(std::string(what) + " needs a text `" + key + "`");
  return *m->stringValue();
}

bool flag(const JSONValue& value, const char* key, const char* what) {
  const JSONValue* m = value[key];
  if (!m || !m->boolValue())
    throw std::runtime_error(std::string(what) + " needs a true or false `" + key + "`");
  return *m->boolValue();
}

// A row's text member, refusing anything else: the table is ours, so a slip in it
// should stop the first test rather than print a half-documented verb.
std::string text(const JSONValue& row, const char* key, const std::string& where) {
  const JSONValue* m = row[key];
  if (!m || !m->stringValue()) throw std::logic_error(where + " needs a text `" + key + "`");
  return *m->stringValue();
}

bool truth(const JSONValue& row, const char* key, const std::string& where) {
  const JSONValue* m = row[key];
  if (!m || !m->boolValue()) throw std::logic_error(where + " needs a true or false `" + key + "`");
  return *m->boolValue();
}

void onlyKeys(const JSONValue& row, std::initializer_list<std::string_view> keys, const std::string& where) {
  for (const auto& [key, _] : *row.objectValue())
    if (std::find(keys.begin(), keys.end(), key) == keys.end())
      throw std::logic_error(where + " has an unknown member `" + key + "`");
}

VerbSpec readRow(const JSONValue& row, const std::string& group, const std::string& file) {
  if (!row.objectValue()) throw std::logic_error(file + " holds a row that is not an object");
  VerbSpec verb;
  verb.name = text(row, "name", file + ": a row");
  const std::string where = file + ": " + verb.name;
  onlyKeys(row, {"name", "summary", "mutating", "params", "needs", "aliasOf"}, where);
  verb.group = group;
  verb.summary = text(row, "summary", where);
  verb.mutating = truth(row, "mutating", where);
  const JSONValue* params = row["params"];
  if (!params || !params->arrayValue()) throw std::logic_error(where + " needs a list of `params`");
  bool needsSome = false;
  for (const auto& p : *params->arrayValue()) {
    if (!p.objectValue()) throw std::logic_error(where + " has a parameter that is not an object");
    onlyKeys(p, {"name", "required", "description"}, where + " parameter");
    ParamSpec param{text(p, "name", where + " parameter"), truth(p, "required", where + " parameter"),
                    text(p, "description", where + " parameter")};
    needsSome = needsSome || param.required;
    verb.params.push_back(std::move(param));
  }
  if (row["needs"]) verb.needs = text(row, "needs", where);
  if (row["aliasOf"]) verb.aliasOf = text(row, "aliasOf", where);
  // A required parameter is refused in the row's own words, so it must have some.
  if (needsSome != verb.needs.has_value())
    throw std::logic_error(where + (needsSome ? " has a required parameter but no `needs` refusal"
                                              : " has a `needs` refusal but no required parameter"));
  return verb;
}

}  // namespace

// The rows in the order `tavorinctl verbs` prints them. Groups are not contiguous
// on purpose: a verb stands where it reads best, and former spellings (`modes`,
// `takes`, `render.flow`) keep rows of their own so that old scripts go on running.
std::vector<VerbSpec> OperatorManifest::read(std::string_view order, const std::vector<VerbTableData::File>& files) {
  std::map<std::string, VerbSpec, std::less<>> rows;
  for (const auto& file : files) {
    const std::string name(file.name);
    JSONValue doc;
    try {
      doc = JSONValue::decode(file.text);
    } catch (const std::exception& e) {
      throw std::logic_error(name + " is not JSON: " + e.what());
    }
    if (!doc.objectValue()) throw std::logic_error(name + " is not an object");
    onlyKeys(doc, {"group", "verbs"}, name);
    const std::string group = text(doc, "group", name);
    if (group + ".json" != name) throw std::logic_error(name + " holds the group `" + group + "`");
    const JSONValue* verbs = doc["verbs"];
    if (!verbs || !verbs->arrayValue()) throw std::logic_error(name + " needs a list of `verbs`");
    for (const auto& row : *verbs->arrayValue()) {
      VerbSpec verb = readRow(row, group, name);
      const std::string key = verb.name;
      if (!rows.emplace(key, std::move(verb)).second) throw std::logic_error("the verb " + key + " has two rows");
    }
  }
  std::vector<VerbSpec> table;
  table.reserve(rows.size());
  while (!order.empty()) {
    const auto end = order.find('\n');
    const std::string_view name = order.substr(0, end);
    order = end == std::string_view::npos ? std::string_view() : order.substr(end + 1);
    if (name.empty()) continue;
    const auto it = rows.find(name);
    if (it == rows.end())
      throw std::logic_error("order.txt lists " + std::string(name) + ", which no group has, or lists it twice");
    table.push_back(std::move(it->second));
    rows.erase(it);
  }
  if (!rows.empty()) throw std::logic_error("order.txt leaves out " + rows.begin()->first);
  for (const auto& v : table) {
    if (!v.aliasOf) continue;
    const auto target =
        std::find_if(table.begin(), table.end(), [&](const VerbSpec& t) { return t.name == *v.aliasOf; });
    if (target == table.end() || target->aliasOf)
      throw std::logic_error(v.name + " is a former spelling of " + *v.aliasOf + ", which is not a verb of its own");
  }
  return table;
}

JSONValue ParamSpec::toJSON() const {
  return JSONValue::object({{"name", name}, {"required", required}, {"description", description}});
}

ParamSpec ParamSpec::fromJSON(const JSONValue& value) {
  return ParamSpec{member(value, "name", "a parameter"), flag(value, "required", "a parameter"),
                   member(value, "description", "a parameter")};
}

JSONValue VerbSpec::toJSON() const {
  JSONValue::Array list;
  list.reserve(params.size());
  for (const auto& p : params) list.push_back(p.toJSON());
  return JSONValue::object({{"name", name},
                            {"group", group},
                            {"summary", summary},
                            {"params", JSONValue(std::move(list))},
                            {"mutating", mutating}});
}

VerbSpec VerbSpec::fromJSON(const JSONValue& value) {
  VerbSpec verb;
  verb.name = member(value, "name", "a verb");
  verb.group = member(value, "group", "a verb");
  verb.summary = member(value, "summary", "a verb");
  verb.mutating = flag(value, "mutating", "a verb");
  const JSONValue* params = value["params"];
  if (!params || !params->arrayValue()) throw std::runtime_error("a verb needs a list of `params`");
  for (const auto& p : *params->arrayValue()) verb.params.push_back(ParamSpec::fromJSON(p));
  return verb;
}

const std::vector<VerbSpec>& OperatorManifest::verbs() {
  static const std::vector<VerbSpec> table = read(VerbTableData::order, VerbTableData::groups);
  return table;
}

const std::set<std::string>& OperatorManifest::verbNames() {
  static const std::set<std::string> names = [] {
    std::set<std::string> s;
    for (const auto& v : verbs()) s.insert(v.name);
    return s;
  }();
  return names;
}

const VerbSpec* OperatorManifest::find(std::string_view name) {
  for (const auto& v : verbs())
    if (v.name == name) return &v;
  return nullptr;
}

const std::vector<std::string>& OperatorManifest::groups() {
  static const std::vector<std::string> list = [] {
    std::vector<std::string> out;
    std::set<std::string> seen;
    for (const auto& v : verbs())
      if (seen.insert(v.group).second) out.push_back(v.group);
    return out;
  }();
  return list;
}

JSONValue OperatorManifest::toJSON() {
  JSONValue::Array list;
  list.reserve(verbs().size());
  for (const auto& v : verbs()) list.push_back(v.toJSON());
  return JSONValue(std::move(list));
}

}  // namespace tavorin
