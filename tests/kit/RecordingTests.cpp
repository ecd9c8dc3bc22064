#include <gtest/gtest.h>

#include <string>

#include "TestSupport.hpp"
#include "kit/Cut.hpp"
#include "kit/Music.hpp"
#include "kit/Recording.hpp"
#include "kit/VoiceGroups.hpp"
#include "kit/Zooms.hpp"

namespace tavorin {
namespace {

// Every key of every record, written as a save writes it.
const std::string fullDocument = test::readFile(std::filesystem::path(TAVORIN_TEST_DATA) / "every-key.json");

const std::string minimalDocument = R"json({
  "id": "demo",
  "schema": "tavorin.recording.v1",
  "timeline": [],
  "title": "Demo",
  "voice": {
    "driver": "kokoro"
  }
}
)json";

// The minimal document with one key's text replaced, to break it in one place.
std::string withReplaced(const std::string& from, const std::string& to, std::string doc = minimalDocument) {
  auto at = doc.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return doc.replace(at, from.size(), to);
}

std::string decodeFailure(const std::string& json) {
  try {
    Recording::decode(json);
  } catch (const DocumentError& e) {
    return e.what();
  }
  return "";
}

TEST(RecordingCoding, FullDocumentSurvivesASaveByteForByte) {
  Recording rec = Recording::decode(fullDocument);
  EXPECT_EQ(rec.encoded(), fullDocument);
  EXPECT_EQ(Recording::decode(rec.encoded()), rec);
}

TEST(RecordingCoding, FullDocumentReadsIntoTheRightFields) {
  Recording rec = Recording::decode(fullDocument);
  ASSERT_TRUE(rec.exportTarget);
  EXPECT_EQ(rec.exportTarget->format, ExportFormat::gif);
  EXPECT_EQ(rec.exportTarget->height, 720);
  EXPECT_EQ(rec.exportTarget->destination, ExportDestination::youtube);
  ASSERT_TRUE(rec.capture);
  EXPECT_EQ(rec.capture->fps, 30);
  ASSERT_EQ(rec.timeline.size(), 4u);
  EXPECT_EQ(rec.timeline[1].type, ItemType::action);
  EXPECT_EQ(rec.timeline[3].type, ItemType::audio);
  EXPECT_EQ(rec.timeline[3].gain, 0.0);
  const auto& receipt = *rec.timeline[0].renderedFrom;
  EXPECT_EQ(receipt.sample, 2);
  EXPECT_EQ(receipt.startsAt(), 0.75);
  ASSERT_TRUE(receipt.words);
  EXPECT_EQ(receipt.words->at(1), (WordTime{"there.", 0.4}));
  EXPECT_EQ(rec.zooms->at(0).anchor, (Zoom::Anchor{0.25, 0.75}));
  EXPECT_EQ(rec.agent->fences, (std::vector<std::string>{"fileEdits", "shell"}));
}

TEST(RecordingCoding, FreshRecordingWritesOnlyWhatItHolds) {
  EXPECT_EQ(Recording("demo", "Demo").encoded(), minimalDocument);
}

TEST(RecordingCoding, GainOfZeroIsWrittenAndAMissingGainIsNot) {
  TimelineItem bed("m1", ItemType::audio);
  EXPECT_EQ(bed.encoded(), R"({"id":"m1","type":"audio"})");
  bed.gain = 0;
  EXPECT_EQ(bed.encoded(), R"({"gain":0.0,"id":"m1","type":"audio"})");
  EXPECT_EQ(TimelineItem::decode(bed.encoded()), bed);
}

