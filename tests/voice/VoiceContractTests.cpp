#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "kit/Recording.hpp"
#include "platform/UserDefaults.hpp"
#include "voice/EngineAnswers.hpp"
#include "voice/VoiceEngines.hpp"
#include "voice/VoiceLadder.hpp"
#include "voice/VoicePlan.hpp"
#include "voice/local/LocalDriver.hpp"

namespace tavorin {
namespace {

DriverVoice voice(std::string id, bool enabled = true) { return {id, id, enabled, std::nullopt, std::nullopt, std::nullopt}; }

TEST(DriverCharacterVoices, TheDefaultPassesOverAStaleOrDisabledChoice) {
  DriverCharacter character{"narrator", "Narrator", "x", {voice("a", false), voice("b"), voice("c")}};
  EXPECT_EQ(character.defaultVoiceId(), "b");
  character.activeVoiceId = "c";
  EXPECT_EQ(character.defaultVoiceId(), "c");
  character = {"n", "N", "x", {voice("a", false), voice("b", false)}};
  EXPECT_EQ(character.defaultVoiceId(), "a");
  character.voices.clear();
  EXPECT_FALSE(character.defaultVoiceId());
  EXPECT_FALSE(character.hasVoice("a"));
}

TEST(DriverCharacterVoices, RoundTripThroughJsonAndRefuseWhatIsMissing) {
  DriverVoice full{"af", "Aoife", false, "bundle", "/tmp/af.wav", "Hello."};
  DriverCharacter character{"narrator", "Narrator", "af", {full, voice("b")}};
  EXPECT_EQ(DriverCharacter::decode(character.encoded()), character);
  EXPECT_EQ(DriverVoice::decode(full.encoded()), full);
  EXPECT_EQ(DriverVoice::decode(R"({"id":"a","name":"a","enabled":true,"says":null})"), voice("a"));
  EXPECT_EQ(test::refusal([] { DriverVoice::decode(R"({"id":"a","name":"A"})"); }), "A voice needs \"enabled\".");
  EXPECT_EQ(test::refusal([] { DriverCharacter::decode(R"({"id":"a","name":"A","voices":{}})"); }),
            "A character's \"voices\" is not a list.");
  EXPECT_EQ(test::refusal([] { DriverCharacter::decode("[1"); }), "The engine's answer is not valid JSON.");
}

TEST(DriverHealthValues, AbsentAndChecking) {
  EXPECT_EQ(DriverHealth::absent("gone"), (DriverHealth{false, false, std::nullopt, 0, 0, "none", "gone"}));
  auto checking = DriverHealth::checking("local");
  EXPECT_EQ(checking.source, "checking");
  EXPECT_EQ(checking.note, "asking local");
  EXPECT_FALSE(checking.present);
  EXPECT_EQ(parseDriverLocation(name(DriverLocation::mixed)), DriverLocation::mixed);
  EXPECT_FALSE(parseDriverLocation("moon"));
}

TEST(VoiceLadderSays, OneSentenceForWhereTheUserStands) {
  const auto cloning = DriverHealth::presentWith(true, DriverLocation::local, 1, 1, "bundle");
  const auto speaking = DriverHealth::presentWith(false, DriverLocation::local, 2, 5, "http://x");
  const auto empty = DriverHealth::presentWith(false, DriverLocation::local, 1, 0, "http://x");
  const auto gone = DriverHealth::absent("gone");
  EXPECT_EQ(VoiceLadder::rung(cloning, false, false), VoiceRung::cloning);
  EXPECT_EQ(VoiceLadder::rung(speaking, false, false), VoiceRung::speaking);
  // An engine that answers but offers nothing does not count.
  EXPECT_EQ(VoiceLadder::rung(empty, true, false), VoiceRung::importing);
  EXPECT_EQ(VoiceLadder::rung(empty, false, true), VoiceRung::speaking);
  EXPECT_EQ(VoiceLadder::rung(gone, false, false), VoiceRung::silent);
  EXPECT_TRUE(rendersVoice(VoiceRung::speaking));
  EXPECT_FALSE(rendersVoice(VoiceRung::importing));

  Recording rec("p", "P");
  rec.timeline.push_back(TimelineItem("l1", ItemType::line));
  EXPECT_EQ(VoiceLadder::rung(gone, &rec, false), VoiceRung::silent);
  rec.timeline[0].audio = "";
  EXPECT_FALSE(VoiceLadder::hasAudio(rec));
  rec.timeline[0].audio = "audio/l1.wav";
  EXPECT_EQ(VoiceLadder::rung(gone, &rec, false), VoiceRung::importing);
  EXPECT_EQ(VoiceLadder::rung(gone, nullptr, false), VoiceRung::silent);

  EXPECT_EQ(VoiceLadder::says(VoiceRung::silent, "local", DriverHealth::checking("local"), true), "asking local…");
  EXPECT_EQ(VoiceLadder::says(VoiceRung::speaking, "local", gone, true),
            "Selected engine unreachable. Set Model to Kokoro.");
  EXPECT_EQ(VoiceLadder::says(VoiceRung::importing, "local", gone, false), "No voice engine found. Import audio per line.");
  EXPECT_EQ(VoiceLadder::says(VoiceRung::silent, "local", gone, false),
            "No voice engine found. Import audio per line or export silent with captions.");
  EXPECT_EQ(VoiceLadder::says(VoiceRung::speaking, "local", speaking, false), "local ready.");
  EXPECT_EQ(VoiceLadder::says(VoiceRung::cloning, "corvane", cloning, false), "corvane ready: 1 voice, 1 character.");
  EXPECT_EQ(VoiceLadder::says(VoiceRung::cloning, "corvane", speaking, false), "corvane ready: 5 voices, 2 characters.");
}

struct Engines : ::testing::Test {
  test::TempDir dir;
  std::shared_ptr<VoiceDriver> kokoro = std::make_shared<ComingSoon>("kokoro");
  std::shared_ptr<LocalDriver> local = std::make_shared<LocalDriver>(dir / "local-voice.json");

