#include <gtest/gtest.h>

#include "kit/TestProductions.hpp"
#include "kit/Retime.hpp"

using namespace tavorin;

namespace {

using test::production;

}  // namespace

TEST(Retime, MoveAndDuplicate) {
  const Recording recording = production({{"l1", 0}, {"l2", 3}});
  EXPECT_EQ(Retime::move(recording, "l2", -4).timeline[1].start, 0);
  EXPECT_EQ(Retime::move(recording, "l9", 4), recording);

  Recording rendered = recording;
  rendered.timeline[0].audio = "audio/l1.wav";
  rendered.timeline[0].renderedFrom = RenderedFrom{};
  rendered.timeline[0].approved = true;
  rendered.timeline[0].text = "Hello.";
  const auto copy = Retime::duplicate(rendered, "l1", 7.5);
  ASSERT_TRUE(copy);
  const auto& [changed, id] = *copy;
  EXPECT_EQ(id, "l1a");
  ASSERT_EQ(changed.timeline.size(), 3u);
  const auto& added = changed.timeline.back();
  EXPECT_EQ(added.id, "l1a");
  EXPECT_EQ(added.start, 7.5);
  EXPECT_EQ(added.text, "Hello.");
  EXPECT_FALSE(added.audio || added.renderedFrom);
  EXPECT_EQ(added.approved, false);
  EXPECT_FALSE(Retime::duplicate(recording, "l9", 1));
}

TEST(Retime, NextIdTriesLettersThenNumbers) {
  Recording recording = production({{"l3", 0}, {"l3a", 1}});
  EXPECT_EQ(Retime::nextId("l3", recording), "l3b");
  for (char c = 'b'; c <= 'z'; ++c) recording.timeline.emplace_back(std::string("l3") + c, ItemType::label);
  EXPECT_EQ(Retime::nextId("l3", recording), "l3-2");
  recording.timeline.emplace_back("l3-2", ItemType::audio);
  EXPECT_EQ(Retime::nextId("l3", recording), "l3-3");
}

TEST(Retime, SnapToTheNearestEdgeWithinTheWindow) {
  Recording recording = production({{"l1", 1}, {"l2", 10.5}});
  TimelineItem label("g1", ItemType::label);
  label.start = 6.3;
  recording.timeline.push_back(label);

  // At 100 pixels a second, 8 pixels cover 0.08 s: 3.06 lands on l1's end.
  const double window = Retime::snapWindow(100, 8);
  EXPECT_DOUBLE_EQ(window, 0.08);
  EXPECT_EQ(Retime::snap(recording, "l2", 3.06, window), (Retime::Snap{3, 3.0}));
  EXPECT_EQ(Retime::snap(recording, "l2", 3.1, window), (Retime::Snap{3.1, std::nullopt}));
  EXPECT_EQ(Retime::snap(recording, "l2", 6.35, window), (Retime::Snap{6.3, 6.3}));  // a label's start
  EXPECT_EQ(Retime::snap(recording, "l2", 7.95, window), (Retime::Snap{8, 8.0}));    // the whole second

  // The moving line's own edges are no candidates.
  EXPECT_EQ(Retime::snap(recording, "l2", 12.45, window), (Retime::Snap{12.45, std::nullopt}));

  EXPECT_EQ(Retime::snap(recording, "l2", -1, 0), (Retime::Snap{0, std::nullopt}));
  EXPECT_EQ(Retime::snap(recording, "l2", 3.01, 0), (Retime::Snap{3.01, std::nullopt}));
  EXPECT_EQ(Retime::snapWindow(0, 8), 0);
}
