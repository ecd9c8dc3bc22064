#include <gtest/gtest.h>

#include "TestProductions.hpp"
#include "kit/RunPlan.hpp"

using namespace tavorin;

namespace {

std::vector<std::tuple<int, double, std::string, int>> rows(const RunPlan& plan) {
  std::vector<std::tuple<int, double, std::string, int>> out;
  for (const auto& e : plan.events) out.emplace_back(e.id, e.time, e.description, e.sourceLine);
  return out;
}

}  // namespace

TEST(RunPlan, EventsComeInTimeOrderWithUnknownStepsLeftOut) {
  const Recording rec = test::production({{"l1", 1}, {"l2", 6}});
  const std::string script =
      "wait 1.5\n"
      "after l1:\n"
      "  key cmd+s\n"
      "  type \"hi\"\n"
      "frobnicate\n"
      "click 10 20\n"
      "# comment\n"
      "cue intro\n"
      "with l2:\n"
      "  hold 3\n";
  const RunPlan plan = RunPlan::make(script, rec);
  // Steps of one block share its time and keep their source order; the header is no event.
  const std::vector<std::tuple<int, double, std::string, int>> expected{
      {1, 0, "wait 1.5s", 1}, {6, 1.5, "click 10,20", 6}, {7, 1.5, "intro", 8},
      {3, 3, "key cmd+s", 3}, {4, 3, "type hi", 4},       {9, 6, "hold 3.0s", 10}};
  EXPECT_EQ(rows(plan), expected);
  EXPECT_TRUE(plan.events[2].kind.is<Blocking::Kind::Cue>());
  // The hold at 6 runs to 9, past the last line's end at 8.
  EXPECT_DOUBLE_EQ(plan.duration, 9);
  EXPECT_EQ(RunPlan::skipped(script), std::vector<std::string>{"frobnicate"});
}

TEST(RunPlan, DurationIsTheLaterOfTheTimelineAndWhatTheStepsOccupy) {
  const Recording rec = test::production({{"l1", 0}, {"l2", 10}});
  EXPECT_DOUBLE_EQ(RunPlan::make("click 1 1", rec).duration, 12);
  EXPECT_DOUBLE_EQ(RunPlan::make("wait 11\nmove 1 1 over 2.5", rec).duration, 13.5);
  EXPECT_DOUBLE_EQ(RunPlan::make("scroll 300 over 4", Recording{}).duration, 4);
  // Nothing to perform plans nothing, whatever the timeline's length.
  EXPECT_DOUBLE_EQ(RunPlan::make("", rec).duration, 0);
  EXPECT_DOUBLE_EQ(RunPlan::make("nonsense\nmore nonsense", rec).duration, 0);
  EXPECT_EQ(RunPlan::skipped("nonsense\nclick 1 1\nmore nonsense"),
            (std::vector<std::string>{"nonsense", "more nonsense"}));
}

TEST(RunPlan, PausesAreTheAuthorsTimingAndNoActions) {
  using K = Blocking::Kind;
  for (const K& k : {K(K::Wait{1}), K(K::Hold{1}), K(K::Cue{"a"}), K(K::AnchorHeader{}), K(K::Unknown{})})
    EXPECT_TRUE(RunPlan::isPause(k));
  for (const K& k : {K(K::Click{}), K(K::Key{"a"}), K(K::Type{"a"}), K(K::Js{"1"}), K(K::Agent{})})
    EXPECT_FALSE(RunPlan::isPause(k));
}
