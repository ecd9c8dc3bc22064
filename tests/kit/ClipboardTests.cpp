#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "kit/Clipboard.hpp"
#include "kit/Pasteboard.hpp"

namespace tavorin {
namespace {

TimelineItem renderedLine(std::string id, double start) {
  TimelineItem item(std::move(id), ItemType::line);
  item.text = "Say it.";
  item.start = start;
  item.audio = "audio/" + item.id + ".wav";
  item.duration = 1.5;
  item.approved = true;
  item.renderedFrom = RenderedFrom{};
  item.renderedFrom->text = item.text;
  return item;
}

TimelineItem bed(std::string id, double start) {
  TimelineItem item(std::move(id), ItemType::audio);
  item.file = "music/bed.m4a";
  item.start = start;
  item.duration = 30;
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

TEST(ClipboardFreeId, LettersFirstThenNumbers) {
  std::set<std::string> taken;
  EXPECT_EQ(Clipboard::freeId("l1", taken), "l1");
  taken.insert("l1");
  std::vector<std::string> given;
  for (int i = 0; i < 28; ++i) {
    given.push_back(Clipboard::freeId("l1", taken));
    taken.insert(given.back());
  }
  EXPECT_EQ(given[0], "l1a");
  EXPECT_EQ(given[25], "l1z");
  EXPECT_EQ(given[26], "l1-2");
  EXPECT_EQ(given[27], "l1-3");

  // A freed letter is taken again before any number.
  taken.erase("l1c");
  EXPECT_EQ(Clipboard::freeId("l1", taken), "l1c");
}

TEST(ClipboardRehome, KeepsSpacingFromTheEarliestStart) {
  const auto into = production();
  const auto landed = Clipboard::rehome({renderedLine("l2", 7), bed("m1", 5), renderedLine("l9", 9.5)}, into, 20);
  ASSERT_EQ(landed.size(), 3u);
  // Sorted by start, shifted so that the earliest lands at `at`.
  EXPECT_EQ(landed[0].id, "m1");
  EXPECT_EQ(landed[0].start, 20);
  EXPECT_EQ(landed[1].id, "l2a");
  EXPECT_EQ(landed[1].start, 22);
  EXPECT_EQ(landed[2].id, "l9");
  EXPECT_EQ(landed[2].start, 24.5);
}

TEST(ClipboardRehome, APastedLineIsUnrenderedAndABedKeepsItsFile) {
  const auto landed = Clipboard::rehome({renderedLine("l1", 0), bed("m1", 1)}, production(), 3);
  ASSERT_EQ(landed.size(), 2u);
  const auto& line = landed[0];
  EXPECT_EQ(line.id, "l1a");
  EXPECT_FALSE(line.audio);
  EXPECT_FALSE(line.renderedFrom);
  EXPECT_EQ(line.approved, false);
  EXPECT_EQ(line.text, "Say it.");
  EXPECT_EQ(line.duration, 1.5);  // the length stays as a guide until it is rendered

  const auto& music = landed[1];
  EXPECT_EQ(music.file, "music/bed.m4a");
  EXPECT_EQ(music.duration, 30);
}

TEST(ClipboardRehome, ItemsWithoutStartLandAtAtExactly) {
  TimelineItem label("g1", ItemType::label);
  TimelineItem other("g2", ItemType::label);
  const auto landed = Clipboard::rehome({label, other}, production(), 3.137);
  ASSERT_EQ(landed.size(), 2u);
  EXPECT_EQ(landed[0].start, 3.137);
  EXPECT_EQ(landed[1].start, 3.137);
}

TEST(ClipboardRehome, APasteNeverCollidesWithItself) {
  const auto landed = Clipboard::rehome({renderedLine("l1", 0), renderedLine("l1", 1), renderedLine("l1", 2)},
                                        production(), 0);
  ASSERT_EQ(landed.size(), 3u);
  EXPECT_EQ(landed[0].id, "l1a");
  EXPECT_EQ(landed[1].id, "l1b");
  EXPECT_EQ(landed[2].id, "l1c");
}

TEST(ClipboardRehome, StartsAreFlooredAtZero) {
  // The one without a start counts from 0, before the origin of 4.
  TimelineItem label("g1", ItemType::label);
  const auto landed = Clipboard::rehome({renderedLine("l5", 4), label}, production(), 1);
  ASSERT_EQ(landed.size(), 2u);
  EXPECT_EQ(landed[0].id, "g1");
  EXPECT_EQ(landed[0].start, 0);
  EXPECT_EQ(landed[1].start, 1);
}

TEST(ClipboardRehome, ZoomsFindRoomOrAreDropped) {
  auto into = production();
  into.zooms = std::vector{zoom("z1", 10, 12)};
  // Copied from 1-3 and 4-5: pasted at 9 the first would overlap z1 and is cut
  // back to the room before it; the second lands at 12, right after z1.
  const auto landed = Clipboard::rehome(std::vector{zoom("z4", 4, 5), zoom("z1", 1, 3)}, into, 9);
  ASSERT_EQ(landed.size(), 2u);
  EXPECT_EQ(landed[0].from, 9);
  EXPECT_EQ(landed[0].to, 10);
  EXPECT_EQ(landed[1].from, 12);
  EXPECT_EQ(landed[1].to, 13);
  EXPECT_NE(landed[0].id, landed[1].id);
  EXPECT_NE(landed[0].id, "z1");
  EXPECT_NE(landed[1].id, "z1");

  // No room at all right against z1's start.
  EXPECT_TRUE(Clipboard::rehome(std::vector{zoom("z2", 0, 1)}, into, 9.95).empty());
}

TEST(ClipboardText, EncodesPrettySortedAndBareWithoutZooms) {
  const std::vector items{bed("m1", 2)};
  const auto text = Clipboard::encode(items);
  EXPECT_EQ(text, Clipboard::encode(Clipboard::Cargo{items, {}}));
  const auto parsed = nlohmann::json::parse(text);
  ASSERT_TRUE(parsed.is_array());
  EXPECT_NE(text.find("\n  {\n    \"duration\""), std::string::npos) << text;

  const auto withZooms = nlohmann::json::parse(Clipboard::encode(Clipboard::Cargo{items, {zoom("z1", 0, 2)}}));
  ASSERT_TRUE(withZooms.is_object());
  EXPECT_EQ(withZooms.at("zooms").size(), 1u);
}

TEST(ClipboardText, DecodesCargoArrayOrSingleItem) {
  const Clipboard::Cargo cargo{{renderedLine("l1", 0), bed("m1", 3)}, {zoom("z1", 0, 2)}};
  EXPECT_EQ(Clipboard::cargo(Clipboard::encode(cargo)), cargo);
  EXPECT_EQ(Clipboard::decode(Clipboard::encode(cargo.items)), cargo.items);
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
