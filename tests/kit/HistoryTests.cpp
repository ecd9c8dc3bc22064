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

  std::optional<HistoryStep> last;
  for (int i = 0; i < 100; ++i) last = history.stepBack(step("", "now"));
  EXPECT_EQ(last->rec.title, "v2");
  EXPECT_FALSE(history.stepBack(step("", "now")));
}

TEST(History, StepBackAndForwardRoundTrip) {
  History history;
  history.push(step("the move", "before", "wait 1"));
  const HistoryStep current = step("", "after", "wait 2");

  const auto back = history.stepBack(current);
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, step("the move", "before", "wait 1"));
  EXPECT_EQ(history.future, std::vector{step("the move", "after", "wait 2")});

  const auto forward = history.stepForward(*back);
  ASSERT_TRUE(forward);
  EXPECT_EQ(*forward, step("the move", "after", "wait 2"));
  EXPECT_EQ(history.past, std::vector{step("the move", "before", "wait 1")});
  EXPECT_FALSE(history.stepForward(*forward));
}

TEST(History, AFreshEditEndsTheForwardWalk) {
  History history;
  history.name("nothing to rename");
  history.push(step("one", "a"));
  history.push(step("", "b"));
  history.name("the paste");
  EXPECT_EQ(history.past[0].what, "one");
  EXPECT_EQ(history.past[1].what, "the paste");

  history.stepBack(step("", "c"));
  history.push(step("three", "d"));
  EXPECT_FALSE(history.canStepForward());
  history.forget();
  EXPECT_FALSE(history.canStepBack());
}

}  // namespace
}  // namespace tavorin
