#include <gtest/gtest.h>

#include <chrono>

#include "TestSupport.hpp"
#include "voice/corvane/CorvaneDriver.hpp"

using namespace tavorin;
using test::refusal;
namespace fs = std::filesystem;

namespace {

// The engine's script is not ours: each test writes a small stand-in that answers,
// fails, hangs or prints garbage, and a cast of packages on disk beside it.
class Corvane : public ::testing::Test {
 protected:
  void SetUp() override {
    package("ada", R"({"id":"ada","name":"Ada","active_voice_ids":["warm"],
                       "voices":[{"id":"bright","name":"Bright"},{"id":"warm","ref_audio":"warm.wav"}]})");
    fs::create_directories(tmp / "characters/empty-folder");  // no character.json: skipped
    package("bob", R"({"id":"bob","voices":[{"id":"low"}]})");
    package("broken", "{ not json");
  }
  void package(const std::string& folder, const std::string& json) {
    test::writeFile(tmp / "characters" / folder / "character.json", json);
  }
  void script(const std::string& body) {
    test::writeFile(tmp / "voices.py", "import sys, json, time, wave, struct\nargs = sys.argv[1:]\n" + body);
  }
  CorvaneDriver driver(double deadline = 2.0) {
    return CorvaneDriver(tmp / "voices.py", tmp / "characters", deadline);
  }
  test::TempDir tmp;
};

const char* onDisk = "the engine did not answer, so the cast was read off disk";

}  // namespace

TEST_F(Corvane, TheEnginesOwnListingComesFirstAndIsCached) {
  script(R"(
open(sys.argv[0] + ".asked", "a").write("x")
print(json.dumps({"source": "engine", "note": "two voices cloned",
  "engine": {"present": True, "clones": True},
  "characters": [{"id": "ada", "name": "Ada", "activeVoiceId": "warm",
                  "voices": [{"id": "warm", "name": "Warm", "preview": "/p.wav", "says": "hello", "cloned": True},
                             {"id": "cold", "enabled": False}]}]}))
)");
  CorvaneDriver d = driver();
  EXPECT_EQ(d.name(), "corvane");
  const DriverHealth h = d.health();
  EXPECT_TRUE(h.present);
  EXPECT_TRUE(h.clones);
  EXPECT_EQ(h.source, "engine");
  EXPECT_EQ(h.note, "two voices cloned");
  EXPECT_EQ(h.characters, 1);
  EXPECT_EQ(h.voices, 2);
  EXPECT_EQ(h.location, DriverLocation::local);
  const auto cast = d.characters();
  ASSERT_EQ(cast.size(), 1u);
  EXPECT_EQ(cast[0].defaultVoiceId(), "warm");
  EXPECT_EQ(cast[0].voices[0].preview, "/p.wav");
  EXPECT_EQ(cast[0].voices[0].says, "hello");
  EXPECT_FALSE(cast[0].voices[1].enabled);
  EXPECT_EQ(test::readFile(tmp / "voices.py.asked"), "x");  // asked once for both questions
  d.refresh();
  d.characters();
  EXPECT_EQ(test::readFile(tmp / "voices.py.asked"), "xx");
}

TEST_F(Corvane, AnEngineThatFailsOrBabblesIsReadOffDisk) {
  for (const char* body : {"sys.exit(3)", "print('ready!')", "print(json.dumps({'characters': [{'id': 'x'}]}))",
                           "print(json.dumps([1, 2]))"}) {
    script(body);
    CorvaneDriver d = driver();
    const DriverHealth h = d.health();
    EXPECT_EQ(h.note, onDisk) << body;
    EXPECT_EQ(h.source, "packages");
    EXPECT_TRUE(h.present);
    EXPECT_TRUE(h.clones);
    EXPECT_EQ(h.characters, 2);
    EXPECT_EQ(h.voices, 3);
    const auto cast = d.characters();
    ASSERT_EQ(cast.size(), 2u);
    EXPECT_EQ(cast[0].id, "ada");
    EXPECT_EQ(cast[0].defaultVoiceId(), "warm");  // the first of active_voice_ids
    EXPECT_EQ(cast[1].id, "bob");
    EXPECT_EQ(cast[1].defaultVoiceId(), "low");  // no active voice: the first
  }
  // No script at all, and no packages: nobody to cast.
  fs::remove_all(tmp / "characters");
  fs::remove(tmp / "voices.py");
  const DriverHealth h = driver().health();
  EXPECT_FALSE(h.present);
  EXPECT_EQ(h.characters, 0);
  EXPECT_EQ(h.note, onDisk);
}

TEST_F(Corvane, AHangingEngineIsStoppedAtTheDeadline) {
  EXPECT_EQ(CorvaneDriver::listingDeadline, 6.0);
  script("time.sleep(60)\n");
  CorvaneDriver d = driver(0.5);
  const auto started = std::chrono::steady_clock::now();
  const DriverHealth h = d.health();
  const auto took = std::chrono::steady_clock::now() - started;
  EXPECT_LT(took, std::chrono::seconds(5));
  EXPECT_GE(took, std::chrono::milliseconds(500));
  EXPECT_EQ(h.note, onDisk);
  EXPECT_EQ(h.characters, 2);
  const auto ran = d.run({"list"}, 0.2);
  EXPECT_TRUE(ran.killed);
  EXPECT_FALSE(ran.finished);
}

TEST_F(Corvane, RenderWritesTheFileTheScriptIsToldOf) {
  script(R"(
if args[0] == "render":
    character, voice, path, text = args[1:5]
    if text == "fail":
        print(json.dumps({"error": "the clone of " + voice + " is not trained"}))
        sys.exit(0)
    if text == "crash":
        print("half a line"); sys.stderr.write("Traceback: boom"); sys.exit(1)
    w = wave.open(path, "wb"); w.setnchannels(1); w.setsampwidth(2); w.setframerate(16000)
    w.writeframes(struct.pack("<h", 1000) * int(16000 * len(text) * 0.05)); w.close()
    print(json.dumps({"file": path, "character": character}))
)");
  CorvaneDriver d = driver();
  const RenderResult result = d.render("Twenty characters!!!", "ada", "warm", tmp / "out.wav");
  EXPECT_EQ(result.audioURL, tmp / "out.wav");
  EXPECT_NEAR(result.duration, 1.0, 0.001);
  EXPECT_EQ(result.usedVoice, "warm");
  EXPECT_EQ(refusal([&] { d.render("fail", "ada", "warm", tmp / "f.wav"); }), "the clone of warm is not trained");
  EXPECT_EQ(refusal([&] { d.render("crash", "ada", "warm", tmp / "c.wav"); }),
            "corvane render failed: half a line\n Traceback: boom");
}

TEST_F(Corvane, ARenderWithoutAVoiceNeverStartsTheEngine) {
  script("open(sys.argv[0] + '.ran', 'w').write('ran')\n");
  CorvaneDriver d = driver();
  EXPECT_EQ(refusal([&] { d.render("Hello.", "ada", "", tmp / "x.wav"); }),
            "no voice was named for ada, and corvane picks at random without one. Pick a voice for this character.");
  EXPECT_FALSE(fs::exists(tmp / "voices.py.ran"));
  fs::remove(tmp / "voices.py");
  EXPECT_EQ(refusal([&] { d.render("Hello.", "ada", "warm", tmp / "x.wav"); }), "voices.py missing from bundle");
}
