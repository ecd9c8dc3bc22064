#include <gtest/gtest.h>

#include "kit/Blocking.hpp"
#include "kit/BlockingLexer.hpp"
#include "kit/Keys.hpp"

using namespace tavorin;
using K = Blocking::Kind;

namespace {

Anchor anchorTo(std::string to, std::string edge, std::optional<double> offset = {}) {
  Anchor a;
  a.to = std::move(to);
  a.edge = std::move(edge);
  a.offset = offset;
  return a;
}

K only(std::string_view text) {
  const auto steps = Blocking::parse(text);
  EXPECT_EQ(steps.size(), 1u) << text;
  return steps.empty() ? K{} : steps.front().kind;
}

}  // namespace

TEST(Blocking, ReadsAScriptLineByLine) {
  const std::string script =
      "# the opening\n"
      "app \"Notes\"\n"
      "open \"the demo page\"\n"
      "\n"
      "cue intro\n"
      "    click 640 360\n"
      "    with l2 offset 0.5:\n"
      "        type \"hello\"  # greets\n"
      "    wait 1.2\n"
      "after l3:\n"
      "    key cmd+s\n"
      "agent \"tidy the folder\" timeout 5m model sonnet effort high\n"
      "frobnicate 3";
  const auto steps = Blocking::parse(script);
  ASSERT_EQ(steps.size(), 11u);
  for (size_t i = 0; i < steps.size(); ++i) EXPECT_EQ(steps[i].id, int(i) + 1);

  EXPECT_EQ(steps[0].kind, K(K::App{"Notes"}));
  EXPECT_EQ(steps[0].sourceLine, 2);
  EXPECT_FALSE(steps[0].anchor || steps[0].cue);
  EXPECT_EQ(steps[1].kind, K(K::Open{"the demo page"}));

  EXPECT_EQ(steps[2].kind, K(K::Cue{"intro"}));
  EXPECT_EQ(steps[2].cue, "intro");
  EXPECT_EQ(steps[3].kind, K(K::Click{640, 360}));
  EXPECT_TRUE(steps[3].indent);
  EXPECT_FALSE(steps[3].anchor);
  EXPECT_EQ(steps[3].cue, "intro");

  const Anchor block = anchorTo("l2", "start", 0.5);
  EXPECT_TRUE(steps[4].kind.is<K::AnchorHeader>());
  EXPECT_FALSE(steps[4].indent);
  EXPECT_EQ(steps[4].anchor, block);
  EXPECT_EQ(steps[4].cue, "intro");
  EXPECT_EQ(steps[5].kind, K(K::Type{"hello"}));
  EXPECT_EQ(steps[5].raw, "type \"hello\"");
  EXPECT_EQ(steps[5].anchor, block);
  EXPECT_EQ(steps[6].kind, K(K::Wait{1.2}));
  EXPECT_EQ(steps[6].anchor, block);

  EXPECT_EQ(steps[7].anchor, anchorTo("l3", "end"));
  EXPECT_FALSE(steps[7].cue);
  EXPECT_EQ(steps[8].kind, K(K::Key{"cmd+s"}));
  EXPECT_EQ(steps[8].anchor, anchorTo("l3", "end"));

  const auto* agent = steps[9].kind.as<K::Agent>();
  ASSERT_TRUE(agent);
  EXPECT_EQ(agent->prompt, "tidy the folder");
  EXPECT_EQ(agent->timeout, 300);
  EXPECT_EQ(agent->model, "sonnet");
  EXPECT_EQ(agent->effort, "high");
  EXPECT_FALSE(steps[9].anchor);
  EXPECT_TRUE(steps[10].kind.is<K::Unknown>());
  EXPECT_EQ(steps[10].kind.mark(), Blocking::Mark::unknown);
}

TEST(Blocking, CommentsAndIndentationShapeSectionsAndBlocks) {
  EXPECT_TRUE(Blocking::parse("").empty());
  EXPECT_TRUE(Blocking::parse("\n  # only a comment\n\t\n").empty());

  // A comment line at any indentation leaves the section and the block running.
  auto steps = Blocking::parse("cue a\n  with l1:\n# aside\n    click 1 2\nclick 3 4");
  ASSERT_EQ(steps.size(), 4u);
  EXPECT_EQ(steps[2].cue, "a");
  EXPECT_EQ(steps[2].anchor, anchorTo("l1", "start"));
  EXPECT_EQ(steps[2].sourceLine, 4);
  EXPECT_FALSE(steps[3].cue);  // unindented: the section ends on the step itself

  // A tab indents; an indented header swaps the anchor but keeps the section.
  steps = Blocking::parse("cue a\n\twith l1:\n\t\tclick 1 2\n\tafter l2:\n\t\tclick 3 4");
  EXPECT_EQ(steps[1].cue, "a");
  EXPECT_FALSE(steps[1].indent);
  EXPECT_EQ(steps[2].anchor, anchorTo("l1", "start"));
  EXPECT_EQ(steps[4].anchor, anchorTo("l2", "end"));
  EXPECT_EQ(steps[4].cue, "a");

  // "#" cuts even inside quotes, so the closing quote is lost.
  EXPECT_TRUE(only("type \"issue #4\"").is<K::Unknown>());
  // An indented cue line is no header.
  EXPECT_TRUE(Blocking::parse("cue a\n  cue b")[1].kind.is<K::Unknown>());
  // Only a line feed ends a line: a carriage return sticks to the word before it.
  EXPECT_TRUE(only("wait 1\r").is<K::Unknown>());
}

