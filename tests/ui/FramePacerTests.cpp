#include <gtest/gtest.h>

#include "ui/FramePacer.hpp"

using namespace tavorin;
using namespace std::chrono_literals;
using Clock = FramePacer::Clock;

TEST(FramePacer, AnIdleWindowOwesNothingAndSleeps) {
  FramePacer p(16ms);
  EXPECT_FALSE(p.next());
  EXPECT_FALSE(p.due(Clock::now()));
}

TEST(FramePacer, AFirstRequestDrawsAtOnceAndARunOfRequestsDrawsOnceAnInterval) {
  FramePacer p(16ms);
  const Clock::time_point t0{std::chrono::seconds(100)};
  p.request();
  EXPECT_TRUE(p.due(t0));
  p.drawn(t0);
  EXPECT_FALSE(p.next());
  // Three changes of the model in quick succession are one frame, drawn no sooner
  // than an interval after the last and no later.
  p.request();
  p.request();
  p.request();
  EXPECT_FALSE(p.due(t0 + 5ms));
  EXPECT_TRUE(p.due(t0 + 16ms));
  EXPECT_EQ(*p.next(), t0 + 16ms);
  p.drawn(t0 + 16ms);
  EXPECT_FALSE(p.next());
}

TEST(FramePacer, InputOwesTwoFramesAndMotionKeepsDrawingUntilItStops) {
  FramePacer p(10ms);
  const Clock::time_point t0{std::chrono::seconds(5)};
  p.request(2);
  p.request(1);  // a smaller ask does not cancel the larger
  p.drawn(t0);
  EXPECT_EQ(p.owed(), 1);
  p.drawn(t0 + 10ms);
  EXPECT_FALSE(p.next());
  p.setAnimating(true);
  for (int k = 2; k < 6; ++k) {
    EXPECT_EQ(*p.next(), t0 + 10ms * k);
    p.drawn(t0 + 10ms * k);
  }
  p.setAnimating(false);
  EXPECT_FALSE(p.next());
}

TEST(FramePacer, AFilmPlaysAtItsOwnRateAndInputStillAnswersAtTheInterval) {
  FramePacer p(16ms);
  const Clock::time_point t0{std::chrono::seconds(7)};
  p.setAnimating(true, 33ms);
  p.drawn(t0);
  EXPECT_EQ(*p.next(), t0 + 33ms);
  p.drawn(t0 + 33ms);
  p.request();  // a click while it plays is not kept waiting for the film's next frame
  EXPECT_EQ(*p.next(), t0 + 49ms);
  p.drawn(t0 + 49ms);
  EXPECT_EQ(*p.next(), t0 + 82ms);
  // A pace quicker than the interval never draws more often than the interval.
  p.setAnimating(true, 5ms);
  EXPECT_EQ(*p.next(), t0 + 65ms);
}
