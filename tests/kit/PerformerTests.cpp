#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "kit/Performer.hpp"

using namespace tavorin;

TEST(Easing, GlidesTakeSixtyStepsASecondBetweenTwoAnd240) {
  EXPECT_EQ(Easing::steps(0.01), 2);
  EXPECT_EQ(Easing::steps(0.5), 30);
  EXPECT_EQ(Easing::steps(10), 240);
  const auto curve = Easing::curve(30);
  ASSERT_EQ(curve.size(), 30u);
  EXPECT_DOUBLE_EQ(curve.back(), 1.0);
  // Slow at both ends, fast in the middle, and never back.
  for (std::size_t i = 1; i < curve.size(); ++i) EXPECT_GE(curve[i], curve[i - 1]);
  EXPECT_LT(curve[0], 1.0 / 30);
  EXPECT_GT(curve[15] - curve[14], 1.0 / 30);
  EXPECT_NEAR(Easing::bezier(0.5), 0.5, 1e-6);
}

namespace {

struct Sleeper final : Performer {
  void activate(const std::string&) override {}
  void open(const std::string&) override {}
  void key(const std::string&) override {}
  void type(const std::string&) override {}
  void move(double, double, std::optional<double>) override {}
  void scroll(double, std::optional<double>) override {}
  void click(double, double) override {}
  std::string js(const std::string&) override { return ""; }
  void nap(double s) { pause(s); }
};

}  // namespace

TEST(Performer, AnInterruptEndsAPauseAtOnceUntilCleared) {
  Sleeper p;
  const auto start = std::chrono::steady_clock::now();
  std::thread cutter([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    p.interrupt();
  });
  EXPECT_THROW(p.nap(30), PerformCancelled);
  cutter.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_THROW(p.nap(0), PerformCancelled);  // still interrupted
  p.clearInterrupt();
  EXPECT_NO_THROW(p.nap(0.001));
}

TEST(Performer, FailuresReadAsSentences) {
  EXPECT_STREQ(PerformError::noSuchApp("Numbers").what(),
               "Couldn't bring 'Numbers' forward — is it installed and running?");
  EXPECT_STREQ(PerformError::failed("open", "not a url").what(), "open didn't work: not a url");
}
