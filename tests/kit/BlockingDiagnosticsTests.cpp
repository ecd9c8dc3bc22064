#include <gtest/gtest.h>

#include "kit/TestProductions.hpp"
#include "kit/Blocking.hpp"

using namespace tavorin;
using Severity = BlockingDiagnostic::Severity;

namespace {

using test::production;

std::vector<BlockingDiagnostic> warnings(std::string_view script, const Recording& recording) {
  std::vector<BlockingDiagnostic> out;
  for (auto& d : Blocking::diagnostics(script, recording))
    if (d.severity == Severity::warning) out.push_back(d);
  return out;
}

const std::string unperformableTail =
    " The runner would reach this step and pass it by, and only the footage would say so.";

}  // namespace

TEST(BlockingDiagnostics, AnchorsThatNameNoLine) {
  const Recording recording = production({{"l1", 0}, {"l2", 5}});
  EXPECT_TRUE(Blocking::diagnostics("", recording).empty());
  EXPECT_TRUE(Blocking::grouped({}).empty());

  const auto found = warnings("wait 1\nwith l9 until l8:\n  click 1 2\n  click 3 4\nat 2 until l1:\n  wait 1", recording);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].line, 2);
  EXPECT_EQ(found[0].message,
            "No line l9 in this production \u2014 this step has nothing to hang off, so it will run in sequence "
            "instead.");
  EXPECT_EQ(found[0].source, "with l9 until l8:");
  EXPECT_EQ(found[1].message, "No line l8 to run until.");

  const auto unknown = warnings("\n  frobnicate 3  # eh", recording);
  ASSERT_EQ(unknown.size(), 1u);
  EXPECT_EQ(unknown[0].line, 2);
  EXPECT_EQ(unknown[0].source, "frobnicate 3");
  EXPECT_EQ(unknown[0].message, "Not a step this grammar knows, so it will be skipped. The steps are listed in docs/stage-script.md.");
}

TEST(BlockingDiagnostics, NotesFoldWhenTheyDifferOnlyInWhatTheyQuote) {
  const Recording recording = production({{"l1", 0}, {"l2", 5}});
  const auto all = Blocking::diagnostics("with l1:\n  key cmd+s\n  click 1,2\n  wait 1\nwith l2:\n  js \"a\"\n  js \"b\"",
                                         recording);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].line, 3);
  EXPECT_EQ(all[0].severity, Severity::note);
  EXPECT_EQ(all[0].message,
            "Lands at the same moment as 'key cmd+s'. The screen will do them back to back, not at once.");
  EXPECT_EQ(all[0].source, "click 1,2");

  auto groups = Blocking::grouped(all);
  ASSERT_EQ(groups.size(), 1u);
  EXPECT_EQ(groups[0].id, "note.0");
  EXPECT_EQ(groups[0].message,
            "Lands at the same moment as another step. The screen will do them back to back, not at once.");
  EXPECT_EQ(groups[0].lines, (std::vector<int>{3, 4, 7}));

  // Identical notes keep their message; warnings come first, one each, by line.
  const BlockingDiagnostic same{9, Severity::note, "Lands at the same moment as 'js'. Soon.", "js"};
  groups = Blocking::grouped({same, {8, Severity::warning, "b", ""}, {2, Severity::warning, "a", ""},
                              {4, Severity::note, "No quotes here.", ""}, {3, Severity::note, same.message, "js"}});
  ASSERT_EQ(groups.size(), 4u);
  EXPECT_EQ(groups[0], (DiagnosticGroup{"warning.0", Severity::warning, "a", {2}}));
  EXPECT_EQ(groups[1], (DiagnosticGroup{"warning.1", Severity::warning, "b", {8}}));
  EXPECT_EQ(groups[2], (DiagnosticGroup{"note.0", Severity::note, same.message, {3, 9}}));
  EXPECT_EQ(groups[3], (DiagnosticGroup{"note.1", Severity::note, "No quotes here.", {4}}));

  EXPECT_EQ(Blocking::withoutQuoted("a 'b' c 'd", "X"), "a X c X");
}

TEST(BlockingDiagnostics, AgentSteps) {
  const std::string note =
      "Whatever comes after the agent step runs when the agent is done, not at the time shown here. The camera "
      "keeps rolling until then.";
  // A free step after the agent: the note lands on that step, speaking of the agent.
  auto all = Blocking::diagnostics("agent \"x\"\ncue c\nwith l1:\n  wait 1\nwait 2", production({{"l1", 0}}));
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0], (BlockingDiagnostic{5, Severity::note, note, "agent \"x\""}));
  // Only a line placed after the agent: the note lands on the agent.
  all = Blocking::diagnostics("wait 1\nagent \"x\"", production({{"l1", 0}, {"l2", 1.5}}));
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].line, 2);
  EXPECT_TRUE(Blocking::diagnostics("wait 1\nagent \"x\"", production({{"l1", 1}})).empty());

  const auto found = warnings("agent \"x\" model gpt effort max model opus", production({}));
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].message,
            "'gpt' is not a model this grammar knows, so the step runs on the default. Try: sonnet, opus, haiku, "
            "fable.");
  EXPECT_EQ(found[1].message,
            "'max' is not a effort this grammar knows, so the step runs on the default. Try: low, medium, high.");
}

TEST(BlockingDiagnostics, StepsTheRunnerCannotPerform) {
  const auto refused = Blocking::unperformable(
      "open \"https://halden.example:8080/home?q=1\"\nopen \"the demo page\"\nopen \"\"\nkey cmd+\nkey shift+tab");
  ASSERT_EQ(refused.size(), 3u);
  EXPECT_EQ(refused[0].why, "'the demo page' is not an address this computer can open");
  EXPECT_EQ(refused[1].why, "'' is not an address this computer can open");
  EXPECT_EQ(refused[2].sentence(),
            "line 4, `key cmd+` \u2014 'cmd' is not a key this computer can press. Try: a-z, 0-9, return, tab, space, "
            "delete, escape, left, right, up, down, bracketleft, bracketright");

  const auto found = warnings("\n\nkey cmd+cmd+a", production({}));
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].line, 3);
  EXPECT_EQ(found[0].message, "'command' is named twice in 'cmd+cmd+a'" + unperformableTail);

  auto opens = [](std::string_view target) {
    return Blocking::unperformable("open \"" + std::string(target) + "\"").empty();
  };
  for (auto good : {"mailto:ada@example.org", "notes/readme.md", "file:///tmp/a%20b", "http://[::1]:80/x",
                    "?q", "//cdn.example/x.js", "x-app+v2:open"})
    EXPECT_TRUE(opens(good)) << good;
  for (auto bad : {"a b", "1ab:x", "http://a.example:80x/", "http://a?[x]", "http://a/%zz", "caf\u00e9.example",
                   "http://a/[x]", "<http://a>"})
    EXPECT_FALSE(opens(bad)) << bad;
}