TEST(Blocking, HeadersAndTheirNearMisses) {
  Anchor at;
  at.offset = 12;
  EXPECT_EQ(Blocking::parseAnchorHeader("at 12:"), at);
  EXPECT_FALSE(Blocking::parseAnchorHeader("at soon:"));
  EXPECT_TRUE(only("at soon:").is<K::Unknown>());
  for (auto text : {"with:", "after:", "with l2", "before l2:"}) EXPECT_TRUE(only(text).is<K::Unknown>()) << text;

  auto bad = Blocking::parseAnchorHeader("with l2 offset x:");
  ASSERT_TRUE(bad);
  EXPECT_FALSE(bad->offset);
  auto full = Blocking::parseAnchorHeader("after l3  until l5 offset -0.5 extra :");
  ASSERT_TRUE(full);
  EXPECT_EQ(full->until, "l5");
  EXPECT_EQ(full->offset, -0.5);
  EXPECT_EQ(full->edge, "end");

  EXPECT_EQ(Blocking::parseCueHeader("cue take-it_2"), "take-it_2");
  EXPECT_EQ(Blocking::parseCueHeader("cue caf\u00e9"), "caf\u00e9");
  for (auto text : {"cue", "cue a b", "cue a!", "Cue a", "cue \u2192"})
    EXPECT_FALSE(Blocking::parseCueHeader(text)) << text;
}

TEST(Blocking, StepForms) {
  EXPECT_EQ(only("type \"\""), K(K::Type{""}));
  EXPECT_TRUE(only("type \"").is<K::Unknown>());
  EXPECT_EQ(only("type \"a \"b\" c\""), K(K::Type{"a \"b\" c"}));
  EXPECT_TRUE(only("app Notes").is<K::Unknown>());
  EXPECT_EQ(only("js \"document.title\""), K(K::Js{"document.title"}));

  EXPECT_EQ(only("wait 1.5"), K(K::Wait{1.5}));
  EXPECT_EQ(only("hold +2"), K(K::Hold{2}));
  for (auto text : {"wait 1.5s", "Wait 2", "wait", "wait nan", "wait inf", "hold -", "wait 0x10"})
    EXPECT_TRUE(only(text).is<K::Unknown>()) << text;

  EXPECT_TRUE(only("key").is<K::Unknown>());
  EXPECT_TRUE(only("key \"\"").is<K::Unknown>());
  EXPECT_EQ(only("key nonsense"), K(K::Key{"nonsense"}));
  EXPECT_EQ(only("key  cmd + \"s\""), K(K::Key{"cmd + s"}));

  for (auto text : {"click 640,360", "click 640px 360px", "click 640, 360"})
    EXPECT_EQ(only(text), K(K::Click{640, 360})) << text;
  EXPECT_TRUE(only("click 640").is<K::Unknown>());
  EXPECT_EQ(only("move 640 360 over 0.8s"), K(K::Move{640, 360, 0.8}));
  EXPECT_EQ(only("move 1 2"), K(K::Move{1, 2, std::nullopt}));
  EXPECT_EQ(only("scroll -400 over 1s"), K(K::Scroll{-400, 1.0}));
  EXPECT_EQ(only("scroll over 2"), K(K::Scroll{2, 2.0}));  // the value of "over" counts as pixels too
  EXPECT_EQ(only("move 1 2 over soon over 3"), K(K::Move{1, 2, std::nullopt}));
}

