#include <gtest/gtest.h>

#include "kit/VoiceSplit.hpp"

namespace tavorin {
namespace {

using VoiceSplit::Pause;

TEST(VoiceSplitShare, CountsCharactersAndWeighsMarks) {
  EXPECT_EQ(VoiceSplit::share(""), 1);
  EXPECT_EQ(VoiceSplit::share("   "), 1);
  // Nine characters once the space is skipped, and the marks weigh on top.
  EXPECT_EQ(VoiceSplit::share("Hi, there."), 9 + 2 + 8);
  EXPECT_EQ(VoiceSplit::share("Wait; what? No!"), 13 + 2 + 8 + 8);
  EXPECT_EQ(VoiceSplit::share("café"), 4);  // characters, not bytes
}

TEST(VoiceSplitLog, ReadsPausesAwayFromTheEnds) {
  const std::string log =
      "[silencedetect @ 0x1] silence_start: 0\n"
      "[silencedetect @ 0x1] silence_end: 0.2 | silence_duration: 0.2\n"
      "size=N/A\n\n"
      "[silencedetect @ 0x1] silence_start: 3.5\n"
      "[silencedetect @ 0x1] silence_end: 3.9 | silence_duration: 0.4\n"
      "[silencedetect @ 0x1] silence_start: 1.25\n"
      "[silencedetect @ 0x1] silence_end: 1.75 | silence_duration: 0.5\n"
      "[silencedetect @ 0x1] silence_start: 12.3\n";
  // The leading silence starts at 0 and the trailing one ends at the file's end: no joins.
  EXPECT_EQ(VoiceSplit::pauses(log, 14), (std::vector<Pause>{{1.25, 1.75}, {3.5, 3.9}}));
  // A silence left open ends with the audio, and is kept when it isn't at the end.
  EXPECT_EQ(VoiceSplit::pauses("silence_start: 2\n", 14), (std::vector<Pause>{}));
  EXPECT_EQ(VoiceSplit::pauses("silence_end: 2\nsilence_start: 1\nsilence_end: x\nsilence_end: 1.5\n", 4),
            (std::vector<Pause>{}));
  EXPECT_EQ(VoiceSplit::pauses("silence_start: 1\nsilence_end: 1\nsilence_start: 2\nsilence_end: 2.5", 4),
            (std::vector<Pause>{{2, 2.5}}));
  EXPECT_TRUE(VoiceSplit::pauses("", 4).empty());
}

TEST(VoiceSplitFit, PrefersLongPausesAndTheEarlierOnATie) {
  EXPECT_EQ(VoiceSplit::expected({1, 1, 2}, 8), (std::vector<double>{2, 4}));
  EXPECT_TRUE(VoiceSplit::expected({}, 8).empty());
  EXPECT_TRUE(VoiceSplit::expected({0, 0}, 8).empty());

  // Wanted at 3.2: a breath centred at 3.1 costs 0.005, a sentence break centred
  // at 3.0 and 0.9 long costs -0.365, and wins.
  EXPECT_EQ(VoiceSplit::fitted({{3.05, 3.15}, {2.55, 3.45}}, {3.2}), (std::vector<double>{3.0}));
  // Two pauses at the same distance and length: the earlier one.
  EXPECT_EQ(VoiceSplit::fitted({{0.9, 1.1}, {2.9, 3.1}}, {2.0}), (std::vector<double>{1.0}));
  // In order, one pause each.
  EXPECT_EQ(VoiceSplit::fitted({{0.9, 1.1}, {1.9, 2.1}, {2.9, 3.1}}, {1.0, 1.2}), (std::vector<double>{1.0, 2.0}));
  EXPECT_TRUE(VoiceSplit::fitted({{0.9, 1.1}}, {1.0, 2.0}).empty());
  EXPECT_TRUE(VoiceSplit::fitted({{0.9, 1.1}}, {}).empty());
}

TEST(VoiceSplitSlice, CutsAtThePausesOrRefuses) {
  const std::vector<VoiceSplit::Line> three{{"l1", "One two three."}, {"l2", "Four five six."}, {"l3", "Seven eight."}};
  // Shares 20, 20, 19 over 6 s: cuts wanted near 2.03 and 4.07.
  auto cut = VoiceSplit::slice(three, 6.0, {{1.0, 1.1}, {2.0, 2.3}, {4.1, 4.4}});
  ASSERT_TRUE(cut.slices()) << *cut.refusal;
  EXPECT_EQ(cut.how, "fitted");
  EXPECT_EQ(*cut.slices(), (std::vector<VoiceSplit::Slice>{{"l1", 0, 2.15}, {"l2", 2.15, 2.1}, {"l3", 4.25, 1.75}}));

  EXPECT_EQ(VoiceSplit::slice({{"l1", "Alone."}}, 2.5, {}).slices(),
            (std::vector<VoiceSplit::Slice>{{"l1", 0, 2.5}}));
  EXPECT_EQ(VoiceSplit::slice({}, 2.5, {}).refusal, "the group has no lines");
  EXPECT_EQ(VoiceSplit::slice(three, 0, {}).refusal, "the group's audio has no length");
  EXPECT_EQ(VoiceSplit::slice({{"l1", "Hello."}, {"l2", "World."}}, 3.214, {}).refusal,
            "3.21s of audio holds 0 pause(s) where 1 line joins are needed");
  // A pause far from where the words put the join gives one line far too little time.
  auto skewed = VoiceSplit::slice({{"l1", "A long first sentence here."}, {"l2", "Short."}}, 6.0, {{0.5, 0.7}});
  EXPECT_EQ(skewed.refusal, "l1 reads at 51.7 characters a second where the group reads at 7.5");
}

TEST(VoiceSplitSlice, MeasureRefusesASliceWithNoRoom) {
  auto tiny = VoiceSplit::measure({{"l1", "a"}, {"l2", "b"}}, {1, 1}, 1.0, {0.01});
  EXPECT_EQ(tiny.refusal, "the pauses put l1 inside 0.01s");
}

}  // namespace
}  // namespace tavorin