TEST(RecordingCoding, NullOptionalKeysDecodeAsMissingAndUnknownKeysAreIgnored) {
  auto rec = Recording::decode(withReplaced(
      R"("timeline": [])",
      R"("timeline": [{"id": "l1", "type": "line", "start": null, "renderedFrom": null, "mood": "grim"}],
  "description": null, "segments": null, "export": null, "futureKey": {"x": 1})"));
  ASSERT_EQ(rec.timeline.size(), 1u);
  EXPECT_EQ(rec.timeline[0], TimelineItem("l1", ItemType::line));
  EXPECT_FALSE(rec.description);
  EXPECT_FALSE(rec.segments);
  EXPECT_FALSE(rec.exportTarget);
  EXPECT_EQ(rec.encoded().find("futureKey"), std::string::npos);
  EXPECT_EQ(rec.encoded().find("null"), std::string::npos);
}

TEST(RecordingCoding, NumbersFollowTheirFieldsType) {
  // A whole number in a double field reads as a double and is written as one.
  auto rec = Recording::decode(withReplaced(R"("timeline": [])", R"("timeline": [], "gap": 1)"));
  EXPECT_EQ(rec.gap, 1.0);
  EXPECT_NE(rec.encoded().find(R"("gap": 1.0)"), std::string::npos);

  // An integer field takes a float only when it is whole.
  rec = Recording::decode(withReplaced(R"("timeline": [])", R"("timeline": [], "capture": {"fps": 30.0})"));
  EXPECT_EQ(rec.capture->fps, 30);
  EXPECT_NE(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "capture": {"fps": 29.97})")), "");
  EXPECT_NE(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "export": {"height": 1e12})")), "");
}

TEST(RecordingCoding, MissingRequiredKeysFailTheWholeDocument) {
  EXPECT_EQ(decodeFailure(withReplaced(R"("voice": {
    "driver": "kokoro"
  })", R"("other": 1)")),
            "The production needs the key \"voice\".");
  EXPECT_EQ(decodeFailure(withReplaced(R"("timeline": [],)", "")), "The production needs the key \"timeline\".");
  EXPECT_EQ(decodeFailure(withReplaced(R"("driver": "kokoro")", R"("voice": "af_heart")")),
            "The production's voice needs the key \"driver\".");
  EXPECT_EQ(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [{"id": "l1"}])")),
            "The timeline item \"l1\" needs the key \"type\".");
  EXPECT_NE(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "zooms": [{"id": "z1", "from": 1, "to": 2}])")),
            "");
  EXPECT_NE(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "segments": [{"from": 1, "to": 2}])")),
            "");
  EXPECT_NE(decodeFailure(withReplaced(R"("timeline": [])",
                                       R"("timeline": [], "subtitles": {"anchor": {"x": 0.5}})")),
            "");
  EXPECT_NE(decodeFailure(withReplaced(
                R"("timeline": [])",
                R"("timeline": [{"id": "l1", "type": "line", "renderedFrom": {"words": [{"w": "hi"}]}}])")),
            "");
}

TEST(RecordingCoding, WrongTypesFailWithTheKeyAndTheRecordNamed) {
  EXPECT_EQ(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "capture": {"fps": "30"})")),
            "The key \"fps\" of the capture settings must be a whole number, not the text \"30\".");
  EXPECT_EQ(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": {})")),
            "The key \"timeline\" of the production must be a list, not an object.");
  EXPECT_EQ(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [{"id": "l1", "type": "video"}])")),
            "The key \"type\" of the timeline item \"l1\" must be one of \"line\", \"action\", \"label\" or "
            "\"audio\", not the text \"video\".");
  EXPECT_EQ(
      decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [{"id": "l1", "type": "line", "approved": 1}])")),
      "The key \"approved\" of the timeline item \"l1\" must be true or false, not the number 1.");
  // A boolean is never a number, and a required key may not be null.
  EXPECT_NE(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "gap": true)")), "");
  EXPECT_NE(decodeFailure(withReplaced(R"("title": "Demo")", R"("title": null)")), "");
  EXPECT_EQ(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "export": {"format": "mov"})")),
            "The key \"format\" of the export settings must be one of \"mp4\" or \"gif\", not the text \"mov\".");
  EXPECT_NE(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "agent": {"fences": ["shell", 2]})")),
            "");
  EXPECT_NE(decodeFailure(withReplaced(R"("timeline": [])", R"("timeline": [], "origin": "claude")")), "");
}

TEST(RecordingCoding, TextThatIsNotAnObjectOrNotJSONFails) {
  EXPECT_NE(decodeFailure("{\"id\": "), "");
  EXPECT_NE(decodeFailure("[]"), "");
  EXPECT_NE(decodeFailure(""), "");
  EXPECT_THROW(TimelineItem::decode("\"l1\""), DocumentError);
}

