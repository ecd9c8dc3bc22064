#include <gtest/gtest.h>

#include "kit/VoiceGroups.hpp"
#include "kit/VoiceSpan.hpp"

namespace tavorin {
namespace {

TimelineItem line(std::string id, std::optional<double> start, std::optional<std::string> text = std::nullopt) {
  TimelineItem item(std::move(id), ItemType::line);
  item.start = start;
  item.text = std::move(text);
  return item;
}

RenderedFrom landedIn(std::string group) {
  RenderedFrom receipt;
  receipt.group = std::move(group);
  return receipt;
}

std::vector<std::string> ids(const std::vector<const TimelineItem*>& items) {
  std::vector<std::string> out;
  for (const auto* item : items) out.push_back(item->id);
  return out;
}

struct Production : ::testing::Test {
  Recording rec{"demo", "Demo"};

  void SetUp() override {
    rec.voice.character = "narrator";
    rec.voice.voice = "af_heart";
    auto l2 = line("l2", 1.5, "How are you?");
    l2.character = "guide";
    l2.rate = 1.25;
    rec.timeline = {line("l1", 0, "Hello there."), l2};
  }

  std::string hashOfAll() const { return VoiceGroups::hash(rec, VoiceGroups::ordered(rec)); }
};

TEST_F(Production, HashIsMd5OfTheLinesKeys) {
  // The first ten hex digits of MD5("l1␁Hello there.␁narrator␁af_heart␁1␂l2␁How are you?␁guide␁␁1.25").
  EXPECT_EQ(hashOfAll(), "b05376490d");
  TimelineItem silent = line("l3", std::nullopt);
  silent.rate = 0.5;
  EXPECT_EQ(VoiceGroups::hash(rec, {&silent}), "4b0dbbc63d");
  EXPECT_EQ(VoiceGroups::hash(rec, {}), "d41d8cd98f");
}

TEST_F(Production, HashChangesWithWhatIsSpoken) {
  const auto before = hashOfAll();
  auto changed = [&](auto edit) {
    Recording saved = rec;
    edit(rec);
    auto after = hashOfAll();
    rec = saved;
    return after != before;
  };
  EXPECT_TRUE(changed([](Recording& r) { r.timeline[0].text = "Hello, there."; }));
  EXPECT_TRUE(changed([](Recording& r) { r.timeline[1].rate = 1.2; }));
  EXPECT_TRUE(changed([](Recording& r) { r.timeline[0].voice = "am_adam"; }));
  EXPECT_TRUE(changed([](Recording& r) { r.voice.voice = "af_bella"; }));
  EXPECT_TRUE(changed([](Recording& r) { r.timeline[1].character = "narrator"; }));
  EXPECT_TRUE(changed([](Recording& r) { r.timeline[0].id = "l9"; }));
  // What isn't heard leaves it alone.
  EXPECT_FALSE(changed([](Recording& r) { r.timeline[0].note = "opening"; }));
  EXPECT_FALSE(changed([](Recording& r) { r.timeline[1].start = 1.75; }));
  EXPECT_FALSE(changed([](Recording& r) { r.timeline[0].approved = true; }));
  // A rate of exactly 1 prints as an absent one does.
  EXPECT_FALSE(changed([](Recording& r) { r.timeline[0].rate = 1.0; }));
}

TEST_F(Production, CastKeyJoinsCharacterVoiceAndRate) {
  EXPECT_EQ(VoiceGroups::castKey(rec, rec.timeline[0]), "narrator\x01" "af_heart\x01" "1");
  EXPECT_EQ(VoiceGroups::castKey(rec, rec.timeline[1]), "guide\x01\x01" "1.25");
  Recording bare("demo", "Demo");
  EXPECT_EQ(VoiceGroups::castKey(bare, line("l1", 0)), "\x01\x01" "1");
}

TEST_F(Production, RehashAndMembersFollowTheLandedGroup) {
  const auto group = hashOfAll();
  for (auto& item : rec.timeline) item.renderedFrom = landedIn(group);
  // An unrelated line, and one of another group, are not members.
  rec.timeline.insert(rec.timeline.begin(), line("l0", 0.5, "Aside."));
  auto other = line("l4", 0.2, "Elsewhere.");
  other.renderedFrom = landedIn("0000000000");
  rec.timeline.push_back(other);

  EXPECT_EQ(VoiceGroups::members(rec, group), (std::vector<std::string>{"l1", "l2"}));
  EXPECT_EQ(VoiceGroups::rehash(rec, group), group);
  rec.timeline[2].text = "How are you doing?";
  EXPECT_NE(VoiceGroups::rehash(rec, group), group);
  EXPECT_TRUE(VoiceGroups::members(rec, "ffffffffff").empty());
}

TEST(VoiceGroupsOrder, ByStartWithUnplacedLastAndTiesInTimelineOrder) {
  Recording rec("demo", "Demo");
  rec.timeline = {line("a", std::nullopt), line("b", 2),
                  TimelineItem("act", ItemType::action),
                  line("c", 1), line("d", 2), line("e", std::nullopt), line("f", 0)};
  rec.timeline[2].start = 0.5;
  EXPECT_EQ(ids(VoiceGroups::ordered(rec)), (std::vector<std::string>{"f", "c", "b", "d", "a", "e"}));
  auto withStart = VoiceGroups::ordered(rec, [](const TimelineItem& item) { return item.start.has_value(); });
  EXPECT_EQ(ids(withStart), (std::vector<std::string>{"f", "c", "b", "d"}));
}

TEST(VoiceGroupsText, JoinsPresentTextsWithOneSpace) {
  auto a = line("a", 0, "One.");
  auto b = line("b", 1);
  auto c = line("c", 2, "");
  auto d = line("d", 3, "Two.");
  EXPECT_EQ(VoiceGroups::text({&a, &b, &d}), "One. Two.");
  EXPECT_EQ(VoiceGroups::text({&b}), "");
  // An empty text is still a text: it takes its place between spaces.
  EXPECT_EQ(VoiceGroups::text({&a, &c, &d}), "One.  Two.");
}

// A production of n lines of short text, one a second, under the span given.
Recording lines(int n, std::optional<std::string> span) {
  Recording rec("demo", "Demo");
  rec.voice.character = "narrator";
  rec.voice.span = std::move(span);
  for (int i = 1; i <= n; ++i) rec.timeline.push_back(line("l" + std::to_string(i), i, "Line " + std::to_string(i) + "."));
  return rec;
}

std::vector<std::vector<std::string>> packing(const Recording& rec, const VoiceGroups::CueTags& cues = {}) {
  std::vector<std::vector<std::string>> out;
  for (const auto& group : VoiceGroups::of(rec, cues)) out.push_back(group.lineIds);
  return out;
}

using Packs = std::vector<std::vector<std::string>>;

TEST(VoiceSpanSetting, ParsesAndNamesTheMenu) {
  EXPECT_EQ(VoiceSpan::parse(std::nullopt), VoiceSpan::line());
  EXPECT_EQ(VoiceSpan::parse(""), VoiceSpan::line());
  EXPECT_EQ(VoiceSpan::parse("cue"), VoiceSpan::cue());
  EXPECT_EQ(VoiceSpan::parse("chars:600"), VoiceSpan::characters(600));
  EXPECT_EQ(VoiceSpan::parse("600"), VoiceSpan::characters(600));
  EXPECT_EQ(VoiceSpan::parse("+42"), VoiceSpan::characters(42));
  // A damaged setting degrades to per-line rendering.
  for (const char* damaged : {"chars:0", "chars:x", "0", "-5", "chars:-3", "chars:", "12x", "Cue"})
    EXPECT_EQ(VoiceSpan::parse(damaged), VoiceSpan::line()) << damaged;

  std::vector<std::string> titles;
  for (const auto& span : VoiceSpan::all()) {
    titles.push_back(span.title());
    EXPECT_EQ(VoiceSpan::parse(span.raw()), span) << span.title();
    EXPECT_EQ(VoiceSpan::named(span.title()), span);
  }
  EXPECT_EQ(titles, (std::vector<std::string>{"Per line", "Up to 300 characters", "Up to 600 characters",
                                              "Up to 1000 characters", "Per cue"}));
  EXPECT_FALSE(VoiceSpan::line().groups());
  EXPECT_TRUE(VoiceSpan::cue().groups());
  EXPECT_FALSE(VoiceSpan::named("Up to 5 characters"));
}

TEST(VoiceGroupsPacking, PerLineUnlessPinned) {
  auto rec = lines(3, std::nullopt);
  EXPECT_EQ(packing(rec), (Packs{{"l1"}, {"l2"}, {"l3"}}));
  auto groups = VoiceGroups::of(rec);
  EXPECT_TRUE(groups[0].isAlone());
  EXPECT_EQ(groups[0].hash, VoiceGroups::hash(rec, {rec.item("l1")}));
  EXPECT_EQ(groups[0].ticket(), "g:" + groups[0].hash);
  EXPECT_EQ(groups[0].file(), "group-" + groups[0].hash + ".wav");
  EXPECT_EQ(groups[0].file("2"), "group-" + groups[0].hash + "-2.wav");
  EXPECT_TRUE(VoiceGroups::isGroupTicket(groups[0].ticket()));
  EXPECT_FALSE(VoiceGroups::isGroupTicket("audition:x"));

  // Eight lines under one pin make one group, past the pack limit, under any span.
  auto pinned = lines(8, std::nullopt);
  for (auto& item : pinned.timeline) item.together = "l1";
  EXPECT_EQ(packing(pinned).size(), 1u);
  pinned.voice.span = "chars:300";
  ASSERT_EQ(packing(pinned).size(), 1u);
  EXPECT_EQ(VoiceGroups::of(pinned)[0].text, "Line 1. Line 2. Line 3. Line 4. Line 5. Line 6. Line 7. Line 8.");
}

TEST(VoiceGroupsPacking, SixAtMostAndWithinTheCharacterSpan) {
  EXPECT_EQ(packing(lines(7, "chars:1000")),
            (Packs{{"l1", "l2", "l3", "l4", "l5", "l6"}, {"l7"}}));
  // "Line 1. Line 2." is 15 characters; a third line would make 23.
  auto rec = lines(5, "chars:20");
  EXPECT_EQ(packing(rec), (Packs{{"l1", "l2"}, {"l3", "l4"}, {"l5"}}));
  // Under the span cue with no cues known, lines pack by six.
  EXPECT_EQ(packing(lines(7, "cue")).size(), 2u);
}

TEST(VoiceGroupsPacking, WhatBreaksAPack) {
  auto rec = lines(7, "chars:1000");
  rec.item("l3")->approved = true;  // frozen: alone, and it cuts the run
  EXPECT_EQ(packing(rec), (Packs{{"l1", "l2"}, {"l3"}, {"l4", "l5", "l6", "l7"}}));

  rec = lines(4, "chars:1000");
  rec.item("l3")->rate = 1.5;  // same character and voice, another rate
  EXPECT_EQ(packing(rec), (Packs{{"l1", "l2"}, {"l3"}, {"l4"}}));

  rec = lines(4, "chars:1000");
  RenderedFrom sample;
  sample.sample = 2;
  rec.item("l2")->renderedFrom = sample;  // a chosen sample is a take of its own
  rec.item("l4")->character = "guide";
  EXPECT_EQ(packing(rec), (Packs{{"l1"}, {"l2"}, {"l3"}, {"l4"}}));

  // A pin is its own pack: unpinned neighbours on either side stay out.
  rec = lines(5, "chars:1000");
  rec.item("l2")->together = "l2";
  rec.item("l3")->together = "l2";
  rec.item("l4")->together = "l4";
  EXPECT_EQ(packing(rec), (Packs{{"l1"}, {"l2", "l3"}, {"l4"}, {"l5"}}));
}

TEST(VoiceGroupsPacking, PerCueFollowsTheTags) {
  auto rec = lines(5, "cue");
  VoiceGroups::CueTags cues{{"l2", "intro"}, {"l3", "intro"}, {"l4", "demo"}, {"l5", "demo"}};
  // l1 lies before the first cue: untagged beside a tagged line breaks.
  EXPECT_EQ(packing(rec, cues), (Packs{{"l1"}, {"l2", "l3"}, {"l4", "l5"}}));
  auto group = VoiceGroups::containing("l5", rec, cues);
  ASSERT_TRUE(group);
  EXPECT_EQ(group->lineIds, (std::vector<std::string>{"l4", "l5"}));
  EXPECT_EQ(group->character, "narrator");
  EXPECT_FALSE(VoiceGroups::containing("nope", rec, cues));
}

TEST(VoiceGroupsPacking, AGroupIsNamedByTheHashOfItsMembers) {
  auto rec = lines(3, "chars:1000");
  rec.voice.voice = "en-us";
  auto groups = VoiceGroups::of(rec);
  ASSERT_EQ(groups.size(), 1u);
  EXPECT_EQ(groups[0].hash, VoiceGroups::hash(rec, VoiceGroups::ordered(rec)));
  EXPECT_EQ(groups[0].voice, "en-us");
  // Landed under that name, the members still rehash to it.
  for (auto& item : rec.timeline) item.renderedFrom = landedIn(groups[0].hash);
  EXPECT_EQ(VoiceGroups::rehash(rec, groups[0].hash), groups[0].hash);
}

}  // namespace
}  // namespace tavorin
