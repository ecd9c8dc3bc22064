#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "TestSupport.hpp"
#include "kit/VariantsStore.hpp"

using namespace tavorin;
using namespace std::chrono;
namespace fs = std::filesystem;

namespace {

const Clock::time_point morning = sys_days{2026y / 2 / 16} + 9h + 45min + 1s;

Variant variant(int number, const std::string& file) {
  Variant v;
  v.number = number;
  v.file = file;
  v.text = "Welcome.";
  v.seconds = 1.5;
  v.made = morning;
  return v;
}

VariantsStore::Index sampleIndex() {
  Variant full = variant(2, "audio/g-0123456789.wav");
  full.character = "narrator";
  full.voice = "af_heart";
  full.offset = 0.0;
  full.group = "abc";
  full.split = "silence";
  full.imported = false;
  full.from = "take.wav";
  return {{{"l1", {variant(1, "audio/l1-a.wav"), full}}}, {{"l2", {variant(4, "audio/l2-x.wav")}}}};
}

}  // namespace

TEST(VariantsStore, IndexRoundTripsAndLeavesMissingValuesOut) {
  test::TempDir tmp;
  VariantsStore store(tmp.path());
  EXPECT_FALSE(store.exists());
  store.write(sampleIndex());
  EXPECT_TRUE(store.exists());
  EXPECT_EQ(store.read(), sampleIndex());

  auto j = nlohmann::json::parse(test::readFile(tmp / "audio" / "variants.json"));
  const auto& plain = j["lines"]["l1"][0];
  EXPECT_EQ(plain["made"], "2026-02-16T09:45:01Z");
  EXPECT_FALSE(plain.contains("character"));
  EXPECT_FALSE(plain.contains("offset"));
  EXPECT_EQ(j["lines"]["l1"][1]["offset"], 0.0);  // a zero is a value, not a missing one
  EXPECT_EQ(VariantsStore::Index::decode(R"({"lines":{},"removed":{}})"), VariantsStore::Index{});
}

TEST(VariantsStore, ADocumentMissingARequiredPartDoesNotRead) {
  const std::string ok = R"({"number":1,"file":"a.wav","text":"t","seconds":1,"made":"2026-02-16T09:45:01Z"})";
  EXPECT_NO_THROW(VariantsStore::Index::decode(R"({"lines":{"l1":[)" + ok + R"(]},"removed":{}})"));
  for (const std::string& bad :
       {std::string(R"({"lines":{}})"), std::string("[]"), std::string("{"),
        std::string(R"({"lines":{"l1":[{"number":1,"file":"a.wav","text":"t","seconds":1}]},"removed":{}})"),
        std::string(R"({"lines":{"l1":[{"number":1.5,"file":"a.wav","text":"t","seconds":1,"made":"2026-02-16T09:45:01Z"}]},"removed":{}})"),
        std::string(R"({"lines":{"l1":[{"number":1,"file":"a.wav","text":"t","seconds":1,"made":"yesterday"}]},"removed":{}})"),
        std::string(R"({"lines":{"l1":{}},"removed":{}})")})
    EXPECT_THROW(VariantsStore::Index::decode(bad), DocumentError) << bad;
}

TEST(VariantsStore, OpeningBuildsAMissingIndexAndMovesAnUnreadableOneAside) {
  test::TempDir tmp;
  VariantsStore store(tmp.path());
  int rebuilt = 0;
  auto rebuild = [&] {
    ++rebuilt;
    return sampleIndex();
  };

  auto first = store.load(rebuild, morning);
  EXPECT_EQ(rebuilt, 1);
  EXPECT_EQ(first.note, std::nullopt);
  EXPECT_EQ(store.read(), sampleIndex());  // written for next time

  auto second = store.load(rebuild, morning);
  EXPECT_EQ(rebuilt, 1);
  EXPECT_EQ(second.index, sampleIndex());

  test::writeFile(store.url, "{ torn");
  auto third = store.load(rebuild, morning);
  const long unix = duration_cast<seconds>(morning.time_since_epoch()).count();
  const std::string aside = "variants-unreadable-" + std::to_string(unix) + ".json";
  EXPECT_EQ(rebuilt, 2);
  EXPECT_EQ(third.note, "audio/variants.json would not read (audio/variants.json is not valid JSON.); moved it to " +
                            aside + " and listed the audio again");
  EXPECT_EQ(test::readFile(tmp / "audio" / aside), "{ torn");
  EXPECT_EQ(store.read(), sampleIndex());

  // A second bad file in the same second does not bury the first.
  test::writeFile(store.url, "{ torn again");
  store.load(rebuild, morning);
  EXPECT_EQ(test::readFile(tmp / "audio" / aside), "{ torn");
}

TEST(VariantsStore, ASeededIndexThatCannotBeSavedIsHeldWithANote) {
  test::TempDir tmp;
  test::writeFile(tmp / "audio", "a file where the folder should be");
  auto loaded = VariantsStore(tmp.path()).load(sampleIndex, morning);
  EXPECT_EQ(loaded.index, sampleIndex());
  ASSERT_TRUE(loaded.note);
  EXPECT_EQ(loaded.note->rfind("audio/variants.json did not save: ", 0), 0u) << *loaded.note;
}

