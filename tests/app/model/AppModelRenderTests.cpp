#include <gtest/gtest.h>

#include <cmath>
#include <mutex>

#include "../platform/Wav.hpp"
#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"
#include "platform/OfflineAudioOutput.hpp"
#include "voice/AudioFile.hpp"
#include "voice/local/LocalDriver.hpp"

using namespace tavorin;
using test::refusal;
namespace fs = std::filesystem;

namespace {

// An engine that speaks each sentence as a tone, 0.05 s a character, with a
// breath of silence between sentences: real files with real pauses for the cut
// check to find. `flat` speaks without breathing, so no cut can be trusted.
class ToneDriver final : public VoiceDriver {
 public:
  std::string name() const override { return "kokoro"; }
  DriverHealth health() override { return DriverHealth::presentWith(false, DriverLocation::local, 1, 2, "bundle"); }
  std::vector<DriverCharacter> characters() override {
    auto v = [](const char* id) { return DriverVoice{id, id, true, {}, {}, {}}; };
    return {{"narrator", "Narrator", "af", {v("af"), v("bf")}}, {"guide", "Guide", "gm", {v("gm")}}};
  }
  RenderResult render(const std::string& text, const std::string&, const std::string& voice,
                      const fs::path& to) override {
    heard.push_back(text);
    if (during) during();
    if (text.find(failOn) != std::string::npos && !failOn.empty()) throw std::runtime_error("the engine is out of breath");
    constexpr int rate = 24000;
    std::vector<float> samples;
    std::string sentence;
    auto speak = [&] {
      if (sentence.empty()) return;
      if (!samples.empty() && !flat) samples.insert(samples.end(), rate * 35 / 100, 0.0f);
      const auto n = static_cast<std::size_t>(sentence.size() * 0.05 * rate);
      for (std::size_t i = 0; i < n; ++i) samples.push_back(0.5f * std::sin(6.2831853f * 440.0f * i / rate));
      sentence.clear();
    };
    for (char c : text) {
      if (c == ' ' && sentence.empty()) continue;
      sentence += c;
      if (c == '.') speak();
    }
    speak();
    test::writeWav(to, samples, rate, 1);
    return {to, static_cast<double>(samples.size()) / rate, voice};
  }
  std::vector<std::string> heard;
  std::string failOn;
  bool flat = false;
  std::function<void()> during;  // what the user does while the engine speaks
};

Recording production() {
  Recording r("voiced", "Voiced");
  r.voice.character = "narrator";
  r.voice.voice = "bf";
  const char* texts[] = {"The first line.", "A second one here.", "Third.", "The fourth line.", "Five.", "Six."};
  for (int i = 1; i <= 6; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.text = texts[i - 1];
    line.start = (i - 1) * 3.0;
    line.duration = 2.0;
    r.timeline.push_back(line);
  }
  return r;
}

class RenderModel : public ::testing::Test {
 protected:
  void SetUp() override {
    RecordingStore(tmp / "voiced").saveNewVersion(production(), std::chrono::system_clock::now());
    test::writeFile(tmp / "support/local-voice.json", R"({"url":"http://bad host"})");
    engines = std::make_shared<VoiceEngines>(false, nullptr, driver,
                                             std::make_shared<LocalDriver>(tmp / "support/local-voice.json"));
    model.useVoiceEngines(engines, [this](std::function<void()> work, std::function<void()> then) {
      actor.offload(std::move(work), [then](std::exception_ptr) { then(); });
    });
    model.open(tmp / "voiced");
    model.cast();  // the engines answer on the next drain
    actor.drain();
  }
  const TimelineItem& line(const std::string& id) { return *model.recording().item(id); }
  double start(const std::string& id) { return line(id).start.value_or(-1); }
  std::string stale(const std::string& id) { return model.recording().staleReason(line(id)).value_or("fresh"); }
  // Renders and lets the queue run to its end.
  void renderNow(std::vector<std::string> ids, std::optional<int> samples = std::nullopt, bool force = false,
                 bool keepingLanded = false) {
    model.render(ids, force, samples, keepingLanded);
    actor.drain();
  }

  test::TempDir tmp;
  test::ScopedEnv support{"TAVORIN_SUPPORT", (tmp / "support").string()};
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  OfflineAudioOutput output;  // outlives the model, which plays into it to the end
  AppModel model{actor, SessionStore(tmp / "support/session.json"), pasteboard};
  std::shared_ptr<ToneDriver> driver = std::make_shared<ToneDriver>();
  std::shared_ptr<VoiceEngines> engines;
};

}  // namespace

TEST_F(RenderModel, RenderedLinesLandWithTheirLengthAndMoveWhatFollows) {
  EXPECT_EQ(refusal([&] { model.render({"l1"}, false, 0); }), "0 variants is outside 1 to 8");
  EXPECT_EQ(refusal([&] { model.render({"l1"}, false, 9); }), "9 variants is outside 1 to 8");
  EXPECT_EQ(refusal([&] { model.render({"nope", "l99"}); }), "no lines to render (must have text and exist)");

  EXPECT_EQ(model.render({"l1", "nope", "l2", "l1"}), (std::vector<std::string>{"l1", "l2"}));
  EXPECT_EQ(model.events().back(), "queued 2 line(s) for render");
  actor.drain();

  const TimelineItem& first = line("l1");
  ASSERT_TRUE(first.audio);
  const fs::path file = tmp / "voiced" / *first.audio;
  EXPECT_TRUE(fs::exists(file));
  EXPECT_NEAR(*first.duration, *AudioFile::seconds(file), 0.01);
  EXPECT_EQ(first.renderedFrom->text, "The first line.");
  EXPECT_EQ(first.renderedFrom->character, "narrator");
  EXPECT_EQ(first.renderedFrom->voice, "bf");
  EXPECT_EQ(stale("l1"), "fresh");
  // l1 is 0.75 s long now, l2 0.9 s: l2 moved up by 1.25 s, and the rest by 1.25 + 1.1.
  EXPECT_DOUBLE_EQ(start("l2"), 1.75);
  EXPECT_DOUBLE_EQ(start("l3"), 6.0 - 1.25 - 1.1);
  EXPECT_NE(std::find(model.events().begin(), model.events().end(), "render queue drained"), model.events().end());
  EXPECT_EQ(model.variants("l1").size(), 1u);
  EXPECT_EQ(VariantsStore(tmp / "voiced").read().lines.at("l2").size(), 1u);

  // The batch undoes as one step.
  actor.drain();
  model.undo();
  EXPECT_EQ(model.recording(), production());
}

TEST_F(RenderModel, AFailedRenderLeavesTheLineAsItWas) {
  renderNow({"l1"});
  const TimelineItem before = line("l1");
  driver->failOn = "first";
  renderNow({"l1", "l2"});
  EXPECT_EQ(line("l1"), before);
  EXPECT_EQ(model.variants("l1").size(), 1u);
  EXPECT_EQ(*model.renders().state("l1"), RenderQueue::State::failed("the engine is out of breath"));
  EXPECT_TRUE(line("l2").audio);  // the queue went on
  EXPECT_EQ(model.events().back(), "render queue drained with failures");
}

TEST_F(RenderModel, VariantsAreNumberedOnceKeptOnDiskAndPickedWithARipple) {
  renderNow({"l1"}, 3);
  const auto three = model.variants("l1");
  ASSERT_EQ(three.size(), 3u);
  EXPECT_EQ(three[0].number, 1);
  EXPECT_EQ(three[2].number, 3);
  EXPECT_EQ(model.liveVariant("l1")->number, 1);  // the first sample lands, the others wait

  // Picking a variant of other words ripples, and leaves the line stale.
  model.editItem("l1", "text", "The first line, said at much greater length.");
  actor.drain();
  renderNow({"l1"});
  ASSERT_EQ(model.variants("l1").size(), 4u);
  const double longer = *line("l1").duration;
  const double l2 = start("l2");
  model.useVariant("l1", 2);
  EXPECT_EQ(line("l1").audio, three[1].file);
  EXPECT_EQ(line("l1").renderedFrom->sample, 2);
  EXPECT_NEAR(start("l2"), l2 - (longer - three[1].seconds), 0.011);
  EXPECT_EQ(stale("l1"), "its text changed");
  EXPECT_EQ(refusal([&] { model.useVariant("l1", 9); }), "line l1 has no variant 9. Try: tavorinctl line.samples id=l1");

  // A removed number never comes back, and its file stays.
  model.removeVariant("l1", 3);
  EXPECT_TRUE(fs::exists(tmp / "voiced" / three[2].file));
  EXPECT_EQ(model.events().back(), "removed variant 3 of l1");
  renderNow({"l1"});
  EXPECT_EQ(model.liveVariant("l1")->number, 5);
  EXPECT_EQ(VariantsStore(tmp / "voiced").read().removed.at("l1").front().number, 3);

  // Removing the live one falls back to the newest of the current words, then to silence.
  model.removeVariant("l1", 5);
  EXPECT_EQ(model.events().back(), "removed variant 5 of l1; it uses variant 4");
  EXPECT_EQ(model.liveVariant("l1")->number, 4);
  const double held = *line("l1").effectiveDuration();
  const double after = start("l2");
  model.removeVariant("l1", 4);
  EXPECT_EQ(model.events().back(), "removed variant 4 of l1; it has no voice now");
  EXPECT_FALSE(line("l1").audio);
  EXPECT_DOUBLE_EQ(*line("l1").duration, held);
  EXPECT_DOUBLE_EQ(start("l2"), after);
  EXPECT_EQ(model.variants("l1").size(), 2u);  // the two of the old words
  renderNow({"l1"});
  EXPECT_EQ(model.liveVariant("l1")->number, 6);
}

TEST_F(RenderModel, StalenessFollowsTheEditsThatChangeTheSpeechAndNoOthers) {
  renderNow({"l1", "l2", "l3", "l4", "l5", "l6"});
  for (auto id : {"l1", "l2", "l3", "l4", "l5", "l6"}) EXPECT_EQ(stale(id), "fresh") << id;

  model.editItem("l1", "text", "The first line, reworded.");
  model.editItem("l2", "character", "guide");
  model.editItem("l2", "voice", "gm");
  model.editProduction("voice", "af");
  model.moveItem("l4", 30.0, false);
  model.approveLine("l4", true);
  model.editProduction("gap", FieldValue(0.5));
  actor.drain();
  EXPECT_EQ(stale("l1"), "its text changed");
  EXPECT_EQ(stale("l2"), "its character changed");
  EXPECT_EQ(stale("l3"), "its voice changed");
  EXPECT_EQ(stale("l4"), "its voice changed");
  EXPECT_EQ(stale("l5"), "its voice changed");
  model.editProduction("voice", "bf");
  actor.drain();
  EXPECT_EQ(stale("l4"), "fresh");  // moved, approved, a new gap: none of that is speech
  EXPECT_EQ(stale("l3"), "fresh");

  // Approved lines wait unless asked for by name.
  model.approveLine("l1", true);
  EXPECT_EQ(model.renderStale(false), (std::vector<std::string>{"l2"}));
  EXPECT_EQ(model.heldBackApproved(), (std::vector<std::string>{"l1"}));
  EXPECT_EQ(model.events().back(), "held back 1 approved line(s) — re-render them by name, or with approved=1");
  actor.drain();
  EXPECT_EQ(stale("l2"), "fresh");
  EXPECT_EQ(refusal([&] { model.renderStale(false); }), "no lines to render (must have text and exist)");
  EXPECT_EQ(model.renderStale(true), (std::vector<std::string>{"l1"}));
  EXPECT_TRUE(model.heldBackApproved().empty());
}

TEST_F(RenderModel, AGenerationLandsAsSlicesAndMovesTheLinesAfterIt) {
  model.generateTogether({"l1", "l2", "l3"});
  actor.drain();
  const double before = start("l4");
  EXPECT_EQ(model.render({"l2"}), (std::vector<std::string>{"l1", "l2", "l3"}));  // a line brings its group
  actor.drain();
  ASSERT_EQ(driver->heard.back(), "The first line. A second one here. Third.");
  const auto group = model.voiceGroup("l1");
  ASSERT_TRUE(group);
  for (auto id : {"l1", "l2", "l3"}) {
    ASSERT_TRUE(line(id).renderedFrom) << id;
    EXPECT_EQ(line(id).renderedFrom->group, group->hash);
    EXPECT_EQ(line(id).audio, line("l1").audio);
    EXPECT_EQ(stale(id), "fresh");
    EXPECT_EQ(model.variants(id).size(), 1u);
  }
  EXPECT_LT(line("l1").renderedFrom->startsAt(), line("l2").renderedFrom->startsAt());
  EXPECT_TRUE(model.hasLanded(*group));
  EXPECT_TRUE(model.isContiguous(group->hash));
  // The three lines after the group moved up by as much as the group shrank.
  const double shrank = before - start("l4");
  EXPECT_GT(shrank, 1.0);
  EXPECT_NEAR(start("l5"), 12.0 - shrank, 0.011);
  EXPECT_NEAR(start("l6"), 15.0 - shrank, 0.011);
  bool noted = false;
  for (const auto& e : model.events()) noted |= e.find("as one generation") != std::string::npos && e.find("3 lines after it moved") != std::string::npos;
  EXPECT_TRUE(noted);

  // Unchanged, it is kept unless forced.
  const auto heard = driver->heard.size();
  EXPECT_TRUE(model.render({"l1"}, false, 1, true).empty());
  EXPECT_EQ(model.events().back(),
            "queued 0 generation(s) over 0 line(s) · 1 unchanged generation(s) kept; pass force=1 to re-roll");
  actor.drain();
  EXPECT_EQ(driver->heard.size(), heard);

  // One line's new words make it stale, and its group mates with it.
  model.editItem("l2", "text", "A second one, changed.");
  actor.drain();
  EXPECT_EQ(stale("l2"), "its text changed");
  EXPECT_EQ(stale("l1"), "its generation group changed");
  EXPECT_EQ(stale("l3"), "its generation group changed");
}

TEST_F(RenderModel, AGenerationThatWillNotCutIsSentAgainThenSpokenLineByLine) {
  driver->flat = true;
  model.generateTogether({"l1", "l2", "l3"});
  actor.drain();
  renderNow({"l1"});
  EXPECT_EQ(driver->heard.size(), 5u);  // twice as one, then each alone
  EXPECT_TRUE(model.lastSplitRefusal());
  int resent = 0, fell = 0;
  for (const auto& e : model.events()) {
    resent += e.starts_with("Cut check failed for generation");
    fell += e.find("fell back to one line at a time") != std::string::npos;
  }
  EXPECT_EQ(resent, 1);
  EXPECT_EQ(fell, 1);
  for (auto id : {"l1", "l2", "l3"}) {
    ASSERT_TRUE(line(id).renderedFrom) << id;
    EXPECT_EQ(line(id).renderedFrom->split, "fallback");
    EXPECT_FALSE(line(id).renderedFrom->group);
  }
  EXPECT_TRUE(model.fellBack().empty());
}

TEST_F(RenderModel, ALineDeletedWhileItRendersKeepsItsVariant) {
  driver->during = [&] { model.deleteItems({"l3"}); };
  renderNow({"l3"});
  ASSERT_EQ(model.variantIndex().lines.at("l3").size(), 1u);
  EXPECT_TRUE(fs::exists(tmp / "voiced" / model.variantIndex().lines.at("l3")[0].file));
  bool noted = false;
  for (const auto& e : model.events()) noted |= e.starts_with("l3 is gone; its variant is kept as l3-");
  EXPECT_TRUE(noted);
}

TEST_F(RenderModel, AnAuditionIsRenderedThroughTheQueueAndKeptWithTheVoice) {
  model.attachAudio(output);
  EXPECT_EQ(refusal([&] { model.auditionFromRoom(std::nullopt, std::nullopt, std::string("Hi.")); }),
            "the casting room is shut");
  EXPECT_EQ(refusal([&] { model.openCasting(std::string("ghost"), std::nullopt, std::nullopt); }),
            "kokoro has no character called ghost. Cast one it lists.");
  model.openCasting(std::nullopt, std::nullopt, std::string("l2"));
  EXPECT_EQ(model.castingCall()->character, "narrator");
  EXPECT_EQ(model.castingCall()->voice, "bf");  // the production's, which l2 inherits

  // Words of spaces are refused at the queue and leave no file.
  const std::string blank = model.auditionFromRoom(std::nullopt, std::nullopt, std::string("   \n"));
  EXPECT_TRUE(blank.starts_with("audition:"));
  actor.drain();
  EXPECT_EQ(*model.renders().state(blank), RenderQueue::State::failed("type a line for narrator to say"));
  EXPECT_TRUE(model.auditions().requests().empty());  // swept when the queue drained
  EXPECT_EQ(model.auditions().count("narrator", "bf"), 0u);

  const Recording before = model.recording();
  model.auditionFromRoom(std::nullopt, std::string("af"), std::string("Hear me."));
  actor.drain();
  EXPECT_EQ(model.recording(), before);  // an audition never touches the production
  ASSERT_EQ(model.auditions().count("narrator", "af"), 1u);
  const auto take = model.auditions().takes("narrator", "af").front();
  EXPECT_EQ(take.prompt, "Hear me.");
  EXPECT_NEAR(take.duration, 0.4, 0.01);
  EXPECT_TRUE(fs::exists(tmp / "support/auditions/narrator/af" / take.file));
  EXPECT_EQ(model.auditions().playing(), "narrator/" + take.file);  // it plays as soon as it is ready
  EXPECT_TRUE(model.toasts().toasts().empty());                      // and shows no toast of a line

  // The same words a second later are a second take.
  actor.advance(std::chrono::seconds(1));
  model.audition("narrator", std::string("af"), "Hear me.");
  actor.drain();
  EXPECT_EQ(model.auditions().count("narrator", "af"), 2u);
  // A take whose file has gone stays listed, and says so when played.
  const auto newest = model.auditions().takes("narrator", "af").front();
  fs::remove(tmp / "support/auditions/narrator/af" / newest.file);
  model.auditions().playTake("narrator", "af", newest);
  EXPECT_EQ(model.auditions().failure(), "that take is in the index and not on disk: " + newest.file);

  // The room turns to what was kept, and stays turned as another voice is picked.
  model.castingTab("past");
  model.castingPick("narrator", std::string("bf"));
  EXPECT_EQ(model.castingCall()->tab, "past");
  EXPECT_EQ(refusal([&] { model.castingTab("chorus"); }), refusal([&] {
              throw AppModelFailure::badChoice("chorus", "casting tab", "voices · past");
            }));

  // Casting from the room lands on the line it was opened for; the room stays open.
  model.castingUse(std::nullopt, "af");
  EXPECT_EQ(model.recording().item("l2")->voice, "af");
  EXPECT_EQ(model.recording().voice.voice, "bf");
  EXPECT_TRUE(model.castingCall());
  EXPECT_EQ(model.hearVoice(std::nullopt), "rendering — this one takes a moment");
  model.closeCasting();
  EXPECT_EQ(refusal([&] { model.castingUse(std::nullopt, "bf"); }), "the casting room is shut");
  EXPECT_EQ(refusal([&] { model.castingTab("voices"); }), "the casting room is shut");
}
