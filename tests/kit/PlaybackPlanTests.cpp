#include "kit/PlaybackPlan.hpp"

#include <gtest/gtest.h>

#include "kit/Music.hpp"

namespace tavorin {
namespace {

TimelineItem line(std::string id, double start, double duration, std::optional<std::string> audio,
                  std::optional<double> rate = std::nullopt) {
  TimelineItem item(std::move(id), ItemType::line);
  item.start = start;
  item.duration = duration;
  item.audio = std::move(audio);
  item.rate = rate;
  return item;
}

TimelineItem bed(std::string id, double start, double duration, double in, double out, double gain) {
  TimelineItem item = Music::item(std::move(id), "music/bed.wav", start, duration);
  item.trimIn = in;
  item.trimOut = out;
  item.gain = gain;
  return item;
}

TEST(PlaybackPlan, StartingInsideALinePlaysItAtOnceFromInsideItsSlice) {
  Recording recording("p", "P");
  recording.timeline.push_back(line("l1", 0, 4, "audio/l1.wav"));
  auto sliced = line("l2", 5, 4, "audio/group.wav");
  sliced.renderedFrom = RenderedFrom{};
  sliced.renderedFrom->offset = 10;
  recording.timeline.push_back(sliced);

  const auto plan = PlaybackPlan::make(recording, 6.5);
  EXPECT_DOUBLE_EQ(plan.from, 6.5);
  EXPECT_DOUBLE_EQ(plan.duration, 9);
  ASSERT_EQ(plan.cues.size(), 1u);  // l1 ended before the start
  const auto& cue = plan.cues[0];
  EXPECT_EQ(cue.id, "l2");
  EXPECT_DOUBLE_EQ(cue.delay, 0);
  EXPECT_DOUBLE_EQ(cue.offsetInFile, 11.5);  // the slice's start plus the part already past
  EXPECT_DOUBLE_EQ(cue.wallDuration, 2.5);
  EXPECT_EQ(cue.audio, "audio/group.wav");
}

TEST(PlaybackPlan, LinesWithoutAudioAreSkippedAndReportedInTimelineOrder) {
  Recording recording("p", "P");
  recording.timeline.push_back(line("late", 8, 1, std::nullopt));
  recording.timeline.push_back(line("early", 1, 1, std::nullopt));
  recording.timeline.push_back(line("heard", 3, 1, "audio/heard.wav"));
  TimelineItem unplaced("nowhere", ItemType::line);
  unplaced.audio = "audio/nowhere.wav";
  recording.timeline.push_back(unplaced);

  const auto plan = PlaybackPlan::make(recording, -3);
  EXPECT_DOUBLE_EQ(plan.from, 0);
  EXPECT_EQ(plan.skipped, (std::vector<std::string>{"early", "late"}));
  ASSERT_EQ(plan.cues.size(), 1u);
  EXPECT_DOUBLE_EQ(plan.cues[0].delay, 3);
}

TEST(PlaybackPlan, ALineOfUnknownLengthCountsAsPassedOnceItHasStarted) {
  Recording recording("p", "P");
  TimelineItem open("l1", ItemType::line);
  open.start = 2;
  open.audio = "audio/l1.wav";
  recording.timeline.push_back(open);
  EXPECT_TRUE(PlaybackPlan::make(recording, 2).cues.empty());
  const auto plan = PlaybackPlan::make(recording, 1);
  ASSERT_EQ(plan.cues.size(), 1u);
  EXPECT_FALSE(plan.cues[0].secondsInFile);  // plays to its file's end
}

TEST(PlaybackPlan, ABedTrimmedAtBothEndsPlaysItsTrimmedPartOnly) {
  Recording recording("p", "P");
  recording.timeline.push_back(bed("m1", 2, 30, 5, 12, -12));

  auto plan = PlaybackPlan::make(recording, 0);
  ASSERT_EQ(plan.beds.size(), 1u);
  EXPECT_DOUBLE_EQ(plan.beds[0].delay, 2);
  EXPECT_DOUBLE_EQ(plan.beds[0].offsetInFile, 5);
  EXPECT_DOUBLE_EQ(plan.beds[0].wallDuration, 7);
  EXPECT_DOUBLE_EQ(plan.beds[0].gain, -12);
  EXPECT_DOUBLE_EQ(plan.duration, 9);

  plan = PlaybackPlan::make(recording, 4);  // inside the bed
  ASSERT_EQ(plan.beds.size(), 1u);
  EXPECT_DOUBLE_EQ(plan.beds[0].delay, 0);
  EXPECT_DOUBLE_EQ(plan.beds[0].offsetInFile, 7);
  EXPECT_DOUBLE_EQ(plan.beds[0].wallDuration, 5);

  EXPECT_TRUE(PlaybackPlan::make(recording, 9).beds.empty());
}

TEST(PlaybackPlan, RatesScaleTheFileAgainstTheWallClock) {
  struct Case {
    double rate, expectOffset, expectWall;
  };
  // A 4 s file line: at 0.5 it takes 8 s on the timeline, at 2 it takes 2 s. Start
  // one second into the line either way.
  for (const auto& c : {Case{0.5, 0.5, 7.0}, Case{2, 2.0, 1.0}}) {
    Recording recording("p", "P");
    recording.timeline.push_back(line("l1", 10, 4, "audio/l1.wav", c.rate));
    const auto plan = PlaybackPlan::make(recording, 11);
    ASSERT_EQ(plan.cues.size(), 1u) << c.rate;
    EXPECT_DOUBLE_EQ(plan.cues[0].rate, c.rate);
    EXPECT_DOUBLE_EQ(plan.cues[0].offsetInFile, c.expectOffset) << c.rate;
    EXPECT_DOUBLE_EQ(plan.cues[0].wallDuration, c.expectWall) << c.rate;
    EXPECT_DOUBLE_EQ(*plan.cues[0].secondsInFile, 4 - c.expectOffset) << c.rate;
  }
}

TEST(PlaybackPlan, ARateUnderATenthPlaysAtATenth) {
  Recording recording("p", "P");
  recording.timeline.push_back(line("l1", 0, 1, "audio/l1.wav", 0.05));
  const auto plan = PlaybackPlan::make(recording, 0);
  ASSERT_EQ(plan.cues.size(), 1u);
  EXPECT_DOUBLE_EQ(plan.cues[0].rate, 0.1);
  EXPECT_DOUBLE_EQ(plan.cues[0].wallDuration, 10);
}

}  // namespace
}  // namespace tavorin
