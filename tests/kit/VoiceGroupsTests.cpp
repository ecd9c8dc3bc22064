#include <gtest/gtest.h>

#include "kit/VoiceGroups.hpp"

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

}  // namespace
}  // namespace tavorin
