#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>

#include "operator/OperatorManifest.hpp"

using namespace tavorin;

namespace {

const VerbSpec& row(const std::string& name) {
  const VerbSpec* v = OperatorManifest::find(name);
  if (!v) throw std::runtime_error("no row " + name);
  return *v;
}

}  // namespace

TEST(OperatorManifest, HoldsEveryVerbOnceInNineteenGroups) {
  const auto& verbs = OperatorManifest::verbs();
  EXPECT_EQ(OperatorManifest::verbNames().size(), verbs.size());  // a set: any duplicate shrinks it

  const std::vector<std::string> groups = {"status",    "nav",    "library", "production", "run",      "record",
                                           "system",    "agent",  "versions", "edit",      "music",    "blocking",
                                           "export",    "chrome", "cast",    "render",     "timeline", "transport",
                                           "app"};
  EXPECT_EQ(OperatorManifest::groups(), groups);

  const std::regex dotted("[a-z]+(\\.[a-z]+)*");
  for (const auto& v : verbs) {
    EXPECT_TRUE(std::regex_match(v.name, dotted)) << v.name;
    EXPECT_NE(std::find(groups.begin(), groups.end(), v.group), groups.end()) << v.name;
  }
  // The printed order starts and ends where the table does, and a group may come
  // back after others: `select` stands in edit, far from `copy`.
  EXPECT_EQ(verbs.front().name, "ping");
  EXPECT_EQ(verbs.back().name, "quit");
  EXPECT_EQ(row("select").group, "edit");
  EXPECT_EQ(row("music.list").group, "music");
}

TEST(OperatorManifest, LooksUpExactNamesOnly) {
  const VerbSpec* select = OperatorManifest::find("select");
  ASSERT_NE(select, nullptr);
  const auto& verbs = OperatorManifest::verbs();
  EXPECT_GE(select, verbs.data());
  EXPECT_LT(select, verbs.data() + verbs.size());
  EXPECT_EQ(select->name, "select");

  EXPECT_EQ(OperatorManifest::find("Select"), nullptr);
  EXPECT_EQ(OperatorManifest::find("PING"), nullptr);
  EXPECT_EQ(OperatorManifest::find("sel"), nullptr);  // no abbreviation
  EXPECT_EQ(OperatorManifest::find(""), nullptr);
  EXPECT_FALSE(OperatorManifest::verbNames().count("Status"));

  // Former spellings keep rows of their own so old scripts run.
  for (const char* former : {"modes", "takes", "render.flow"}) EXPECT_NE(OperatorManifest::find(former), nullptr);
}

TEST(OperatorManifest, DocumentsEveryVerbAndParameter) {
  for (const auto& v : OperatorManifest::verbs()) {
    ASSERT_FALSE(v.summary.empty()) << v.name;
    const char last = v.summary.back();
    EXPECT_TRUE(last == '.' || last == '?') << v.name;
    EXPECT_EQ(v.summary.find("  "), std::string::npos) << v.name;
    std::set<std::string> names;
    for (const auto& p : v.params) {
      EXPECT_TRUE(std::regex_match(p.name, std::regex("[a-z]+"))) << v.name << " " << p.name;
      EXPECT_TRUE(names.insert(p.name).second) << v.name << " repeats " << p.name;
      EXPECT_FALSE(p.description.empty()) << v.name << " " << p.name;
    }
  }
}

TEST(OperatorManifest, TravelsAsJSONWithExactlyItsKeys) {
  const JSONValue line = row("line.split").toJSON();
  ASSERT_NE(line.objectValue(), nullptr);
  std::set<std::string> keys;
  for (const auto& [k, _] : *line.objectValue()) keys.insert(k);
  EXPECT_EQ(keys, (std::set<std::string>{"name", "group", "summary", "params", "mutating"}));
  const JSONValue& first = line["params"]->arrayValue()->front();
  EXPECT_EQ(first, JSONValue::object({{"name", "id"}, {"required", true}, {"description", "Line id, e.g. l1."}}));

  // Every row comes back whole from its text form.
  const JSONValue all = JSONValue::decode(OperatorManifest::toJSON().encode());
  ASSERT_EQ(all.arrayValue()->size(), OperatorManifest::verbs().size());
  for (std::size_t i = 0; i < all.arrayValue()->size(); ++i)
    EXPECT_EQ(VerbSpec::fromJSON((*all.arrayValue())[i]).toJSON(), OperatorManifest::verbs()[i].toJSON());

  JSONValue broken = row("ping").toJSON();
  broken.objectValue()->erase("mutating");
  EXPECT_THROW(VerbSpec::fromJSON(broken), std::runtime_error);
  EXPECT_THROW(ParamSpec::fromJSON(JSONValue::object({{"name", "id"}, {"required", "yes"}, {"description", ""}})),
               std::runtime_error);
}