TEST(VariantsStore, NumbersAreNeverGivenOutTwice) {
  VariantsStore::Index index;
  EXPECT_EQ(index.nextNumber("l1", {}), 1);
  index.removed["l1"] = {variant(3, "audio/l1-old.wav")};
  index.lines["l1"] = {variant(7, "audio/l1-new.wav")};
  // What is listed on the line counts only when the caller passes it in.
  EXPECT_EQ(index.nextNumber("l1", {}), 4);
  EXPECT_EQ(index.nextNumber("l1", index.lines["l1"]), 8);
  EXPECT_TRUE(index.wasRemoved("audio/l1-old.wav", "l1"));
  EXPECT_FALSE(index.wasRemoved("audio/l1-new.wav", "l1"));
  EXPECT_FALSE(index.wasRemoved("audio/l1-old.wav", "l2"));
}

TEST(VariantsStore, RenderNamesAreAContentLabel) {
  EXPECT_EQ(VariantsStore::filename("l1", "Hello there.", "narrator", "af_heart", ""), "l1-e73e969fac.wav");
  EXPECT_EQ(VariantsStore::filename("l1", "Hello there.", std::nullopt, std::nullopt, "3"), "l1-a29d5681ef.wav");
  // The separator is not escaped: moving it between fields is the one way to collide.
  EXPECT_EQ(VariantsStore::filename("l1", "a\x01" "b", std::nullopt, std::nullopt, ""),
            VariantsStore::filename("l1", "a", "b\x01", std::nullopt, ""));
  EXPECT_NE(VariantsStore::filename("l1", "ab", std::nullopt, std::nullopt, ""),
            VariantsStore::filename("l1", "a", "b", std::nullopt, ""));

  EXPECT_TRUE(VariantsStore::isRender("l1-0123456789.wav", "l1"));
  EXPECT_FALSE(VariantsStore::isRender("l1-abcdefghij.wav", "l1"));
  EXPECT_FALSE(VariantsStore::isRender("l1-012345678.wav", "l1"));
  EXPECT_FALSE(VariantsStore::isRender("l10-123456789.wav", "l1"));
  EXPECT_FALSE(VariantsStore::isRender("l1-0123456789.mp3", "l1"));

  EXPECT_EQ(VariantsStore::legacySalts().size(), 33u);
  const std::vector<VariantsStore::Cast> casts{{std::nullopt, std::nullopt}, {"narrator", "af_heart"}};
  EXPECT_EQ(VariantsStore::attribute("l1-e73e969fac.wav", "l1", {"Other.", "Hello there."}, casts),
            (VariantsStore::Attribution{"Hello there.", "narrator", "af_heart", ""}));
  EXPECT_EQ(VariantsStore::attribute("l1-a29d5681ef.wav", "l1", {"Hello there."}, casts),
            (VariantsStore::Attribution{"Hello there.", std::nullopt, std::nullopt, "3"}));
  EXPECT_EQ(VariantsStore::attribute("l1-0000000000.wav", "l1", {"Hello there."}, casts), std::nullopt);
}

TEST(Variant, SpeakingTakesTheReceiptBeforeTheLineAndGivesItBackAsOne) {
  TimelineItem line("l1", ItemType::line);
  line.text = "New words.";
  line.character = "host";
  line.voice = "pinned";
  line.duration = 2.0;
  Variant bare = Variant::speaking(line, "audio/l1.wav", morning);
  EXPECT_EQ(bare.text, "New words.");
  EXPECT_EQ(bare.voice, "pinned");
  EXPECT_FALSE(bare.isOld(line));

  line.renderedFrom = RenderedFrom{};
  line.renderedFrom->text = "Old words.";
  line.renderedFrom->voice = "asked";
  line.renderedFrom->used = "spoke";
  line.renderedFrom->offset = 1.25;
  Variant v = Variant::speaking(line, "audio/g.wav", morning);
  EXPECT_EQ(v.text, "Old words.");
  EXPECT_EQ(v.character, "host");  // the receipt names none
  EXPECT_EQ(v.voice, "spoke");     // the voice that spoke outranks the one asked for
  EXPECT_EQ(v.offset, 1.25);
  EXPECT_TRUE(v.isOld(line));
  line.text.reset();
  EXPECT_FALSE(Variant{}.isOld(line));  // a missing text reads as empty

  v.number = 5;
  RenderedFrom r = v.receipt(std::string("pin"));
  EXPECT_EQ(r.voice, "pin");
  EXPECT_EQ(r.used, "spoke");
  EXPECT_EQ(r.sample, 5);
  EXPECT_EQ(r.offset, 1.25);
  v.imported = true;
  EXPECT_EQ(v.receipt(std::nullopt).used, std::nullopt);  // nobody spoke an imported file
}

TEST(Variant, OnlyTheSliceAtTheLinesOffsetIsLive) {
  TimelineItem line("l2", ItemType::line);
  line.audio = "audio/g.wav";
  line.renderedFrom = RenderedFrom{};
  line.renderedFrom->offset = 3.0;
  Variant first = variant(1, "audio/g.wav");
  first.offset = 0.0;
  Variant second = variant(2, "audio/g.wav");
  second.offset = 3.0005;
  EXPECT_FALSE(first.isLive(line));
  EXPECT_TRUE(second.isLive(line));
  second.file = "audio/other.wav";
  EXPECT_FALSE(second.isLive(line));
  line.renderedFrom.reset();  // no receipt: the slice at 0
  EXPECT_TRUE(first.isLive(line));
}
