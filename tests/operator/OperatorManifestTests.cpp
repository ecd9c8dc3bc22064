#include <gtest/gtest.h>

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

std::string description(const std::string& verb, const std::string& param) {
  for (const auto& p : row(verb).params)
    if (p.name == param) return p.description;
  throw std::runtime_error(verb + " has no parameter " + param);
}

// name, then "?" for an optional parameter, in table order.
std::vector<std::string> signature(const std::string& verb) {
  std::vector<std::string> out;
  for (const auto& p : row(verb).params) out.push_back(p.name + (p.required ? "" : "?"));
  return out;
}

}  // namespace

TEST(OperatorManifest, HoldsEveryVerbOnceInNineteenGroups) {
  const auto& verbs = OperatorManifest::verbs();
  EXPECT_EQ(verbs.size(), 190u);
  EXPECT_EQ(OperatorManifest::verbNames().size(), 190u);  // a set: any duplicate shrinks it

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

TEST(OperatorManifest, ReportsAreExactlyTheDaggeredRows) {
  const std::set<std::string> reports = {
      "ping", "status", "where", "elements", "events", "snapshot", "pages", "modes", "render.flow",
      "project.list", "recording.list", "recording.trashed", "lines", "recent", "run.plan", "run.status",
      "agent.command", "record.status", "take.list", "takes", "viewer.info", "shoot.info", "permissions", "fonts",
      "origin", "revise.status", "diff", "diff.raw", "versions", "draft", "copy", "history", "snap", "selection",
      "inspect", "hover", "music.fetch.status", "music.list", "blocking", "blocking.cues", "blocking.diagnostics",
      "look.presets", "subtitles.fonts", "export.status", "exports", "youtube", "publish.status", "voice",
      "voice.local", "voice.groups", "cast", "casting.cast", "casting.history", "render.status", "timeline.info",
      "timeline.items", "peaks", "segment.list", "zoom.list", "transport", "line.samples"};
  ASSERT_EQ(reports.size(), 61u);
  std::set<std::string> found;
  for (const auto& v : OperatorManifest::verbs())
    if (!v.mutating) found.insert(v.name);
  EXPECT_EQ(found, reports);
  // `toasts` answers a report too, but it dismisses: it is not a pure report.
  EXPECT_TRUE(row("toasts").mutating);
}

TEST(OperatorManifest, KeepsParametersInOrderWithTheirFlags) {
  using V = std::vector<std::string>;
  EXPECT_EQ(signature("ping"), V{});
  EXPECT_EQ(signature("snapshot"), (V{"path", "settle?"}));
  EXPECT_EQ(signature("line.split"), (V{"id", "at"}));
  EXPECT_EQ(signature("render"), (V{"ids?", "stale?", "approved?", "all?", "force?", "samples?"}));
  EXPECT_EQ(signature("export"), (V{"take?", "subtitles?", "height?", "fps?", "quality?", "format?"}));
  EXPECT_EQ(signature("zoom.set"), (V{"id", "from?", "to?", "at?", "scale?", "x?", "y?", "style?", "ramp?"}));
  EXPECT_EQ(signature("casting.audition"), (V{"character", "voice?", "prompt?"}));
  EXPECT_EQ(signature("music.fetch"), (V{"url", "start?", "end?", "at?"}));
  EXPECT_EQ(signature("item.move"), (V{"id", "to", "snap?"}));
  EXPECT_EQ(signature("publish.youtube"), (V{"title?", "description?", "tags?", "privacy?", "file?"}));
}

TEST(OperatorManifest, QuotesTheProductsOwnWords) {
  EXPECT_EQ(row("ping").summary, "Is the operator server responding?");
  EXPECT_EQ(row("modes").summary, "Deprecated alias for `pages`; kept so older scripts still run.");
  EXPECT_EQ(row("render.flow").summary, "Former spelling of `export.flow`; retained for script compatibility.");
  EXPECT_EQ(row("quit").summary, "Close Tavorin like ⌘Q - control file removed, no orphan.");
  EXPECT_EQ(row("recording.trash").summary, "Move a recording to the project's trash. Reversible; nothing is deleted.");
  EXPECT_EQ(description("recording.trash", "slug"), "Recording slug.");
  EXPECT_EQ(row("toasts").summary,
            "The toasts standing at the top right of the window, newest first, with the seconds each has left. A "
            "toast under the pointer holds its clock, which `held` reports. Dismissing one is the same act as its x, "
            "or a middle click anywhere on it. A failure toast has no clock at all and stands until it is dismissed. "
            "`holds` reports that one, and its seconds read 0. Five cards stand at a time; `overflow` counts the "
            "ones behind the '+N more' card.");
  // A narrow no-break space keeps the number with its word.
  EXPECT_EQ(description("snapshot", "settle"), "Delay in seconds before motion ends (default\u202F0.3).");
  EXPECT_EQ(description("nav", "route"),
            "script · edit · library[:project]. `shoot` and `export` raise their sheets over the page you are on "
            "rather than moving you; the former names (render, projects, dailies[:project], editor[:mode]) still "
            "work.");
  EXPECT_EQ(description("lane.hide", "lane"), "screen | zooms | actions | voice | music | labels");
  EXPECT_EQ(description("segment.rate", "rate"), "1 is normal.");
  EXPECT_EQ(description("jog", "to"), "prev | next | start | end");
  EXPECT_EQ(row("line.approve").summary,
            "Mark a line as reviewed or remove the mark. The sidebar check and context menus use the same action.");
  EXPECT_EQ(description("line.approve", "on"),
            "on=1 approves, on=0 takes it back. Left out, it flips — which is what every control in the UI does.");
  EXPECT_EQ(row("export.quality").summary,
            "How hard x264 works on each frame, kept with the production. Studio is CRF 16, Balanced 20, Web 23, "
            "Small 28. Balanced is what every export before this wrote. The answer carries every level, its CRF, "
            "and the sentence the sheet shows under the row.");
  EXPECT_EQ(row("lane.mute").summary,
            "Silence a lane or list silenced lanes—the speaker icons in the timeline's left rail. Voice and Music "
            "are the lanes that make a sound; the others carry no speaker and are refused.");
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

// The dispatcher's refusals name the arguments a verb needs; each must be a
// parameter the manifest documents for that verb, or the two would disagree.
TEST(OperatorManifest, AgreesWithTheDispatchersRefusals) {
  const std::vector<std::string> refusals = {
      "jog needs to=prev|next|start|end",
      "segment.set needs from=<seconds> or to=<seconds>",
      "timecode needs format=film|seconds",
      "peaks requires id=<item id>",
      "segment.trim needs from=<seconds> or to=<seconds>",
      "lines.merge needs ids=<line id,line id>",
      "project.create needs name=<display name>",
      "project.open needs name=<slug or name>",
      "recording.open needs slug=<slug>",
      "project.trash needs name=<project>. Try: tavorinctl project.list",
      "recording.duplicate needs slug=<slug>",
      "recording.trash needs slug=<slug>",
      "recording.restore needs entry=<trash entry>",
      "youtube.privacy needs privacy=private|unlisted|public",
      "lines.glue needs id=<line id>",
      "lines.together needs ids=<line id,line id>",
      "line.split needs id=<line id> and at=<characters>",
      "lines.alone needs ids=<line id,line id>",
      "take.reveal needs id=<take id>. Try: tavorinctl takes",
      "take.replace needs path=<a video file>",
      "segment.trim needs id=<segment> [from=] [to=]",
      "segment.remove needs id=<segment>. Try: tavorinctl segment.list",
      "segment.rate needs id=<segment> rate=<0.1 to 8>",
      "segment.set needs id=<segment> [from=] [to=]",
      "zoom.set needs id=<zoom>. Try: tavorinctl zoom.list",
      "music.trim needs id=<item> in=<seconds> out=<seconds>",
      "music.add needs file=<path to an audio file> [at=<seconds>]",
      "music.gain needs id=<item> db=<decibels>",
      "zoom.remove needs id=<zoom>. Try: tavorinctl zoom.list",
      "cast.audition needs character=<id>",
      "music.fetch needs url=<youtube or other URL> [start=<seconds>] [end=<seconds>] [at=<seconds>]",
      "music.edit needs id=<music item> or close=1",
      "permissions.open needs which=screenRecording|accessibility|automation|chrome",
      "revise needs instruction=<what should change>",
      "recording.new needs prompt=<what the production should be> [title=], or title= alone for a blank recording",
      "label.add needs at=<seconds> [text=…]",
      "label.rename needs id=<label> text=<new text>",
      "item.move needs id=<item> to=<seconds>",
      "item.duplicate needs id=<item> [at=<seconds>]",
      "snap needs id=<item> to=<seconds>",
      "cue.move needs id=<cue ordinal> to=<seconds>",
      "take.select needs id=<take id>. Try: tavorinctl take.list",
      "import needs path=<file> [at=<seconds>]",
      "blocking.set needs text=<the whole script>",
      "voice.local.set needs url=<host:port> or key=<api key>",
      "line.audio needs id=<line id> path=<audio file>",
      "casting.audition needs character=<id> [voice=<id>] [prompt=<words>]",
      "casting.history needs character=<id> [voice=<id>]",
      "casting.use needs voice=<id> [character=<id>]",
      "cast.use needs character=<id>",
      "render needs ids=, stale=1 or all=1",
      "version.open needs name=<short or full version name>",
      "version.head needs name=<short or full version name>",
      "seek needs to=<seconds>",
      "line.sample.play needs id=<line id> take=<number>",
      "line.samples needs id=<line id>",
      "line.sample.use needs id=<line id> take=<number>",
      "line.sample.remove needs id=<line id> take=<number>",
      "line.approve needs id=<line id> [on=0|1]",
      "nav needs route=<script|edit|library[:project]|shoot|render>",
      "open needs dir=<path>",
      "drop needs path=<file or folder>",
      "hover needs id=<item id>",
  };
  const std::regex key("([a-z]+)=");
  for (const auto& text : refusals) {
    const std::string verb = text.substr(0, text.find(' '));
    ASSERT_NE(OperatorManifest::find(verb), nullptr) << verb;
    std::set<std::string> params;
    for (const auto& p : row(verb).params) params.insert(p.name);
    for (auto it = std::sregex_iterator(text.begin(), text.end(), key); it != std::sregex_iterator(); ++it)
      EXPECT_TRUE(params.count((*it)[1])) << verb << " documents no " << (*it)[1];
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
  ASSERT_EQ(all.arrayValue()->size(), 190u);
  for (std::size_t i = 0; i < 190; ++i)
    EXPECT_EQ(VerbSpec::fromJSON((*all.arrayValue())[i]), OperatorManifest::verbs()[i]);

  JSONValue broken = row("ping").toJSON();
  broken.objectValue()->erase("mutating");
  EXPECT_THROW(VerbSpec::fromJSON(broken), std::runtime_error);
  EXPECT_THROW(ParamSpec::fromJSON(JSONValue::object({{"name", "id"}, {"required", "yes"}, {"description", ""}})),
               std::runtime_error);
}
