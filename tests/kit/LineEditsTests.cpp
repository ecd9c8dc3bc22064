#include <gtest/gtest.h>

#include "kit/LineEdits.hpp"
#include "kit/TestProductions.hpp"

namespace tavorin {
namespace {

using Ids = std::vector<std::string>;

// Three two-second lines a quarter second apart, with texts, and an action between.
Recording three() {
  Recording rec = test::production({{"l1", 0}, {"l2", 2.25}, {"l3", 4.5}});
  rec.timeline[0].text = "Hello";
  rec.timeline[1].text = "world";
  rec.timeline[2].text = "Goodbye now.";
  TimelineItem action("a1", ItemType::action);
  action.start = 2.3;
  rec.timeline.insert(rec.timeline.begin() + 1, action);
  return rec;
}

Ids idsOf(const std::vector<const TimelineItem*>& lines) {
  Ids out;
  for (const auto* line : lines) out.push_back(line->id);
  return out;
}

TEST(LineEditsRun, OnlyNeighbouringLinesInReadingOrder) {
  Recording rec = three();
  EXPECT_EQ(idsOf(*LineEdits::run(rec, {"l2", "l1"})), (Ids{"l1", "l2"}));  // the action between does not count
  EXPECT_FALSE(LineEdits::run(rec, {"l1", "l3"}));
  EXPECT_FALSE(LineEdits::run(rec, {"l1", "l9"}));
  EXPECT_FALSE(LineEdits::run(rec, {"a1"}));
  EXPECT_FALSE(LineEdits::run(rec, {}));
}

TEST(LineEditsPins, TogetherAloneAndTheirRefusals) {
  Recording rec = three();
  const Recording before = rec;
  EXPECT_FALSE(LineEdits::together(rec, {"l1", "l3"}));
  EXPECT_FALSE(LineEdits::together(rec, {"l2"}));
  EXPECT_EQ(rec, before);

  auto pin = LineEdits::together(rec, {"l3", "l2"});
  ASSERT_TRUE(pin);
  EXPECT_EQ(*pin, (LineEdits::Pin{"l2", {"l2", "l3"}}));
  EXPECT_EQ(rec.item("l3")->together, "l2");
  EXPECT_EQ(LineEdits::pins(rec), (std::vector<LineEdits::Pin>{{"l2", {"l2", "l3"}}}));

  // One name on two separate runs is two pins.
  rec.item("l1")->together = "l2";
  rec.item("l2")->together.reset();
  EXPECT_EQ(LineEdits::pins(rec), (std::vector<LineEdits::Pin>{{"l2", {"l1"}}, {"l2", {"l3"}}}));

  EXPECT_EQ(LineEdits::alone(rec, {"l1", "l2", "l9"}), (Ids{"l1"}));  // l2 had no pin
  EXPECT_FALSE(rec.item("l1")->together);
}

TEST(LineEditsSplit, DividesTextAndTimeByHowLongEachHalfTakesToSay) {
  Recording rec = three();
  rec.timeline[0].text = "Hello there. How are you?";
  rec.timeline[0].approved = true;
  rec.timeline[0].audio = "audio/l1.wav";
  auto split = LineEdits::split(rec, "l1", 12);
  ASSERT_TRUE(split);
  EXPECT_EQ(split->head, "l1");
  EXPECT_EQ(split->tail, "l1a");
  const TimelineItem& head = *rec.item("l1");
  const TimelineItem& tail = *rec.item("l1a");
  EXPECT_EQ(head.text, "Hello there.");
  EXPECT_EQ(tail.text, "How are you?");
  EXPECT_EQ(tail.approved, false);
  EXPECT_EQ(tail.audio, "audio/l1.wav");  // a copy of the old line
  // Shares 19 and 18: the head gets 19/37 of two seconds.
  EXPECT_DOUBLE_EQ(*head.duration, 1.027);
  EXPECT_DOUBLE_EQ(*tail.duration, 0.973);
  EXPECT_NEAR(*head.duration + *tail.duration, 2.0, 1e-9);
  // The tail sits right after the head in the timeline, at the gap behind it.
  EXPECT_EQ(rec.timeline[1].id, "l1a");
  EXPECT_DOUBLE_EQ(*tail.start, 1.28);
  // The followers move by what the split added: the gap, rounded.
  EXPECT_EQ(split->moved, (Ids{"l2", "l3"}));
  EXPECT_DOUBLE_EQ(*rec.item("l2")->start, 2.5);
  EXPECT_DOUBLE_EQ(*rec.item("l3")->start, 4.75);
}

TEST(LineEditsSplit, HoldsSplitWhenThereIsNoAudioAndEdgesAreRefused) {
  Recording rec = three();
  rec.timeline[0].duration.reset();
  rec.timeline[0].hold = 3;
  rec.timeline[0].text = "Hi, there";
  ASSERT_TRUE(LineEdits::split(rec, "l1", 3, 0.5));
  EXPECT_DOUBLE_EQ(*rec.item("l1")->hold + *rec.item("l1a")->hold, 3.0);
  EXPECT_DOUBLE_EQ(*rec.item("l1a")->start, 2.0);  // the head's 1.5 s hold and the gap given

  Recording edges = three();
  edges.timeline[0].text = "Hi    ";
  const Recording before = edges;
  EXPECT_FALSE(LineEdits::split(edges, "l1", 0));
  EXPECT_FALSE(LineEdits::split(edges, "l1", 6));  // the end
  EXPECT_FALSE(LineEdits::split(edges, "l1", 3));  // a tail of only spaces
  EXPECT_FALSE(LineEdits::split(edges, "a1", 1));  // not a line
  EXPECT_FALSE(LineEdits::split(edges, "l9", 1));
  EXPECT_EQ(edges, before);
}

TEST(LineEditsMerge, JoinsTextsSumsDurationsAndCloses) {
  Recording rec = three();
  rec.timeline[0].approved = true;
  auto merge = LineEdits::merge(rec, {"l2", "l1"});
  ASSERT_TRUE(merge);
  EXPECT_EQ(merge->kept, "l1");
  EXPECT_EQ(merge->gone, (Ids{"l2"}));
  const TimelineItem& kept = *rec.item("l1");
  EXPECT_EQ(kept.text, "Hello world");
  EXPECT_EQ(kept.approved, false);
  EXPECT_DOUBLE_EQ(*kept.duration, 4.0);
  EXPECT_FALSE(rec.item("l2"));
  ASSERT_TRUE(rec.item("a1"));  // the action between stays
  // The run ended at 4.25; it now ends at 4.0, so l3 moves back by a quarter.
  EXPECT_EQ(merge->moved, (Ids{"l3"}));
  EXPECT_DOUBLE_EQ(*rec.item("l3")->start, 4.25);

  const Recording before = rec;
  EXPECT_FALSE(LineEdits::merge(rec, {"l1"}));
  EXPECT_FALSE(LineEdits::merge(rec, {"l1", "l9"}));
  EXPECT_EQ(rec, before);
}

TEST(LineEditsMerge, HoldsSumWhenNoLineHasAudio) {
  Recording rec = three();
  for (auto& item : rec.timeline) {
    item.duration.reset();
    item.hold = 1.5;
  }
  rec.item("l2")->text.reset();
  ASSERT_TRUE(LineEdits::merge(rec, {"l1", "l2", "l3"}));
  EXPECT_EQ(rec.item("l1")->text, "Hello Goodbye now.");  // a line with no text adds nothing
  EXPECT_DOUBLE_EQ(*rec.item("l1")->hold, 4.5);
  EXPECT_FALSE(rec.item("l1")->duration);
}

}  // namespace
}  // namespace tavorin
