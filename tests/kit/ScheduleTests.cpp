#include <gtest/gtest.h>

#include "kit/Blocking.hpp"
#include "kit/Schedule.hpp"

using namespace tavorin;

namespace {

TimelineItem line(std::string id, std::optional<double> start, std::optional<double> duration = {}) {
  TimelineItem item(std::move(id), ItemType::line);
  item.start = start;
  item.duration = duration;
  return item;
}

// A line that landed as part of a generation, `offset` seconds into its audio.
TimelineItem member(std::string id, double start, double duration, double offset, std::string group = "g1") {
  TimelineItem item = line(std::move(id), start, duration);
  item.renderedFrom = RenderedFrom{};
  item.renderedFrom->group = std::move(group);
  item.renderedFrom->offset = offset;
  return item;
}

Recording production(std::vector<TimelineItem> items) {
  Recording recording("p", "P");
  recording.timeline = std::move(items);
  return recording;
}

std::vector<std::optional<double>> starts(const Recording& recording) {
  std::vector<std::optional<double>> out;
  for (const auto& item : recording.timeline) out.push_back(item.start);
  return out;
}

std::vector<Schedule::Cue> cuesOf(std::string_view script, const Recording& recording) {
  return Schedule::cues(Blocking::parse(script), recording);
}

}  // namespace

TEST(Schedule, SpansAndLengths) {
  const Recording empty = production({});
  EXPECT_TRUE(Schedule::lineSpans(empty).empty());
  EXPECT_EQ(Schedule::totalLength(empty), 0);

  TimelineItem slow = line("l1", 10, 3);
  slow.rate = 0;  // held to 0.01: three seconds of audio last 300
  TimelineItem held = line("l2", 2);
  held.hold = 1.5;
  TimelineItem bed("m1", ItemType::audio);
  bed.start = 400;
  bed.duration = 20;
  bed.trimIn = 5;
  const Recording recording = production({slow, held, line("l3", 2), line("l4", std::nullopt, 9), bed});

  const auto spans = Schedule::lineSpans(recording);
  ASSERT_EQ(spans.size(), 3u);
  EXPECT_EQ(spans[0], (Schedule::LineSpan{"l2", 2, 3.5}));
  EXPECT_EQ(spans[1], (Schedule::LineSpan{"l3", 2, 2}));  // same start keeps timeline order
  EXPECT_EQ(spans[2], (Schedule::LineSpan{"l1", 10, 310}));
  EXPECT_EQ(Schedule::totalLength(recording), 415);  // the bed counts too

  EXPECT_EQ(Schedule::end({"l2", "l3"}, recording), 3.5);
  EXPECT_FALSE(Schedule::end({"l3"}, recording));  // no member has a length
  EXPECT_FALSE(Schedule::end({"l4", "m1"}, recording));
}

TEST(Schedule, CuesFollowAnchorsAndTheCursor) {
  const Recording recording = production({line("l1", 1, 2), line("l2", std::nullopt, 5)});
  const auto cues = cuesOf(
      "wait 1.5\n"
      "move 10.9 -3.7 over 0.5s\n"
      "after l1 offset 0.25:\n"
      "  type \"abcdefghijklmnopqrstuvwxyz\"\n"
      "  hold 4\n"
      "with l2:\n"
      "  key cmd+s\n"
      "scroll 12.8\n"
      "frobnicate\n"
      "at 30:\n"
      "  js \"x\"",
      recording);
  // Free steps advance a cursor from 0; a block shows its anchor's time and leaves the
  // cursor alone; an unplaced line and an `at` header resolve to the cursor.
  std::vector<std::tuple<double, std::string, bool>> seen;
  for (const auto& cue : cues) seen.emplace_back(cue.time, cue.label, cue.anchored);
  const std::vector<std::tuple<double, std::string, bool>> expected{
      {0, "wait 1.5s", false},          {1.5, "move 10,-3", false},        {2, "key cmd+s", true},
      {2, "scroll 12", false},          {2, "frobnicate", false},           {2, "js", true},
      {3.25, "type abcdefghijklmnopqrstuvwx", true}, {3.25, "hold 4.0s", true}};
  EXPECT_EQ(seen, expected);
  EXPECT_FALSE(cues[4].known);
  EXPECT_EQ(cues[4].mark, Blocking::Mark::unknown);
  EXPECT_EQ(cues[3].sourceLine, 8);
  EXPECT_EQ(cues[3].id, 8);
}

