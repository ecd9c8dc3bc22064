#include <gtest/gtest.h>

#include <cmath>

#include "kit/Cut.hpp"

using namespace tavorin;

namespace {

TimelineItem item(const std::string& id, ItemType type, double start, double duration = 1) {
  TimelineItem it(id, type);
  it.start = start;
  it.duration = duration;
  it.text = "words";
  return it;
}

Recording film() {
  Recording r("p", "Film");
  r.timeline = {item("l1", ItemType::line, 1), item("l2", ItemType::line, 4.5), item("l3", ItemType::line, 8),
                item("b1", ItemType::label, 8)};
  return r;
}

Recording cutInto(std::vector<Segment> segments) {
  Recording r = film();
  r.segments = std::move(segments);
  return r;
}

}  // namespace

TEST(Cut, NothingStoredReadsAsTheWholeFootage) {
  Recording r = film();
  auto placed = Cut::placed(r, 10);
  ASSERT_EQ(placed.size(), 1u);
  EXPECT_EQ(placed[0].segment, (Segment{"s1", std::nullopt, 0, 10, std::nullopt}));
  EXPECT_FALSE(Cut::isCut(r, 10));
  EXPECT_EQ(Cut::length(r, 10), 10);

  r.segments = std::vector<Segment>{};  // an empty list is as good as none
  EXPECT_FALSE(Cut::stored(r));
  EXPECT_FALSE(Cut::isCut(r, 10));
}

TEST(Cut, RatesReadThroughOneClamp) {
  Segment s{"s1", std::nullopt, 2, 6, std::nullopt};
  EXPECT_EQ(Cut::length(s), 4);
  s.rate = 0.01;
  EXPECT_DOUBLE_EQ(Cut::length(s), 40);
  s.rate = 0;
  EXPECT_DOUBLE_EQ(Cut::rate(s), 0.1);
  s.rate = 20;
  EXPECT_DOUBLE_EQ(Cut::length(s), 0.5);
  s.to = 1;  // backwards shows nothing
  EXPECT_EQ(Cut::length(s), 0);
}

TEST(Cut, IsCutOnlyWhenTheFilmDiffersFromTheTake) {
  EXPECT_FALSE(Cut::isCut(cutInto({{"s1", {}, 0.0005, 9.9995, {}}}), 10));
  EXPECT_TRUE(Cut::isCut(cutInto({{"s1", {}, 0.002, 10, {}}}), 10));
  EXPECT_TRUE(Cut::isCut(cutInto({{"s1", {}, 0, 9.99, {}}}), 10));
  EXPECT_FALSE(Cut::isCut(cutInto({{"s1", {}, 0, 9.99, {}}}), 0));  // no footage to compare with
  EXPECT_TRUE(Cut::isCut(cutInto({{"s1", {}, 0, 10, 0.5}}), 10));
  EXPECT_FALSE(Cut::isCut(cutInto({{"s1", {}, 0, 10, 1}}), 10));
  EXPECT_TRUE(Cut::isCut(cutInto({{"s1", {}, 0, 5, {}}, {"s2", {}, 5, 10, {}}}), 10));
}

TEST(Cut, AShorterTakeShowsLessWithoutLosingTheStoredCut) {
  Recording r = cutInto({{"s1", {}, -2, 3, {}}, {"s2", {}, 5, 9, 2}, {"s3", {}, 12, 15, {}}});
  auto placed = Cut::placed(r, 8);
  ASSERT_EQ(placed.size(), 2u);  // s3 lies wholly past the end
  EXPECT_EQ(placed[0].segment.from, 0);
  EXPECT_EQ(placed[1].segment.to, 8);
  EXPECT_DOUBLE_EQ(placed[1].start, 3);
  EXPECT_DOUBLE_EQ(Cut::length(r, 8), 4.5);
  EXPECT_EQ(r.segments->size(), 3u);
  EXPECT_EQ(Cut::placed(r, 20).size(), 3u);  // a longer take brings it back
  EXPECT_EQ(Cut::placed(r, 0).size(), 3u);   // with no footage the list stands as stored
}

TEST(Cut, SourceTimeWalksThePlacedSegments) {
  auto placed = Cut::placed(cutInto({{"s1", {}, 2, 4, {}}, {"s2", {}, 10, 14, 2}}), 20);
  EXPECT_FALSE(Cut::sourceTime(1, {}));
  EXPECT_EQ(Cut::sourceTime(-1, placed), 2);
  EXPECT_EQ(Cut::sourceTime(1, placed), 3);
  EXPECT_EQ(Cut::sourceTime(2, placed), 10);  // a seam belongs to the later segment
  EXPECT_EQ(Cut::sourceTime(3, placed), 12);
  EXPECT_EQ(Cut::sourceTime(99, placed), 14);
}

