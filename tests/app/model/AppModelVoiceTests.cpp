#include <gtest/gtest.h>

#include <cstdlib>

#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"
#include "voice/local/LocalDriver.hpp"

using namespace tavorin;
using test::refusal;
namespace fs = std::filesystem;

namespace {

// An engine that answers what the test sets.
class CastDriver final : public VoiceDriver {
 public:
  std::string name() const override { return "kokoro"; }
  DriverHealth health() override { return DriverHealth::presentWith(false, DriverLocation::local, 2, 3, "bundle"); }
  std::vector<DriverCharacter> characters() override {
    auto v = [](const char* id) { return DriverVoice{id, id, true, {}, {}, {}}; };
    return {{"narrator", "Narrator", "af", {v("af"), v("bf")}}, {"guide", "Guide", "gm", {v("gm")}}};
  }
  RenderResult render(const std::string&, const std::string&, const std::string&, const fs::path&) override {
    throw std::runtime_error("no renders here");
  }
};

Recording production() {
  Recording r("voiced", "Voiced");
  r.voice.character = "narrator";
  r.voice.voice = "bf";
  for (int i = 1; i <= 3; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.text = "Line " + std::to_string(i) + ".";
    line.start = (i - 1) * 2.5;
    line.duration = 2.0;
    r.timeline.push_back(line);
  }
  return r;
}

class VoiceModel : public ::testing::Test {
 protected:
  void SetUp() override {
    RecordingStore(tmp / "voiced").saveNewVersion(production(), std::chrono::system_clock::now());
    test::writeFile(tmp / "support/local-voice.json", R"({"url":"http://bad host"})");
    engines = std::make_shared<VoiceEngines>(false, nullptr, std::make_shared<CastDriver>(),
                                             std::make_shared<LocalDriver>(tmp / "support/local-voice.json"));
    model.useVoiceEngines(engines, [this](std::function<void()> work, std::function<void()> then) {
      offloaded.emplace_back(work, then);
    });
    model.open(tmp / "voiced");
    actor.drain();
  }
  // The engines are asked (the first read does that), answer, and the answers come
  // back to the main thread.
  void answer() {
    model.cast();
    auto now = std::move(offloaded);
    offloaded.clear();
    for (auto& [work, then] : now) {
      work();
      actor.post(then);
    }
    actor.drain();
  }

  test::TempDir tmp;
  test::ScopedEnv support{"TAVORIN_SUPPORT", (tmp / "support").string()};
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model{actor, SessionStore(tmp / "support/session.json"), pasteboard};
  std::shared_ptr<VoiceEngines> engines;
  std::vector<std::pair<std::function<void()>, std::function<void()>>> offloaded;
};

TEST_F(VoiceModel, AnswersAreCheckingUntilTheEnginesReply) {
  EXPECT_EQ(model.voiceHealth().source, "checking");
  EXPECT_EQ(model.rungSays(), "asking kokoro…");
  EXPECT_TRUE(model.cast().empty());
  answer();
  EXPECT_TRUE(model.voiceHealth().present);
  EXPECT_EQ(model.rungSays(), "kokoro ready.");
  EXPECT_EQ(model.productionVoiceName(), "bf");
  EXPECT_EQ(model.voicePlan(*model.recording().item("l1"), model.recording()), VoicePlan::cast("narrator", "bf"));
  EXPECT_EQ(model.voiceModel(), "kokoro-native");
  EXPECT_EQ(model.voiceModelTitle(), "Kokoro (Native)");

  model.editProduction("driver", "server");
  answer();
  EXPECT_EQ(model.driver()->name(), "local");
  EXPECT_EQ(model.rungSays(), "the local server address http://bad host is not a URL");
  model.refreshDriver();
  EXPECT_EQ(model.voiceHealth().source, "checking");
  answer();
  EXPECT_EQ(model.events().back(), "asked local again — the local server address http://bad host is not a URL");
}

TEST_F(VoiceModel, TheVoiceFieldsOfEdit) {
  answer();
  EXPECT_EQ(refusal([&] { model.editProduction("driver", "pi"); }), "'pi' is not a voice engine. Try: kokoro · local");
  model.editProduction("span", "Up to 600 characters");
  EXPECT_EQ(model.recording().voice.span, "chars:600");
  model.editProduction("span", "300");
  EXPECT_EQ(model.recording().voice.span, "chars:300");
  EXPECT_EQ(refusal([&] { model.editProduction("span", "chars:0"); }),
            "'chars:0' is not a span. Try: line · chars:300 · chars:600 · chars:1000 · cue");
  EXPECT_EQ(model.voiceGroups().size(), 1u);  // three short lines in one generation
  model.editProduction("span", "line");
  EXPECT_FALSE(model.recording().voice.span);
  EXPECT_EQ(model.voiceGroups().size(), 3u);

  // A character change keeps the voice where the new character has it, else takes its default.
  model.editProduction("character", " guide ");
  EXPECT_EQ(model.recording().voice.character, "guide");
  EXPECT_EQ(model.recording().voice.voice, "gm");
  model.editProduction("voice", "custom");
  EXPECT_EQ(model.recording().voice.voice, "custom");
  model.editProduction("voice", "");
  EXPECT_EQ(model.recording().voice.voice, "gm");
  EXPECT_EQ(model.productionVoiceRefusal(), std::nullopt);

  // A line's own character and voice.
  model.editItem("l2", "voice", "bf");
  model.editItem("l2", "character", "narrator");
  EXPECT_EQ(model.recording().item("l2")->voice, "bf");  // narrator has it
  model.editItem("l2", "voice", "af");
  model.editItem("l2", "character", "guide");
  EXPECT_EQ(model.recording().item("l2")->voice, "gm");  // guide lacks af: its default
  model.editItem("l2", "voice", "af");
  model.editItem("l2", "character", "");  // back to the production's guide, whose voice it inherits
  EXPECT_EQ(model.recording().item("l2")->voice, "gm");
  EXPECT_EQ(refusal([&] { model.editItem("l9", "voice", "af"); }), "no item l9 on the timeline");

  actor.drain();
  while (!model.history().past.empty()) model.undo();
  EXPECT_EQ(model.recording(), production());
}

TEST_F(VoiceModel, TheLocalServerAddressIsNormalisedAndSavedPrivately) {
  answer();
  EXPECT_EQ(refusal([&] { model.useLocalServer(std::string("ftp://x"), std::nullopt); }),
            "'ftp://x' is not a server address. Try: host:port or an http(s) base URL, such as 127.0.0.1:8080 or "
            "http://host:8880");
  EXPECT_EQ(refusal([&] { model.useLocalServer(std::string("   "), std::nullopt); }),
            "'   ' is not a server address. Try: host:port or an http(s) base URL, such as 127.0.0.1:8080 or "
            "http://host:8880");
  EXPECT_EQ(model.localServerRevision(), 0);
  model.useLocalServer(std::string("localhost:9/v1/"), std::string("  sk-1 "));
  EXPECT_EQ(model.localServerRevision(), 1);
  EXPECT_EQ(LocalServer::load(tmp / "support/local-voice.json"), (LocalServer{"http://localhost:9", "sk-1"}));
  model.useLocalServer(std::nullopt, std::string(""));
  EXPECT_FALSE(LocalServer::load(tmp / "support/local-voice.json").key);
  model.useLocalServer(std::nullopt, std::nullopt);  // nothing changes
  EXPECT_EQ(model.localServerRevision(), 2);
}

TEST_F(VoiceModel, ALineTakesAnAudioFileOfItsOwn) {
  const fs::path tone = tmp / "take one.wav";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i sine=duration=3.5 -ar 22050 -ac 1 '" + tone.string() + "'").c_str()), 0);
  EXPECT_DOUBLE_EQ(model.importVoice(tone, "l1"), 3.5);
  const TimelineItem line = *model.recording().item("l1");
  ASSERT_TRUE(line.audio);
  EXPECT_EQ(line.audio->rfind("audio/l1-import-", 0), 0u) << *line.audio;
  EXPECT_TRUE(fs::exists(tmp / "voiced" / *line.audio));
  EXPECT_EQ(line.renderedFrom->imported, true);
  EXPECT_EQ(line.renderedFrom->from, "take one.wav");
  EXPECT_FALSE(model.recording().isStale(line));
  // The line grew by 1.5 s; what follows moved as much.
  EXPECT_DOUBLE_EQ(*model.recording().item("l2")->start, 4.0);
  EXPECT_EQ(model.events().back(), "l1 took " + line.audio->substr(6) + " 3.50s · 2 lines after it moved +1.50s");
  const auto kept = VariantsStore(tmp / "voiced").read().lines.at("l1");
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].file, *line.audio);
  EXPECT_EQ(kept[0].imported, true);