// The dispatcher refuses a missing argument with the row's own words; they must name
// every required parameter, or the refusal would send the user after the wrong one.
TEST(OperatorManifest, EveryRequiredParameterIsNamedInItsRefusal) {
  int refusals = 0;
  for (const auto& v : OperatorManifest::verbs()) {
    if (!v.needs) continue;
    ++refusals;
    EXPECT_TRUE(v.needs->rfind(v.name + " needs ", 0) == 0 || v.needs->rfind(v.name + " requires ", 0) == 0)
        << *v.needs;
    for (const auto& p : v.params)
      if (p.required) {
        EXPECT_NE(v.needs->find(p.name + "="), std::string::npos) << v.name << " " << p.name;
      }
  }
  EXPECT_EQ(refusals, 58);
  EXPECT_EQ(row("line.split").needs, "line.split needs id=<line id> and at=<characters>");
  EXPECT_EQ(row("peaks").needs, "peaks requires id=<item id>");
  EXPECT_EQ(row("render").needs, std::nullopt);  // any one of three; the verb says which itself
}

TEST(OperatorManifest, FormerSpellingsNameTheVerbTheyAnswerAs) {
  std::map<std::string, std::string> aliases;
  for (const auto& v : OperatorManifest::verbs())
    if (v.aliasOf) aliases[v.name] = *v.aliasOf;
  EXPECT_EQ(aliases, (std::map<std::string, std::string>{
                         {"modes", "pages"}, {"takes", "take.list"}, {"render.flow", "export.flow"}}));
  // A former spelling takes nothing its verb does not.
  for (const auto& [former, verb] : aliases) EXPECT_TRUE(row(former).params.empty()) << former;
}

// A slip in the table's files stops the build's first test with the file and the row.
TEST(OperatorManifest, ASlipInTheTableFilesIsNamed) {
  const std::string ping = R"({"name": "ping", "summary": "Is it up?", "mutating": false, "params": []})";
  const auto group = [](const std::string& rows) { return R"({"group": "status", "verbs": [)" + rows + "]}"; };
  const auto refusal = [&](std::string_view order, const std::string& text) -> std::string {
    const std::vector<VerbTableData::File> files{{"status.json", text}};
    try {
      OperatorManifest::read(order, files);
    } catch (const std::logic_error& e) {
      return e.what();
    }
    return "";
  };
  // A good table reads, former spelling and all.
  const std::string former = R"({"name": "pong", "summary": "Old.", "mutating": false, "params": [], "aliasOf": "ping"})";
  const std::string goodText = group(ping + "," + former);
  const std::vector<VerbTableData::File> good{{"status.json", goodText}};
  const auto table = OperatorManifest::read("pong\nping\n", good);
  ASSERT_EQ(table.size(), 2u);
  EXPECT_EQ(table[0].name, "pong");
  EXPECT_EQ(table[0].aliasOf, "ping");
  EXPECT_EQ(table[1].group, "status");

  EXPECT_EQ(refusal("ping\n", group(R"({"name": "ping", "summary": "Up?", "mutating": false, "params": [], "mutates": true})")),
            "status.json: ping has an unknown member `mutates`");
  EXPECT_EQ(refusal("ping\n", group(R"({"name": "ping", "summary": "Up?", "mutating": false,
      "params": [{"name": "id", "required": true, "description": "An id."}]})")),
            "status.json: ping has a required parameter but no `needs` refusal");
  EXPECT_EQ(refusal("ping\n", group(R"({"name": "ping", "summary": "Up?", "mutating": "no", "params": []})")),
            "status.json: ping needs a true or false `mutating`");
  EXPECT_EQ(refusal("", group(ping)), "order.txt leaves out ping");
  EXPECT_EQ(refusal("ping\nping\n", group(ping)), "order.txt lists ping, which no group has, or lists it twice");
  EXPECT_EQ(refusal("ping\n", group(ping + "," + ping)), "the verb ping has two rows");
  EXPECT_EQ(refusal("pong\n", group(R"({"name": "pong", "summary": "Old.", "mutating": false, "params": [], "aliasOf": "gone"})")),
            "pong is a former spelling of gone, which is not a verb of its own");
  EXPECT_EQ(refusal("ping\n", R"({"group": "nav", "verbs": []})"), "status.json holds the group `nav`");
  EXPECT_NE(refusal("ping\n", "{"), "");
}