TEST(RecordingSchema, LegacyTagNormalisesAndUnknownTagsAreCarried) {
  EXPECT_TRUE(Schema::accepted("tavorin.recording.v1"));
  EXPECT_TRUE(Schema::accepted("velmora.recording.v1"));
  EXPECT_FALSE(Schema::accepted("tavorin.recording.v2"));
  EXPECT_EQ(Schema::normalize("velmora.recording.v1"), "tavorin.recording.v1");
  EXPECT_EQ(Schema::normalize("tavorin.recording.v1"), "tavorin.recording.v1");
  EXPECT_EQ(Schema::normalize("someone.else.v9"), "someone.else.v9");

  auto legacy = Recording::decode(withReplaced("tavorin.recording.v1", "velmora.recording.v1"));
  EXPECT_EQ(Schema::normalize(legacy.schema), Schema::current);

  // Decoding never refuses a tag, and writing keeps what the record holds.
  const auto unknownDoc = withReplaced("tavorin.recording.v1", "tavorin.recording.v9");
  auto unknown = Recording::decode(unknownDoc);
  EXPECT_EQ(unknown.schema, "tavorin.recording.v9");
  EXPECT_EQ(unknown.encoded(), unknownDoc);
}

// ---------------------------------------------------------------------------

TimelineItem line(std::string id, std::string text) {
  TimelineItem item(std::move(id), ItemType::line);
  item.text = std::move(text);
  return item;
}

// A production with the voice "af_heart" and one line rendered as things stand now.
struct RenderedLine : ::testing::Test {
  Recording rec{"demo", "Demo"};
  TimelineItem& l1() { return rec.timeline[0]; }

  void SetUp() override {
    rec.voice.voice = "af_heart";
    auto item = line("l1", "Hello there.");
    item.audio = "audio/l1.wav";
    item.renderedFrom = RenderedFrom{};
    item.renderedFrom->text = "Hello there.";
    item.renderedFrom->voice = "af_heart";
    rec.timeline.push_back(item);
  }
};

TEST_F(RenderedLine, IsFreshAsRendered) {
  EXPECT_EQ(rec.staleReason(l1()), std::nullopt);
  EXPECT_TRUE(rec.staleLines().empty());
}

TEST_F(RenderedLine, UnrenderedLineIsNeverStale) {
  l1().audio.reset();
  l1().text = "Something else.";
  EXPECT_FALSE(rec.isStale(l1()));
}

TEST_F(RenderedLine, AudioWithoutAReceipt) {
  l1().renderedFrom.reset();
  EXPECT_EQ(rec.staleReason(l1()), "nothing recorded how it was rendered");
}

TEST_F(RenderedLine, TextChangedOutranksEverythingAfterIt) {
  l1().text = "Hello, there.";
  rec.voice.voice = "af_bella";
  EXPECT_EQ(rec.staleReason(l1()), "its text changed");
  ASSERT_EQ(rec.staleLines().size(), 1u);
  EXPECT_EQ(rec.staleLines()[0]->id, "l1");
  // A line without text of its own doesn't judge the text.
  l1().text.reset();
  EXPECT_EQ(rec.staleReason(l1()), "its voice changed");
}

TEST_F(RenderedLine, ImportedAudioAnswersOnlyToItsText) {
  l1().renderedFrom->imported = true;
  rec.voice.voice = "af_bella";
  rec.voice.character = "narrator";
  EXPECT_FALSE(rec.isStale(l1()));
  l1().text = "Goodbye.";
  EXPECT_EQ(rec.staleReason(l1()), "its text changed");
}

TEST_F(RenderedLine, UsedVoiceOutranksThePinnedOne) {
  l1().renderedFrom->voice = "af_bella";
  l1().renderedFrom->used = "af_heart";
  EXPECT_FALSE(rec.isStale(l1()));
  l1().renderedFrom->voice = "af_heart";
  l1().renderedFrom->used = "af_bella";
  EXPECT_EQ(rec.staleReason(l1()), "its voice changed");
}

