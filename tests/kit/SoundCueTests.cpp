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
  for (const auto& spec : SoundCues::all()) {
    const auto x = SoundCues::synthesize(spec.cue, rate);
    EXPECT_NEAR(static_cast<double>(x.size()) / rate, spec.seconds(), 1.0 / rate * spec.notes.size()) << spec.name;
    const float peak = *std::max_element(x.begin(), x.end(), [](float a, float b) { return std::abs(a) < std::abs(b); });
    EXPECT_LE(std::abs(peak), 0.2f) << spec.name;  // under narration, never over it
    EXPECT_EQ(x.front(), 0.0f) << spec.name;
    EXPECT_LT(std::abs(x.back()), 0.01f) << spec.name;

    // Each note, measured in the middle of its own stretch, has the pitch its name says.
    const auto noteFrames = static_cast<std::size_t>(std::lround(spec.noteSeconds * rate));
    const auto gapFrames = static_cast<std::size_t>(std::lround(spec.gap * rate));
    for (std::size_t n = 0; n < spec.notes.size(); ++n) {
      const std::size_t begin = n * (noteFrames + gapFrames);
      const double measured = upwardCrossings(x, begin, begin + noteFrames) / spec.noteSeconds;
      EXPECT_NEAR(measured, spec.notes[n], spec.notes[n] * 0.03) << spec.name << " note " << n;
    }
    if (spec.direction == "rising") {
      EXPECT_LT(spec.notes.front(), spec.notes.back()) << spec.name;
    } else if (spec.direction == "falling") {
      EXPECT_GT(spec.notes.front(), spec.notes.back()) << spec.name;
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
