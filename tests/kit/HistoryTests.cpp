#include <gtest/gtest.h>

#include "kit/History.hpp"

namespace tavorin {
namespace {

HistoryStep step(std::string what, std::string title, std::string blocking = "") {
  return {std::move(what), Recording("demo", std::move(title)), std::move(blocking)};
}

TEST(History, KeepsTheNewestHundredSteps) {
  History history;
  for (int i = 1; i <= 101; ++i) history.push(step("edit " + std::to_string(i), "v" + std::to_string(i)));
  ASSERT_EQ(history.past.size(), 100u);
  EXPECT_EQ(history.past.front().what, "edit 2");
  EXPECT_EQ(history.past.back().what, "edit 101");

  // All hundred can be walked back; the hundredth back is the oldest kept.
  std::optional<HistoryStep> last;
  for (int i = 0; i < 100; ++i) last = history.stepBack(step("", "now"));
  ASSERT_TRUE(last);
  EXPECT_EQ(last->rec.title, "v2");
  EXPECT_FALSE(history.stepBack(step("", "now")));
}

TEST(History, StepBackAndForwardRoundTrip) {
  History history;
  history.push(step("the move", "before", "wait 1"));
  const HistoryStep current = step("", "after", "wait 2");

  auto back = history.stepBack(current);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->rec.title, "before");
  EXPECT_EQ(back->blocking, "wait 1");
  EXPECT_TRUE(history.past.empty());
  ASSERT_EQ(history.future.size(), 1u);
  EXPECT_EQ(history.future.back(), (HistoryStep{"the move", current.rec, "wait 2"}));

  auto forward = history.stepForward(*back);
  ASSERT_TRUE(forward);
  EXPECT_EQ(forward->rec.title, "after");
  EXPECT_EQ(forward->blocking, "wait 2");
  EXPECT_TRUE(history.future.empty());
  EXPECT_EQ(history.past.back(), (HistoryStep{"the move", back->rec, "wait 1"}));

  EXPECT_FALSE(history.stepForward(*forward));
}

TEST(History, AFreshEditEndsTheForwardWalk) {
  History history;
  history.push(step("one", "a"));
  history.push(step("two", "b"));
  history.stepBack(step("", "c"));
  ASSERT_TRUE(history.canStepForward());
  history.push(step("three", "d"));
  EXPECT_FALSE(history.canStepForward());
  EXPECT_EQ(history.past.size(), 2u);
}

TEST(History, NameRenamesOnlyTheNewestAndForgetEmptiesBoth) {
  History history;
  history.name("nothing to rename");
  EXPECT_TRUE(history.past.empty());

  history.push(step("", "a"));
  history.push(step("", "b"));
  history.name("the paste");
  EXPECT_EQ(history.past[0].what, "");
  EXPECT_EQ(history.past[1].what, "the paste");

  history.stepBack(step("", "c"));
  history.forget();
  EXPECT_FALSE(history.canStepBack());
  EXPECT_FALSE(history.canStepForward());
}

}  // namespace
}  // namespace tavorin