TEST(Cut, SplitsKeepClearOfSeamsAndTheEnds) {
  Recording r = film();
  EXPECT_FALSE(Cut::split(r, 0, 10));
  EXPECT_FALSE(Cut::split(r, 0.04, 10));
  EXPECT_FALSE(Cut::split(r, 10, 10));
  EXPECT_FALSE(Cut::split(r, 9.96, 10));
  EXPECT_FALSE(r.segments);  // refusals leave the document alone
  EXPECT_FALSE(Cut::split(r, 5, 0));  // a take with no footage has nothing to split

  auto id = Cut::split(r, 0.06, 10);
  ASSERT_TRUE(id);
  EXPECT_EQ(*id, "s2");
  ASSERT_EQ(r.segments->size(), 2u);
  EXPECT_DOUBLE_EQ((*r.segments)[0].to, 0.06);
  EXPECT_DOUBLE_EQ((*r.segments)[1].from, 0.06);
  EXPECT_EQ(r.timeline, film().timeline);  // nothing on the timeline moves
}

TEST(Cut, ASplitKeepsTheRateTakeAndOrderAndAvoidsTakenIds) {
  Recording r = cutInto({{"s1", std::string("t1"), 0, 4, 2}, {"s3", {}, 4, 10, {}}});
  r.timeline.push_back(item("s2", ItemType::label, 0));  // an item already answers to s2
  auto id = Cut::split(r, 1, 10);  // film time 1 at rate 2 is footage 2
  ASSERT_TRUE(id);
  EXPECT_EQ(*id, "s4");
  ASSERT_EQ(r.segments->size(), 3u);
  EXPECT_EQ((*r.segments)[1], (Segment{"s4", std::string("t1"), 2, 4, 2}));
  EXPECT_EQ((*r.segments)[2].id, "s3");
  EXPECT_DOUBLE_EQ(Cut::length(r, 10), 8);
}

TEST(Cut, RemovingTakesPictureOutAndSlidesOnlyLines) {
  Recording r = cutInto({{"s1", {}, 0, 3, {}}, {"s2", {}, 3, 6, {}}, {"s3", {}, 6, 10, {}}});
  Recording single = cutInto({{"s1", {}, 0, 10, {}}});
  EXPECT_FALSE(Cut::remove(single, "s1", 10));  // the film cannot be emptied
  EXPECT_FALSE(Cut::remove(r, "s9", 10));

  auto change = Cut::remove(r, "s2", 10);
  ASSERT_TRUE(change);
  EXPECT_EQ(*change, (Cut::Change{3, -3}));
  EXPECT_EQ(r.segments->size(), 2u);
  EXPECT_EQ(r.item("l1")->start, 1);    // before the join
  EXPECT_EQ(r.item("l2")->start, 3);    // inside the span: lands on the join
  EXPECT_EQ(r.item("l3")->start, 5);    // after it: slid left
  EXPECT_EQ(r.item("b1")->start, 8);    // labels stay where they were put
}

TEST(Cut, SlidesRoundToHundredthsAndCarryTheZooms) {
  Recording r = film();
  r.zooms = std::vector<Zoom>{{"z1", 7, 9, 2, {}, {}, {}}};
  Cut::slide(r, 2, 1.23456);
  EXPECT_EQ(r.item("l2")->start, 5.73);
  EXPECT_EQ(r.item("l1")->start, 1);
  EXPECT_DOUBLE_EQ(r.zooms->front().from, 8.235);
  Recording same = r;
  Cut::slide(r, 0, 0.00009);
  EXPECT_EQ(r, same);
}

TEST(Cut, TrimHoldsTheMinimumAndTheFootage) {
  Recording r = cutInto({{"s1", {}, 2, 6, {}}, {"s2", {}, 6, 10, {}}});
  // Both bounds given with `to` below `from`: `from` goes back to keep the minimum.
  ASSERT_TRUE(Cut::trim(r, "s1", 5, 1, 10));
  EXPECT_DOUBLE_EQ((*r.segments)[0].from, 0.95);
  EXPECT_DOUBLE_EQ((*r.segments)[0].to, 1);
  // Only `to`, below the kept `from`: the end is held the minimum after it.
  ASSERT_TRUE(Cut::trim(r, "s1", std::nullopt, 0.5, 10));
  EXPECT_DOUBLE_EQ((*r.segments)[0].to, 1.0);

  r = cutInto({{"s1", {}, 2, 6, {}}, {"s2", {}, 6, 10, {}}});
  ASSERT_TRUE(Cut::trim(r, "s1", -5, 0.01, 10));  // `from` never below 0, `to` never under the minimum
  EXPECT_EQ((*r.segments)[0].from, 0);
  EXPECT_DOUBLE_EQ((*r.segments)[0].to, 0.05);

  r = cutInto({{"s1", {}, 2, 6, {}}, {"s2", {}, 6, 10, {}}});
  auto change = Cut::trim(r, "s1", 1, 30, 12);  // the take's end is the limit
  ASSERT_TRUE(change);
  EXPECT_EQ((*r.segments)[0].to, 12);
  EXPECT_EQ(*change, (Cut::Change{4, 7}));  // 4s of film became 11s
  EXPECT_EQ(r.item("l2")->start, 11.5);
  EXPECT_EQ(r.item("l1")->start, 1);

  EXPECT_FALSE(Cut::trim(r, "nope", 1, 2, 12));
}

