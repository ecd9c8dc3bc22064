#include <gtest/gtest.h>

#include "app/model/ManualMainActor.hpp"
#include "app/model/ToastCenter.hpp"

using namespace tavorin;
using namespace std::chrono_literals;

class ToastCenterTest : public ::testing::Test {
 protected:
  ManualMainActor actor;
  ToastCenter toasts{actor};
};

TEST_F(ToastCenterTest, ClockedToastsExpireAfterSixSecondsAndTheSweepStops) {
  toasts.post(Toast::Kind::voice, "rendered l3");
  actor.advance(5900ms);
  ASSERT_EQ(toasts.toasts().size(), 1u);
  EXPECT_NEAR(toasts.secondsLeft(toasts.toasts()[0]), 0.1, 1e-9);
  actor.advance(250ms);
  EXPECT_TRUE(toasts.toasts().empty());
  EXPECT_EQ(actor.pendingTimers(), 0u);  // nothing left to sweep, so no timer either
}

TEST_F(ToastCenterTest, NewestFirstWithFiveShownAndTwentyFourKept) {
  for (int i = 1; i <= 30; ++i) toasts.post(Toast::Kind::export_, "export " + std::to_string(i));
  ASSERT_EQ(toasts.toasts().size(), 24u);
  EXPECT_EQ(toasts.toasts().front().text, "export 30");
  EXPECT_EQ(toasts.toasts().back().text, "export 7");  // the oldest went first
  EXPECT_EQ(toasts.overflow(), 19u);
  toasts.dismissOverflow();
  EXPECT_EQ(toasts.toasts().size(), 5u);
  EXPECT_EQ(toasts.overflow(), 0u);
  EXPECT_EQ(toasts.toasts().back().text, "export 26");
}

TEST_F(ToastCenterTest, AFailureToastHasNoClockAndStandsUntilDismissed) {
  const auto id = toasts.post(Toast::Kind::failure, "the engine is down");
  actor.advance(60s);
  ASSERT_EQ(toasts.toasts().size(), 1u);
  EXPECT_EQ(toasts.secondsLeft(toasts.toasts()[0]), 0.0);
  EXPECT_FALSE(toasts.dismiss("no-such-toast"));
  EXPECT_TRUE(toasts.dismiss(id));
  EXPECT_TRUE(toasts.toasts().empty());
}

TEST_F(ToastCenterTest, ThePointerHoldsTheClockAndLeavingRestartsIt) {
  const auto id = toasts.post(Toast::Kind::upload, "uploaded");
  actor.advance(2s);
  toasts.hover(id, true);
  actor.advance(30s);
  ASSERT_EQ(toasts.toasts().size(), 1u);
  EXPECT_NEAR(toasts.secondsLeft(toasts.toasts()[0]), 4.0, 1e-9);
  toasts.hover(id, false);
  actor.advance(3900ms);
  EXPECT_EQ(toasts.toasts().size(), 1u);
  actor.advance(250ms);
  EXPECT_TRUE(toasts.toasts().empty());
}

TEST_F(ToastCenterTest, DismissAllClearsTheStack) {
  toasts.post(Toast::Kind::voice, "a");
  toasts.post(Toast::Kind::failure, "b");
  toasts.dismissAll();
  EXPECT_TRUE(toasts.toasts().empty());
}
