#include <gtest/gtest.h>

#include <random>

#include "kit/TimelineGeometry.hpp"

using namespace tavorin;
using Lane = TimelineGeometry::Lane;

namespace {

TimelineItem at(const std::string& id, ItemType type, double start, std::optional<double> duration = {}) {
  TimelineItem it(id, type);
  it.start = start;
  it.duration = duration;
  it.text = "Words";
  return it;
}

// A production with every kind of block; blocks of one lane never overlap in time.
Recording production(std::mt19937& random, int lines, int segments, int zooms) {
  std::uniform_real_distribution<double> length(0.3, 4), pause(0, 1.5);
  Recording r("p", "Film");
  double t = 0;
  for (int i = 0; i < lines; ++i) {
    t += pause(random);
    const double d = length(random);
    r.timeline.push_back(at("l" + std::to_string(i), ItemType::line, std::round(t * 100) / 100, d));
    t += d;
  }
  std::vector<Segment> cut;
  double f = 0;
  for (int i = 0; i < segments; ++i) {
    const double d = length(random);
    cut.push_back({"s" + std::to_string(i + 1), {}, f, f + d, i % 3 == 0 ? std::optional<double>(1.5) : std::nullopt});
    f += d + pause(random);
  }
  r.segments = cut;
  std::vector<Zoom> zs;
  double z = 0;
  for (int i = 0; i < zooms; ++i) {
    z += pause(random);
    const double d = length(random);
    zs.push_back({"z" + std::to_string(i + 1), z, z + d, 2, {}, {}, {}});
    z += d;
  }
  r.zooms = zs;
  for (int i = 0; i < lines / 10; ++i) {
    r.timeline.push_back(at("m" + std::to_string(i), ItemType::audio, i * 30.0, 20));
    r.timeline.push_back(at("b" + std::to_string(i), ItemType::label, i * 30.0 + 10));
  }
  return r;
}

}  // namespace

TEST(TimelineGeometry, LanesStackWithTheirGaps) {
  auto lanes = TimelineGeometry::visible(false, {});
  EXPECT_EQ(lanes, (std::vector<Lane>{Lane::ruler, Lane::screen, Lane::zooms, Lane::voice, Lane::music,
                                      Lane::labels}));
  EXPECT_EQ(TimelineGeometry::offered(true).size(), 7u);
  EXPECT_EQ(TimelineGeometry::hideable(false).front(), Lane::screen);
  // The ruler cannot be hidden.
  EXPECT_EQ(TimelineGeometry::visible(true, {Lane::ruler, Lane::zooms}).front(), Lane::ruler);

  Recording empty("p", "Film");
  TimelineGeometry g(empty, 10, 100, lanes);
  EXPECT_EQ(*g.top(Lane::voice), 120);
  EXPECT_FALSE(g.top(Lane::actions));
  EXPECT_EQ(g.height(), 30 + 54 + 36 + 54 + 54 + 24);
  EXPECT_EQ(g.lane(0), Lane::ruler);
  for (double y : {24.0, 27.0, 29.9}) EXPECT_FALSE(g.lane(y)) << y;
  EXPECT_EQ(g.lane(30), Lane::screen);
  EXPECT_FALSE(g.lane(-1));
  EXPECT_FALSE(g.lane(g.height()));
  EXPECT_EQ(TimelineGeometry::parseLane("music"), Lane::music);
  EXPECT_FALSE(TimelineGeometry::parseLane("Music"));
}