TEST(Blocking, AgentCalls) {
  auto timeout = [](std::string_view line) { return Blocking::agentCall(line).value().timeout; };
  EXPECT_EQ(timeout("agent \"x\" timeout 90"), 90);
  EXPECT_EQ(timeout("agent \"x\" timeout 2m"), 120);
  EXPECT_EQ(timeout("agent \"x\" timeout 45s"), 45);
  EXPECT_EQ(timeout("agent \"x\" timeout 2m timeout soon"), 600);
  EXPECT_EQ(timeout("agent \"x\""), Blocking::defaultAgentTimeout);

  auto call = Blocking::agentCall("agent effort low \"tidy up\" model gpt rules \"be kind\" model opus rules \"\"");
  ASSERT_TRUE(call);
  EXPECT_EQ(call->prompt, "tidy up");
  EXPECT_EQ(call->model, "opus");
  EXPECT_EQ(call->effort, "low");
  EXPECT_FALSE(call->rules);  // the later, empty rules win

  EXPECT_FALSE(Blocking::agentCall("agent model gpt"));  // no prompt
  EXPECT_FALSE(Blocking::agentCall("agent \"x\" model gpt")->model);
  EXPECT_TRUE(only("agent \"\"").is<K::Unknown>());
  EXPECT_TRUE(only("agent tidy up").is<K::Unknown>());

  const auto words = Blocking::words("a \"b c\"d \"open");
  ASSERT_EQ(words.size(), 4u);
  EXPECT_EQ(words[1], (Blocking::Word{"b c", true}));
  EXPECT_EQ(words[2], (Blocking::Word{"d", false}));
  EXPECT_EQ(words[3], (Blocking::Word{"open", false}));
}

TEST(BlockingLexer, ColoursWordsByWhetherTheLineParses) {
  using L = BlockingLexer::Kind;
  auto kinds = [](std::string_view text) {
    std::vector<L> out;
    for (const auto& token : BlockingLexer::tokens(text)) out.push_back(token.kind);
    return out;
  };
  EXPECT_EQ(kinds("wait 1.5s"), (std::vector<L>{L::unknown, L::number}));
  EXPECT_EQ(kinds("Wait 2"), (std::vector<L>{L::unknown, L::number}));
  EXPECT_EQ(kinds("WAIT"), (std::vector<L>{L::unknown}));
  EXPECT_EQ(kinds("scroll 4 over 1s"), (std::vector<L>{L::keyword, L::number, L::anchorWord, L::number}));
  // Classing ignores case and edge punctuation; only step keywords and plain words turn unknown.
  EXPECT_EQ(kinds("  With L2, offset 0.5:"), (std::vector<L>{L::anchorWord, L::lineRef, L::anchorWord, L::number}));
  EXPECT_EQ(kinds("with l2:"), (std::vector<L>{L::anchorWord, L::lineRef}));

  const std::string source = "app \"Notes\"\n  type \"a # b\"";
  const auto tokens = BlockingLexer::tokens(source);
  ASSERT_EQ(tokens.size(), 5u);
  EXPECT_EQ(tokens[1].kind, L::string);
  EXPECT_EQ(tokens[1].text, "\"Notes\"");
  // The second line is cut at "#": an open string up to there, then the comment.
  EXPECT_EQ(tokens[2].kind, L::unknown);
  EXPECT_EQ(tokens[3].kind, L::string);
  EXPECT_EQ(tokens[3].text, "\"a ");
  EXPECT_EQ(tokens[4].kind, L::comment);
  for (const auto& token : tokens)
    EXPECT_EQ(source.substr(token.range.begin, token.range.end - token.range.begin), token.text);
}

TEST(Keys, CombinationsAndRefusals) {
  auto combo = Keys::parse("CMD + Return");
  ASSERT_TRUE(combo);
  EXPECT_EQ(combo->modifiers, std::vector{Keys::Modifier::command});
  EXPECT_EQ(combo->name, "return");
  EXPECT_EQ(combo->code, 36);
  combo = Keys::parse("\u2303+opt+'f12'");
  ASSERT_TRUE(combo);
  EXPECT_EQ(combo->modifiers, (std::vector{Keys::Modifier::control, Keys::Modifier::option}));
  EXPECT_EQ(combo->code, 111);
  EXPECT_EQ(Keys::parse("shift+=")->code, 24);

  EXPECT_FALSE(Keys::parse("cmd+cmd+a"));
  EXPECT_EQ(Keys::refusal("cmd+command+a"), "'command' is named twice in 'cmd+command+a'");
  EXPECT_EQ(Keys::refusal(" \t"), "`key` needs a key to press");
  EXPECT_EQ(Keys::refusal("hyper+a"), "'hyper' is not a modifier. Try: cmd, shift, alt, ctrl");
  EXPECT_EQ(Keys::refusal("cmd+"),
            "'cmd' is not a key this computer can press. Try: a-z, 0-9, return, tab, space, delete, escape, left, "
            "right, up, down, bracketleft, bracketright");
  EXPECT_FALSE(Keys::refusal("cmd+shift+p"));

  const auto names = Keys::names();
  EXPECT_EQ(names.size(), 91u);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  for (const auto& name : names) EXPECT_TRUE(Keys::code(name)) << name;
  EXPECT_EQ(Keys::code("forwarddelete"), 117);
  EXPECT_EQ(Keys::hint().size(), 13u);
}