TEST_F(RenderedLine, VoiceChangedAndAMissingVoiceNeverStales) {
  l1().voice = "am_adam";
  EXPECT_EQ(rec.staleReason(l1()), "its voice changed");
  l1().voice.reset();
  l1().renderedFrom->voice.reset();
  EXPECT_EQ(rec.staleReason(l1()), "its voice changed");
  rec.voice.voice.reset();
  EXPECT_FALSE(rec.isStale(l1()));
}

TEST_F(RenderedLine, CharacterChanged) {
  rec.voice.character = "narrator";
  EXPECT_EQ(rec.staleReason(l1()), "its character changed");
  l1().renderedFrom->character = "narrator";
  EXPECT_FALSE(rec.isStale(l1()));
  l1().character = "guide";
  EXPECT_EQ(rec.staleReason(l1()), "its character changed");
  // The foreign character has no inherited voice, so the voice can't judge it.
  l1().renderedFrom->character = "guide";
  EXPECT_FALSE(rec.isStale(l1()));
}

TEST_F(RenderedLine, GenerationGroupChanged) {
  auto l2 = line("l2", "How are you?");
  l2.audio = l1().audio;
  l2.renderedFrom = l1().renderedFrom;
  l2.renderedFrom->text = l2.text;
  l1().start = 0;
  l2.start = 1.5;
  rec.timeline.push_back(l2);
  const auto group = VoiceGroups::hash(rec, VoiceGroups::ordered(rec));
  l1().renderedFrom->group = group;
  rec.timeline[1].renderedFrom->group = group;
  EXPECT_TRUE(rec.staleLines().empty());

  // A neighbour's edit re-renders the whole generation, so both lines go stale.
  rec.timeline[1].text = "How are you today?";
  rec.timeline[1].renderedFrom->text = rec.timeline[1].text;
  EXPECT_EQ(rec.staleReason(l1()), "its generation group changed");
  EXPECT_EQ(rec.staleLines().size(), 2u);
}

TEST(RecordingVoice, ResolvedVoiceFollowsTheCharacter) {
  Recording rec("demo", "Demo");
  rec.voice.voice = "af_heart";
  auto item = line("l1", "Hi.");
  EXPECT_EQ(rec.resolvedVoice(item), "af_heart");
  item.voice = "";
  EXPECT_EQ(rec.resolvedVoice(item), "af_heart");
  item.voice = "am_adam";
  EXPECT_EQ(rec.resolvedVoice(item), "am_adam");
  item.voice.reset();
  item.character = "guide";
  EXPECT_EQ(rec.resolvedCharacter(item), "guide");
  EXPECT_EQ(rec.resolvedVoice(item), std::nullopt);
  rec.voice.character = "guide";
  EXPECT_EQ(rec.resolvedVoice(item), "af_heart");
  item.character.reset();
  EXPECT_EQ(rec.resolvedCharacter(item), "guide");
}

// ---------------------------------------------------------------------------

TEST(EffectiveDuration, LinesDivideByTheirRate) {
  auto item = line("l1", "Hi.");
  EXPECT_EQ(item.effectiveDuration(), std::nullopt);
  item.hold = 1.5;
  EXPECT_EQ(item.effectiveDuration(), 1.5);
  item.duration = 3;
  EXPECT_EQ(item.effectiveDuration(), 3.0);
  item.rate = 1.5;
  EXPECT_DOUBLE_EQ(*item.effectiveDuration(), 2.0);
  item.rate = 0;
  EXPECT_DOUBLE_EQ(*item.effectiveDuration(), 300.0);
  item.rate = -2;
  EXPECT_DOUBLE_EQ(*item.effectiveDuration(), 300.0);
}

