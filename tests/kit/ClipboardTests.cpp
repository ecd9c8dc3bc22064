#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "kit/Clipboard.hpp"
#include "kit/Pasteboard.hpp"

namespace tavorin {
namespace {

TimelineItem renderedLine(std::string id, std::optional<double> start) {
  TimelineItem item(std::move(id), ItemType::line);
  item.text = "Say it.";
  item.start = start;
  item.audio = "audio/" + item.id + ".wav";
  item.duration = 1.5;
  item.approved = true;
  item.renderedFrom = RenderedFrom{};
  return item;
}

TimelineItem bed(std::string id, double start) {
  TimelineItem item(std::move(id), ItemType::audio);
  item.file = "music/bed.m4a";
  item.start = start;
  return item;
}

Zoom zoom(std::string id, double from, double to) {
  Zoom z;
  z.id = std::move(id);
  z.from = from;
  z.to = to;
  z.scale = 2;
  return z;
}

Recording production() {
  Recording r("demo", "Demo");
  r.timeline = {renderedLine("l1", 0), renderedLine("l2", 2)};
  return r;
}

std::vector<std::string> ids(const std::vector<TimelineItem>& items) {
  std::vector<std::string> out;
  for (const auto& item : items) out.push_back(item.id);
  return out;
}

TEST(ClipboardFreeId, AllLettersBeforeNumbers) {
  std::set<std::string> taken{"l1"};
  std::vector<std::string> given;
  for (int i = 0; i < 28; ++i) given.push_back(*taken.insert(Clipboard::freeId("l1", taken)).first);
  EXPECT_EQ(given[0], "l1a");
  EXPECT_EQ(given[25], "l1z");
  EXPECT_EQ(given[26], "l1-2");
  EXPECT_EQ(given[27], "l1-3");
  taken.erase("l1c");
  EXPECT_EQ(Clipboard::freeId("l1", taken), "l1c");
  EXPECT_EQ(Clipboard::freeId("g1", taken), "g1");
}

TEST(ClipboardRehome, KeepsSpacingFromTheEarliestStartWithFreshIds) {
  const auto landed = Clipboard::rehome({renderedLine("l2", 7), bed("m1", 5), renderedLine("l2", 9.5)}, production(), 20);
  EXPECT_EQ(ids(landed), (std::vector<std::string>{"m1", "l2a", "l2b"}));
  EXPECT_EQ(landed[0].start, 20);
  EXPECT_EQ(landed[1].start, 22);
  EXPECT_EQ(landed[2].start, 24.5);

  // One without a start counts from 0, before the origin of 4, and is floored at 0.
  const auto early = Clipboard::rehome({renderedLine("l5", 4), renderedLine("l6", std::nullopt)}, production(), 1);
  EXPECT_EQ(ids(early), (std::vector<std::string>{"l6", "l5"}));
  EXPECT_EQ(early[0].start, 0);
  EXPECT_EQ(early[1].start, 1);

  // With no start at all they land at `at` exactly.
  const auto loose = Clipboard::rehome({TimelineItem("g1", ItemType::label)}, production(), 3.137);
  EXPECT_EQ(loose.at(0).start, 3.137);
}

TEST(ClipboardRehome, APastedLineIsUnrenderedAndABedKeepsItsFile) {
  const auto landed = Clipboard::rehome({renderedLine("l1", 0), bed("m1", 1)}, production(), 3);
  ASSERT_EQ(landed.size(), 2u);
  EXPECT_FALSE(landed[0].audio);
  EXPECT_FALSE(landed[0].renderedFrom);
  EXPECT_EQ(landed[0].approved, false);
  EXPECT_EQ(landed[0].text, "Say it.");
  EXPECT_EQ(landed[1].file, "music/bed.m4a");
}

TEST(ClipboardRehome, ZoomsFindRoomOrAreDropped) {
  auto into = production();
  into.zooms = std::vector{zoom("z1", 10, 12)};
  // Pasted at 9, the first would overlap z1 and is cut back to the room before it;
  // the second lands right after z1, clear of the first.
  const auto landed = Clipboard::rehome(std::vector{zoom("z4", 4, 5), zoom("z1", 1, 3)}, into, 9);
  ASSERT_EQ(landed.size(), 2u);
  EXPECT_EQ(std::pair(landed[0].from, landed[0].to), std::pair(9.0, 10.0));
  EXPECT_EQ(std::pair(landed[1].from, landed[1].to), std::pair(12.0, 13.0));
  EXPECT_EQ(landed[0].id, "z2");
  EXPECT_EQ(landed[1].id, "z3");

  EXPECT_TRUE(Clipboard::rehome(std::vector{zoom("z2", 0, 1)}, into, 9.95).empty());
}

TEST(ClipboardText, RoundTripsEveryForm) {
  const Clipboard::Cargo cargo{{renderedLine("l1", 0), bed("m1", 3)}, {zoom("z1", 0, 2)}};
  EXPECT_EQ(Clipboard::cargo(Clipboard::encode(cargo)), cargo);

  // Without zooms the text is a bare, pretty, sorted array.
  const auto bare = Clipboard::encode(Clipboard::Cargo{{bed("m1", 2)}, {}});
  EXPECT_TRUE(nlohmann::json::parse(bare).is_array());
  EXPECT_NE(bare.find("[\n  {\n    \"file\": \"music/bed.m4a\",\n    \"id\""), std::string::npos) << bare;
  EXPECT_EQ(Clipboard::decode(bare), std::vector{bed("m1", 2)});

  EXPECT_EQ(Clipboard::decode(R"({"id": "g1", "type": "label", "text": "Step one"})")->at(0).text, "Step one");
  EXPECT_EQ(Clipboard::decode(R"({"items": [{"id": "l1", "type": "line"}]})")->size(), 1u);
}

TEST(ClipboardText, AnythingElseIsNothing) {
  for (const char* text : {"", "hello", "42", "null", R"({"id": "l1"})", R"({"id": "x", "type": "video"})",
                           R"([{"id": "l1", "type": "line"}, {"text": "no id"}])", R"({"items": 3})"})
    EXPECT_FALSE(Clipboard::cargo(text)) << text;
}

TEST(MemoryPasteboard, ACopyReplacesEverythingThere) {
  MemoryPasteboard board;
  EXPECT_FALSE(board.read(Clipboard::pasteboardType));
  board.write("text/plain", "hello");
  board.write(Clipboard::pasteboardType, "[]");
  EXPECT_EQ(board.read(Clipboard::pasteboardType), "[]");
  EXPECT_FALSE(board.read("text/plain"));
}

}  // namespace
}  // namespace tavorin