  // The same file again is a new variant under a new name: nothing is written over.
  actor.drain();  // a turn of its own, an undo step of its own
  model.importVoice(tone, "l1");
  EXPECT_NE(*model.recording().item("l1")->audio, *line.audio);
  EXPECT_TRUE(fs::exists(tmp / "voiced" / *line.audio));

  test::writeFile(tmp / "notes.txt", "not a sound");
  if (fs::exists("/usr/share/mime/globs2")) {
    EXPECT_EQ(refusal([&] { model.importVoice(tmp / "notes.txt", "l2"); }),
              "can't use notes.txt — plain text document. Tavorin takes video, audio and stills.");
  }
  EXPECT_EQ(refusal([&] { model.importVoice(tmp / "gone.wav", "l2"); }),
            "gone.wav would not copy into audio/: No such file or directory");
  test::writeFile(tmp / "broken.wav", "RIFF, but nothing after it");
  EXPECT_EQ(refusal([&] { model.importVoice(tmp / "broken.wav", "l2"); }),
            "broken.wav has no length this app can measure. Try a wav or an mp3.");
  EXPECT_EQ(std::distance(fs::directory_iterator(tmp / "voiced/audio"), fs::directory_iterator()), 3);  // two imports and the index: no leftovers
  EXPECT_EQ(refusal([&] { model.importVoice(tone, "l9"); }), "no line l9 in the open production");
  actor.drain();
  model.undo();
  model.undo();
  EXPECT_EQ(model.recording(), production());
}

}  // namespace