TEST(EffectiveDuration, BedsTakeTheirTrim) {
  TimelineItem bed("m1", ItemType::audio);
  bed.hold = 4;  // a bed never holds
  EXPECT_EQ(bed.effectiveDuration(), std::nullopt);
  bed.duration = 0;
  EXPECT_EQ(bed.effectiveDuration(), 0.0);
  bed.duration = 60;
  EXPECT_EQ(bed.effectiveDuration(), 60.0);
  bed.rate = 2;  // rate belongs to lines
  bed.trimIn = 10;
  bed.trimOut = 25;
  EXPECT_DOUBLE_EQ(*bed.effectiveDuration(), 15.0);
  bed.trimOut = 90;
  EXPECT_DOUBLE_EQ(*bed.effectiveDuration(), 50.0);
  // Both marks at the file's end still leave a tenth of a second.
  bed.trimIn = 60;
  bed.trimOut = 60;
  EXPECT_NEAR(*bed.effectiveDuration(), 0.1, 1e-9);
}

TEST(MusicTrim, HoldsMarksInsideTheFile) {
  EXPECT_EQ(Music::trim(5, 10, 0), std::make_pair(0.0, 0.0));
  EXPECT_EQ(Music::trim(5, 10, -1), std::make_pair(0.0, 0.0));
  EXPECT_EQ(Music::trim(-3, 80, 60), std::make_pair(0.0, 60.0));
  EXPECT_EQ(Music::trim(2, 8, 60), std::make_pair(2.0, 8.0));
  auto crossed = Music::trim(20, 10, 60);
  EXPECT_EQ(crossed.first, 20);
  EXPECT_NEAR(crossed.second, 20.1, 1e-9);
  auto atEnd = Music::trim(60, 60, 60);
  EXPECT_NEAR(atEnd.first, 59.9, 1e-9);
  EXPECT_EQ(atEnd.second, 60);
  auto tiny = Music::trim(0.05, 0, 0.05);
  EXPECT_EQ(tiny, std::make_pair(0.0, 0.05));
}

// ---------------------------------------------------------------------------

TEST(NextIds, FirstFreeNumberAmongTheirOwnKinds) {
  Recording rec("demo", "Demo");
  rec.timeline = {TimelineItem("m1", ItemType::audio), TimelineItem("m3", ItemType::audio),
                  TimelineItem("s2", ItemType::label), TimelineItem("z1", ItemType::label)};
  EXPECT_EQ(Music::nextId(rec), "m2");

  rec.segments = std::vector<Segment>{{"s1", std::nullopt, 0, 1, std::nullopt}};
  EXPECT_EQ(Cut::nextId(rec), "s3");
  EXPECT_EQ(Cut::nextId(rec, {"s3", "s4"}), "s5");

  rec.zooms = std::vector<Zoom>{{"z2", 0, 1, 2, std::nullopt, std::nullopt, std::nullopt}};
  rec.segments->push_back({"z3", std::nullopt, 1, 2, std::nullopt});
  EXPECT_EQ(Zooms::nextId(rec), "z4");
}

Zoom zoom(std::string id, double from, double to) { return {std::move(id), from, to, 2, {}, {}, {}}; }

TEST(ZoomRoom, KeepsZoomsApart) {
  Recording rec("demo", "Demo");
  EXPECT_EQ(Zooms::room(rec, "", -1, 2), (Zooms::Span{0, 2}));
  rec.zooms = std::vector<Zoom>{zoom("z1", 1, 3), zoom("z2", 5, 6)};

  // Butting against a neighbour at either end is allowed, within a tenth of a millisecond.
  EXPECT_EQ(Zooms::room(rec, "z9", 3, 8), (Zooms::Span{3, 5}));
  EXPECT_EQ(Zooms::room(rec, "z9", 3.00005, 4), (Zooms::Span{3, 4}));
  EXPECT_EQ(Zooms::room(rec, "z9", 6, 9), (Zooms::Span{6, 9}));
  EXPECT_EQ(Zooms::room(rec, "z9", 4.9, 6), std::nullopt);
  // A zoom never collides with itself.
  EXPECT_EQ(Zooms::room(rec, "z2", 4, 7), (Zooms::Span{4, 7}));
  EXPECT_EQ(Zooms::room(rec, "z9", 3.12345, 4.98765), (Zooms::Span{3.123, 4.988}));
  EXPECT_EQ(Zooms::clamped01(-0.2), 0);
  EXPECT_EQ(Zooms::clamped01(1.7), 1);
  EXPECT_EQ(Zooms::clamped01(0.3), 0.3);
}

}  // namespace
}  // namespace tavorin