TEST(Cut, TrimWithoutFootageKeepsTheOldEndAsTheLimit) {
  Recording r = cutInto({{"s1", {}, 2, 6, {}}});
  ASSERT_TRUE(Cut::trim(r, "s1", std::nullopt, 9, 0));
  EXPECT_EQ((*r.segments)[0].to, 6);
  ASSERT_TRUE(Cut::trim(r, "s1", 7, std::nullopt, 0));
  EXPECT_DOUBLE_EQ((*r.segments)[0].from, 5.95);
}

TEST(Cut, PadsLongerThanTheFilmLeaveNoFootage) {
  // A take with no footage gives the virtual segment no length: nothing to split or cut.
  Recording r = film();
  auto placed = Cut::placed(r, 0);
  ASSERT_EQ(placed.size(), 1u);
  EXPECT_EQ(Cut::length(r, 0), 0);
  EXPECT_FALSE(Cut::split(r, 0.5, 0));
  EXPECT_FALSE(Cut::remove(r, "s1", 0));
}

TEST(Cut, SpeedStoresTheClampedRateAndSlidesWhatFollows) {
  Recording r = cutInto({{"s1", {}, 0, 4, {}}, {"s2", {}, 4, 10, {}}});
  ASSERT_TRUE(Cut::speed(r, "s1", 1.0005, 10));
  EXPECT_FALSE((*r.segments)[0].rate);
  ASSERT_TRUE(Cut::speed(r, "s1", 20, 10));
  EXPECT_EQ((*r.segments)[0].rate, 8);
  EXPECT_EQ(r.item("l2")->start, 1);  // 4.5 - 3.5
  ASSERT_TRUE(Cut::speed(r, "s1", 0.01, 10));
  EXPECT_EQ((*r.segments)[0].rate, 0.1);
  EXPECT_DOUBLE_EQ(Cut::length(r, 10), 46);

  r = cutInto({{"s1", {}, 0, 4, {}}, {"s2", {}, 4, 10, {}}});
  auto change = Cut::speed(r, "s1", 0.1, 10);
  ASSERT_TRUE(change);
  EXPECT_EQ(*change, (Cut::Change{4, 36}));
  EXPECT_EQ(r.item("l2")->start, 40.5);
  EXPECT_FALSE(Cut::speed(r, "s1", std::nan(""), 10));
  EXPECT_EQ((*r.segments)[0].rate, 0.1);
}

TEST(Cut, RefreshFollowsANewTakeOnlyForAWholeTakeCut) {
  Recording r = cutInto({{"s1", std::string("old"), 0, 8, {}}});
  EXPECT_EQ(Cut::refresh(r, 12.34567, "new"), 8);
  EXPECT_EQ(r.segments->front(), (Segment{"s1", std::string("new"), 0, 12.346, {}}));
  EXPECT_FALSE(Cut::refresh(r, 12.34567, "new"));  // already attached

  r = cutInto({{"s1", std::string("old"), 0, 12.005, {}}});
  EXPECT_FALSE(Cut::refresh(r, 12, "new"));  // within a hundredth: the end stays
  EXPECT_EQ(r.segments->front().take, "new");

  for (auto segments : {std::vector<Segment>{{"s1", {}, 1, 8, {}}}, std::vector<Segment>{{"s1", {}, 0, 8, 2}},
                        std::vector<Segment>{{"s1", {}, 0, 4, {}}, {"s2", {}, 4, 8, {}}}}) {
    Recording cut = cutInto(segments);
    EXPECT_FALSE(Cut::refresh(cut, 12, "new"));
    EXPECT_EQ(cut.segments, segments);
  }
}

TEST(Atempo, ChainsStayInsideOneStagesRange) {
  EXPECT_TRUE(Atempo::chain(1).empty());
  EXPECT_TRUE(Atempo::chain(0).empty());
  EXPECT_TRUE(Atempo::chain(-2).empty());
  EXPECT_EQ(Atempo::chain(1.5), (std::vector<double>{1.5}));
  EXPECT_EQ(Atempo::chain(8), (std::vector<double>{2, 2, 2}));
  EXPECT_EQ(Atempo::chain(0.1), (std::vector<double>{0.5, 0.5, 0.5, 0.8}));
  EXPECT_EQ(Atempo::filter(4), "atempo=2.000000,atempo=2.000000");
  EXPECT_EQ(Atempo::filter(0.25), "atempo=0.500000,atempo=0.500000");
  EXPECT_FALSE(Atempo::filter(1));
  for (double rate : {0.1, 0.13, 0.5, 0.77, 2.5, 7.9}) {
    double product = 1;
    for (double stage : Atempo::chain(rate)) {
      EXPECT_GE(stage, 0.5);
      EXPECT_LE(stage, 2);
      product *= stage;
    }
    EXPECT_NEAR(product, rate, 1e-12);
  }
}