  std::vector<std::string> names(const VoiceEngines& engines) {
    std::vector<std::string> out;
    for (const auto& driver : engines.all()) out.push_back(driver->name());
    return out;
  }
};

TEST_F(Engines, PickFallsBackOnTheExternalEngine) {
  VoiceEngines closed(false, nullptr, kokoro, local);
  EXPECT_EQ(names(closed), (std::vector<std::string>{"kokoro", "local"}));
  EXPECT_EQ(closed.pick("local"), local);
  EXPECT_EQ(closed.pick("kokoro"), kokoro);
  EXPECT_EQ(closed.pick(std::nullopt)->name(), "corvane");
  EXPECT_EQ(closed.pick("pi")->health().note, "corvane is coming soon");
  EXPECT_EQ(test::refusal([&] { closed.pick("corvane")->render("x", "y", "z", dir / "a.wav"); }),
            "corvane is coming soon");
  EXPECT_FALSE(closed.named("corvane"));
  EXPECT_EQ(closed.named("local"), local);
  EXPECT_EQ(closed.models().back(), (FormOption{"orvelline", "Corvane", "coming soon", true}));

  VoiceEngines open(true, std::make_shared<ComingSoon>(), kokoro, local);
  EXPECT_EQ(names(open), (std::vector<std::string>{"corvane", "kokoro", "local"}));
  EXPECT_EQ(open.models().front(), (FormOption{"orvelline", "Corvane", "", false}));
  EXPECT_EQ(open.models()[1], (FormOption{"kokoro-native", "Kokoro (Native)", "no install needed", false}));
}

TEST_F(Engines, SettledWordsAndTheReleaseSwitch) {
  EXPECT_EQ(VoiceEngines::settled("  KOKORO-Native "), "kokoro");
  EXPECT_EQ(VoiceEngines::settled("native"), "kokoro");
  EXPECT_EQ(VoiceEngines::settled("orvelline"), "corvane");
  EXPECT_EQ(VoiceEngines::settled("Server"), "local");
  EXPECT_FALSE(VoiceEngines::settled("pi"));
  EXPECT_FALSE(VoiceEngines::settled("  "));

  UserDefaults defaults(dir / "defaults.json");
  test::ScopedEnv unset("TAVORIN_CORVANE", std::nullopt);
  EXPECT_FALSE(VoiceEngines::corvaneReleased(defaults));
  defaults.set("corvane", true);
  EXPECT_TRUE(VoiceEngines::corvaneReleased(defaults));
  defaults.set("corvane", false);
  test::ScopedEnv on("TAVORIN_CORVANE", "1");
  EXPECT_TRUE(VoiceEngines::corvaneReleased(defaults));
}

struct Plans : ::testing::Test {
  Recording rec{"p", "P"};
  std::vector<DriverCharacter> cast{{"narrator", "Narrator", "af", {voice("af"), voice("bf")}},
                                    {"mute", "Mute", std::nullopt, {}}};
  void SetUp() override {
    rec.voice.character = "narrator";
    TimelineItem line("l1", ItemType::line);
    line.text = "Hello.";
    rec.timeline.push_back(line);
  }
  VoicePlan plan(std::string_view driver = "kokoro") const { return VoicePlan::of(rec.timeline[0], rec, cast, driver); }
};

TEST_F(Plans, CastsTheLineOrSaysWhatIsMissing) {
  EXPECT_EQ(plan(), VoicePlan::cast("narrator", "af"));
  rec.voice.voice = "bf";
  EXPECT_EQ(plan(), VoicePlan::cast("narrator", "bf"));
  rec.timeline[0].voice = "zz";
  EXPECT_EQ(plan().refusal, "narrator has no voice called zz in kokoro. Pick one of its 2 voices.");
  // The local server's lists are advisory: the pinned voice passes.
  EXPECT_EQ(plan("local"), VoicePlan::cast("narrator", "zz"));

  rec.timeline[0].character = "ghost";
  EXPECT_EQ(plan().refusal, "kokoro has no character called ghost. Cast one it lists.");
  rec.timeline[0].character = "mute";
  rec.timeline[0].voice.reset();
  EXPECT_EQ(plan().refusal, "mute has no voices in kokoro. Add one, or cast a different character.");
  rec.timeline[0].character = "";
  EXPECT_EQ(plan().refusal, "l1 has no character. Cast the production in the Voice group, or pin a character on the line.");
  rec.timeline[0].character.reset();
  rec.voice.character.reset();
  EXPECT_TRUE(plan().refused());
}

TEST_F(Plans, AVoiceSurvivesAChangeOfCharacterOnlyWhereItExists) {
  cast.push_back({"guide", "Guide", "gf", {voice("gf"), voice("af")}});
  EXPECT_EQ(VoicePlan::surviving(cast, "af", "guide"), "af");
  EXPECT_FALSE(VoicePlan::surviving(cast, "bf", "guide"));
  EXPECT_FALSE(VoicePlan::surviving(cast, "af", "ghost"));
  EXPECT_FALSE(VoicePlan::surviving(cast, "", "guide"));

  EXPECT_FALSE(VoicePlan::pinned(cast, "kokoro", std::nullopt, "guide", std::nullopt));
  EXPECT_FALSE(VoicePlan::pinned(cast, "kokoro", "af", "guide", "af"));  // it would inherit it anyway
  EXPECT_EQ(VoicePlan::pinned(cast, "kokoro", "af", "guide", "gf"), "af");
  EXPECT_EQ(VoicePlan::pinned(cast, "kokoro", "bf", "guide", std::nullopt), "gf");  // the new character's default
  EXPECT_FALSE(VoicePlan::pinned(cast, "kokoro", "bf", "mute", std::nullopt));
}

TEST_F(Plans, ALongRefusalIsCutForTheLine) {
  rec.timeline[0].character = std::string(200, 'q');
  auto refusal = *plan().refusal;
  EXPECT_EQ(refusal, "kokoro has no character called " + std::string(126, 'q') + "…");
  EXPECT_EQ(refusal.size(), 157u + 3u);  // 157 characters and the three bytes of the ellipsis
}

// An engine whose answers the test sets, counting how often it is asked.
class ScriptedDriver final : public VoiceDriver {
 public:
  explicit ScriptedDriver(std::string name) : name_(std::move(name)) {}
  std::string name() const override { return name_; }
  DriverHealth health() override {
    ++asked;
    return answer;
  }
  std::vector<DriverCharacter> characters() override {
    if (failsListing) throw std::runtime_error("listing failed");
    return cast;
  }
  RenderResult render(const std::string&, const std::string&, const std::string&, const std::filesystem::path&) override {
    throw std::runtime_error("not here");
  }
  DriverHealth answer = DriverHealth::absent("down");
  std::vector<DriverCharacter> cast;
  bool failsListing = false;
  int asked = 0;