TEST(Schedule, RippleMovesTheFollowersInTheArray) {
  // l0 stands before l1 in the array though it starts later: it does not follow.
  Recording recording = production({line("l0", 9), line("l1", 1, 3), line("l2", 4.25), line("l3", 6), line("x", 0.5)});
  auto reflow = Schedule::ripple(recording, "l1", 2.0);
  EXPECT_EQ(reflow.delta, 1);
  EXPECT_EQ(reflow.moved, (std::vector<std::string>{"l2", "l3"}));
  EXPECT_EQ(starts(recording), (std::vector<std::optional<double>>{9, 1, 5.25, 7, 0.5}));

  // Without `from` the tail is placed at the gap, pulled in as well as pushed out.
  reflow = Schedule::ripple(recording, "l1", std::nullopt, 0.5);
  EXPECT_EQ(reflow.delta, -0.75);
  EXPECT_EQ(starts(recording)[2], 4.5);
  recording.gap = 0.5;
  EXPECT_TRUE(Schedule::ripple(recording, "l1").isEmpty());  // already at the gap
  EXPECT_TRUE(Schedule::ripple(recording, "l1", 3.0).isEmpty());
  EXPECT_TRUE(Schedule::ripple(recording, "nobody", 0.0).isEmpty());

  // Driven below 0, a follower stops at 0 while the full delta is reported.
  recording = production({line("l1", 0, 1), line("l2", 0.5)});
  reflow = Schedule::ripple(recording, "l1", 3.123456);
  EXPECT_EQ(reflow.delta, -2.1235);
  EXPECT_EQ(recording.timeline[1].start, 0);
}

TEST(Schedule, GlueClosesTheGroupAndMovesWhatLiesBehind) {
  Recording recording = production({
      line("l9", 5.0),                 // earlier in the array than the group, yet behind it
      member("l1", 1, 1.5, 0),
      member("l2", 2.8, 1.0, 1.5),     // drifted: belongs at 1 + 1.5
      line("l3", 4.0),
  });
  const auto glue = Schedule::glue(recording, "g1");
  EXPECT_EQ(glue.closed, std::vector<std::string>{"l2"});
  // The group now ends at 3.5 instead of 3.8, and the followers come 0.3 closer.
  EXPECT_EQ(glue.delta, -0.3);
  EXPECT_EQ(glue.moved, (std::vector<std::string>{"l9", "l3"}));
  EXPECT_EQ(starts(recording), (std::vector<std::optional<double>>{4.7, 1, 2.5, 3.7}));
  EXPECT_TRUE(Schedule::isContiguous(recording, "g1"));

  // With no `from`, the earliest follower lands at the gap.
  const auto placed = Schedule::glue(recording, "g1", {"l1", "l2"}, std::nullopt, 1.0);
  EXPECT_EQ(placed.delta, 0.8);
  EXPECT_EQ(recording.timeline[3].start, 4.5);

  // Lines listed without a generation receipt give nothing to close.
  Recording plain = production({line("l1", 0, 1), line("l2", 3)});
  EXPECT_TRUE(Schedule::glue(plain, "g1", {"l1"}, std::nullopt).isEmpty());
  EXPECT_FALSE(Schedule::isContiguous(plain, "g1"));
}

TEST(Schedule, ContiguousUpToTheSeam) {
  Recording recording = production({member("l1", 1, 1, 0.5), member("l2", 2.02, 1, 1.5)});
  EXPECT_TRUE(Schedule::isContiguous(recording, "g1"));
  recording.timeline[1].start = 1.98;
  EXPECT_TRUE(Schedule::isContiguous(recording, "g1"));
  recording.timeline[1].start = 2.03;
  EXPECT_FALSE(Schedule::isContiguous(recording, "g1"));
}

TEST(Schedule, DigestFingerprintsWhatTheScriptDoesInTime) {
  const Recording empty = production({});
  // The SHA-256 of no bytes at all.
  EXPECT_EQ(Schedule::digest("", empty), "e3b0c44298fc1c14");
  EXPECT_EQ(Schedule::digest("# nothing\nfrobnicate\n", empty), "e3b0c44298fc1c14");

  // Rows "1:0.0:wait 2.0s" and "2:2.0:click 1,2", joined by a line feed.
  const std::string script = "wait 2\nclick 1 2";
  EXPECT_EQ(Schedule::digest(script, empty), "c82d6f8260fa6294");
  EXPECT_EQ(Schedule::digest("# lead\n\nwait 2  # pause\n  click 1.9,2.2", empty),
            Schedule::digest(script, empty));

  const std::string typed = "type \"0123456789012345678901234567\"";
  EXPECT_EQ(Schedule::digest(typed, empty), Schedule::digest(typed.substr(0, typed.size() - 3) + "xy\"", empty));
  EXPECT_NE(Schedule::digest("wait 2.001\nclick 1 2", empty), Schedule::digest(script, empty));
  EXPECT_NE(Schedule::digest("oops\nwait 2\nclick 1 2", empty), Schedule::digest(script, empty));

  EXPECT_EQ(Schedule::plainDecimal(2), "2.0");
  EXPECT_EQ(Schedule::plainDecimal(0.125), "0.125");
  EXPECT_EQ(Schedule::plainDecimal(1e-7), "0.0000001");
}