TEST(TimelineGeometry, BlocksSitInTheirLanesWithSeamsAndLeastWidths) {
  Recording r("p", "Film");
  r.segments = std::vector<Segment>{{"s1", {}, 0, 4, {}}, {"s2", {}, 4, 4.01, {}}};
  r.zooms = std::vector<Zoom>{{"z1", 1, 1.02, 2, {}, {}, {}}};
  r.timeline = {at("l1", ItemType::line, 2, 1.5), at("a1", ItemType::action, 3), at("m1", ItemType::audio, 0, 8),
                at("b1", ItemType::label, 6)};
  TimelineGeometry g(r, 10, 50, TimelineGeometry::offered(true), {{"cue3", 7, "click"}});

  auto find = [&](const std::string& id) {
    for (const auto& p : g.placements())
      if (p.id == id) return p;
    ADD_FAILURE() << "no block " << id;
    return TimelineGeometry::Placement{};
  };
  EXPECT_EQ(find("s1").rect, (TimelineGeometry::Rect{0, 32, 198, 48}));
  EXPECT_EQ(find("s2").rect.width, 6);
  EXPECT_EQ(find("z1").rect, (TimelineGeometry::Rect{50, 87, 8, 30}));
  EXPECT_EQ(find("a1").rect, (TimelineGeometry::Rect{150, 125, 20, 20}));
  EXPECT_EQ(find("cue3").rect.x, 350);
  EXPECT_EQ(find("l1").rect, (TimelineGeometry::Rect{100, 156, 73, 48}));
  EXPECT_EQ(find("m1").rect.y, 210);
  EXPECT_EQ(find("b1").rect.y, 264);
  EXPECT_EQ(g.labelBlocks().size(), 1u);
  EXPECT_DOUBLE_EQ(g.total, 8);  // the music bed reaches furthest

  // A selection box over the first second of the screen and zoom lanes.
  std::vector<std::string> boxed;
  for (const auto* p : g.items({0, 30, 60, 80})) boxed.push_back(p->id);
  EXPECT_EQ(boxed, (std::vector<std::string>{"s1", "z1"}));

  TimelineGeometry hidden(r, 10, 50, TimelineGeometry::visible(true, {Lane::zooms}));
  for (const auto& p : hidden.placements()) EXPECT_NE(p.lane, Lane::zooms);
}

TEST(TimelineGeometry, DropsSnapWithinSevenPixels) {
  Recording r("p", "Film");
  r.timeline = {at("l1", ItemType::line, 1, 2), at("l2", ItemType::line, 6, 1)};
  TimelineGeometry g(r, 10, 100, TimelineGeometry::offered(false));
  auto landed = g.drop(r, "l2", 3.06, true);  // 0.06s from l1's end, inside 0.07
  EXPECT_EQ(landed.start, 3);
  EXPECT_EQ(landed.snapped, 3);
  EXPECT_EQ(g.drop(r, "l2", 3.08, true).snapped, std::nullopt);
  EXPECT_EQ(g.drop(r, "l2", 3.06, false).start, 3.06);  // asked not to snap: lands exactly
}

// For random productions: the block of every item maps back to it by hit testing,
// and no snapped drop lands further than the snap window from where it fell.
TEST(TimelineGeometry, HitTestingAndSnappingHoldForRandomProductions) {
  std::mt19937 random(20261123);
  std::uniform_real_distribution<double> scale(8, 400), drop(0, 120);
  int checked = 0;
  for (int round = 0; round < 40; ++round) {
    Recording r = production(random, 30, 12, 8);
    const double px = scale(random);
    TimelineGeometry g(r, 200, px, TimelineGeometry::offered(round % 2 == 0));
    for (const auto& p : g.placements()) {
      // Just inside the block's start: a block that overflows from the left is drawn
      // under this one, so the later block answers.
      const auto* found = g.hit(p.rect.x + 0.25, p.rect.y + p.rect.height / 2);
      ASSERT_NE(found, nullptr) << p.id;
      EXPECT_EQ(found->id, p.id) << "at " << px << " px/s";
      // The lowest row of an inset block, which lies in the gap below its lane, is still its own.
      const auto* bottom = g.hit(p.rect.x + p.rect.width - 0.25, p.rect.y + p.rect.height - 0.5);
      ASSERT_NE(bottom, nullptr) << p.id;
      EXPECT_EQ(bottom->lane, p.lane);
      ++checked;
    }
    const double window = 7 / px;
    for (int i = 0; i < 60; ++i) {
      const double to = drop(random);
      const std::string id = "l" + std::to_string(i % 30);
      auto landed = g.drop(r, id, to, true);
      EXPECT_LE(std::abs(landed.start - to), window + 1e-12) << id << " dropped at " << to;
      if (!landed.snapped) {
        EXPECT_EQ(landed.start, to);
      }
      ++checked;
    }
  }
  EXPECT_GT(checked, 3000);
}
