#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "kit/SoundCue.hpp"

using namespace tavorin;

namespace {

// Upward zero crossings over a stretch: a tone's frequency times the stretch's length.
int upwardCrossings(const std::vector<float>& x, std::size_t from, std::size_t to) {
  int n = 0;
  for (std::size_t i = from + 1; i < to; ++i)
    if (x[i - 1] < 0 && x[i] >= 0) ++n;
  return n;
}

}  // namespace

TEST(SoundCue, EachCueIsItsNotesAtTheirPitchWithQuietEdgesThatDoNotClick) {
  constexpr int rate = 48000;
  for (const auto& card : SoundCues::all()) {
    const auto x = SoundCues::synthesize(card.cue, rate);
    EXPECT_NEAR(static_cast<double>(x.size()) / rate, card.seconds(), 1.0 / rate * card.notes.size()) << card.name;
    const float peak = *std::max_element(x.begin(), x.end(), [](float a, float b) { return std::abs(a) < std::abs(b); });
    EXPECT_LE(std::abs(peak), 0.2f) << card.name;  // under narration, never over it
    EXPECT_EQ(x.front(), 0.0f) << card.name;
    EXPECT_LT(std::abs(x.back()), 0.01f) << card.name;

    // Each note, measured in the middle of its own stretch, has the pitch its name says.
    const auto noteFrames = static_cast<std::size_t>(std::lround(card.noteSeconds * rate));
    const auto gapFrames = static_cast<std::size_t>(std::lround(card.gap * rate));
    for (std::size_t n = 0; n < card.notes.size(); ++n) {
      const std::size_t begin = n * (noteFrames + gapFrames);
      const double measured = upwardCrossings(x, begin, begin + noteFrames) / card.noteSeconds;
      EXPECT_NEAR(measured, card.notes[n], card.notes[n] * 0.03) << card.name << " note " << n;
    }
    if (card.direction == "rising") {
      EXPECT_LT(card.notes.front(), card.notes.back()) << card.name;
    } else if (card.direction == "falling") {
      EXPECT_GT(card.notes.front(), card.notes.back()) << card.name;
    }
  }
}

TEST(SoundCue, NamesNumbersAndTheHarnessSwitches) {
  EXPECT_EQ(SoundCues::named("rolling"), SoundCue::rolling);
  EXPECT_EQ(SoundCues::named("4"), SoundCue::cut);  // the shoot names its cues by number
  EXPECT_EQ(SoundCues::named("exported"), SoundCue::exported);
  EXPECT_EQ(SoundCues::named("Done"), std::nullopt);
  EXPECT_EQ(SoundCues::named("6"), std::nullopt);

  EXPECT_FALSE(SoundCues::heldByHarness(nullptr, nullptr));
  EXPECT_FALSE(SoundCues::heldByHarness("", nullptr));
  EXPECT_FALSE(SoundCues::heldByHarness("0", nullptr));
  EXPECT_TRUE(SoundCues::heldByHarness("1", nullptr));
  EXPECT_TRUE(SoundCues::heldByHarness("yes", nullptr));
  EXPECT_TRUE(SoundCues::heldByHarness(nullptr, ""));  // any snapshot run is silent
}