 private:
  std::string name_;
};

// Work "off the main thread" waits in a list until the test lets it run.
struct Offloaded {
  std::vector<std::pair<std::function<void()>, std::function<void()>>> pending;
  EngineAnswers::Offload offload() {
    return [this](std::function<void()> work, std::function<void()> then) { pending.emplace_back(work, then); };
  }
  void runAll() {
    auto now = std::move(pending);
    pending.clear();
    for (auto& [work, then] : now) {
      work();
      then();
    }
  }
};

TEST_F(Engines, AnswersAreAskedOnceAndServedWithoutWaiting) {
  auto scriptedKokoro = std::make_shared<ScriptedDriver>("kokoro");
  auto stray = std::make_shared<ScriptedDriver>("piper");  // a production may name an engine outside the list
  scriptedKokoro->answer = DriverHealth::presentWith(false, DriverLocation::local, 1, 2, "bundle");
  scriptedKokoro->cast = {{"af", "Aoife", std::nullopt, {voice("a"), voice("b")}}};
  stray->failsListing = true;
  stray->answer = DriverHealth::presentWith(false, std::nullopt, 1, 1, "piper");
  test::writeFile(dir / "local-voice.json", R"({"url":"http://bad host"})");
  VoiceEngines engines(false, nullptr, scriptedKokoro, local);

  Offloaded offloaded;
  EngineAnswers answers(offloaded.offload());
  std::vector<std::string> landed;
  answers.askOnce(engines, stray, [&](const std::string& name) { landed.push_back(name); });
  answers.askOnce(engines, stray);
  EXPECT_EQ(offloaded.pending.size(), 3u);  // kokoro, local, and the stray one, once each
  EXPECT_EQ(answers.health("kokoro"), DriverHealth::checking("kokoro"));
  EXPECT_TRUE(answers.cast("kokoro").empty());

  offloaded.runAll();
  EXPECT_EQ(landed, (std::vector<std::string>{"kokoro", "local", "piper"}));
  EXPECT_TRUE(answers.health("kokoro").present);
  EXPECT_EQ(answers.cast("kokoro").size(), 1u);
  EXPECT_EQ(answers.health("local").note, "the local server address http://bad host is not a URL");
  EXPECT_TRUE(answers.health("piper").present);
  EXPECT_TRUE(answers.cast("piper").empty());  // its listing failed
  answers.askOnce(engines, stray);
  EXPECT_TRUE(offloaded.pending.empty());
  EXPECT_EQ(scriptedKokoro->asked, 1);

  // A refresh forgets, and an answer from before it that lands late is dropped.
  answers.askOnce(engines, stray);
  answers.forget();
  answers.askOnce(engines, nullptr);
  scriptedKokoro->answer = DriverHealth::absent("gone now");
  offloaded.runAll();
  EXPECT_EQ(answers.health("kokoro").note, "gone now");
  EXPECT_FALSE(answers.answered("piper"));
}

TEST(VoiceLadderPicker, TheLocalServersOwnSentenceWins) {
  const std::string down = "Nothing answered at http://127.0.0.1:8080. Start your TTS server or change its address.";
  EXPECT_EQ(VoiceLadder::pickerSays("local", DriverHealth::absent(down), nullptr, false), down);
  EXPECT_EQ(VoiceLadder::pickerSays("local", DriverHealth::checking("local"), nullptr, false), "asking local…");
  EXPECT_EQ(VoiceLadder::pickerSays("corvane", DriverHealth::absent("corvane is coming soon"), nullptr, false),
            "No voice engine found. Import audio per line or export silent with captions.");
  EXPECT_EQ(VoiceLadder::pickerSays("local", DriverHealth::presentWith(false, DriverLocation::local, 1, 1, "x"),
                                    nullptr, false),
            "local ready.");
}

}  // namespace
}  // namespace tavorin
