// The render queue driven through tavorinctl against a running studio, with real
// speech from tavorin-speech.
#include <gtest/gtest.h>
#include <signal.h>

#include <thread>

#include "Processes.hpp"
#include "TestSupport.hpp"
#include "main/StudioFixture.hpp"
#include "kit/VariantsStore.hpp"
#include "operator/JSONValue.hpp"
#include "voice/AudioFile.hpp"
#include "voice/SpeechServerProcess.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

class RenderEndToEnd : public test::StudioFixture {
 protected:
  void SetUp() override { startStudio(); }
  // The demo, cast with tavorin-speech's one character.
  void castTheDemo(const test::SpeechServerProcess& speech) {
    openDemo();
    ok({"voice.local.set", "url=" + speech.url()});
    ok({"edit", "id=production", "field=driver", "value=local"});
    ok({"voice.check"});
    ok({"edit", "id=production", "field=character", "value=espeak-ng"});
  }
  // render.status, polled until the queue is idle.
  JSONValue untilIdle() {
    const auto until = std::chrono::steady_clock::now() + 60s;
    JSONValue status;
    do {
      status = ok({"render.status"});
      if (status["idle"] && status["idle"]->boolValue() == true) return status;
      std::this_thread::sleep_for(50ms);
    } while (std::chrono::steady_clock::now() < until);
    ADD_FAILURE() << "the render queue never went idle";
    return status;
  }
  fs::path production() const { return dir / "root/demo/recordings/halden-demo"; }
};

}  // namespace

TEST_F(RenderEndToEnd, TheDemoRendersThroughTavorinSpeech) {
  test::SpeechServerProcess speech;
  castTheDemo(speech);
  EXPECT_EQ(ctl({"render"}).rc, 1);
  EXPECT_EQ(ctl({"render", "ids=l1", "samples=9"}).rc, 1);

  const JSONValue queued = ok({"render", "all=1"});
  EXPECT_EQ(queued["queued"]->arrayValue()->size(), 8u);
  JSONValue status = untilIdle();
  EXPECT_EQ(*status["peakConcurrency"]->intValue(), 1);
  for (const auto& line : *status["lines"]->arrayValue()) {
    const std::string id = str(line, "id");
    ASSERT_FALSE(str(line, "audio").empty()) << id << " has no audio: " << line.encode();
    EXPECT_GT(*line["duration"]->doubleValue(), 0.5) << id;
    EXPECT_EQ(str(*line["render"], "state"), "done") << id;
    EXPECT_TRUE(line["stale"]->isNull()) << id;
    // Real speech: the file's length is the length the line was given.
    const auto seconds = AudioFile::seconds(production() / str(line, "audio"));
    ASSERT_TRUE(seconds) << id;
    EXPECT_NEAR(*seconds, *line["duration"]->doubleValue(), 0.01) << id;
  }
  JSONValue samples = ok({"line.samples", "id=l1"});
  EXPECT_EQ(*samples["count"]->intValue(), 1);
  EXPECT_EQ(*samples["live"]->intValue(), 1);

  // New words make the line stale; a render gives it a second variant and the first stays.
  ok({"edit", "id=l1", "field=text", "value=Halden keeps the paperwork of a whole household, tidy and in one place."});
  const JSONValue edited = ok({"render.status"});
  EXPECT_EQ(str((*edited["lines"]->arrayValue())[0], "stale"), "its text changed");
  ok({"render", "all=1"});
  untilIdle();
  samples = ok({"line.samples", "id=l1"});
  EXPECT_EQ(*samples["count"]->intValue(), 2);
  EXPECT_EQ(*samples["live"]->intValue(), 2);
  const auto& list = *samples["samples"]->arrayValue();
  EXPECT_EQ(*list[0]["old"]->boolValue(), true);
  EXPECT_TRUE(fs::exists(production() / str(list[0], "file")));

  // Back to the first take: the line is stale again.
  const JSONValue used = ok({"line.sample.use", "id=l1", "take=1"});
  EXPECT_EQ(str(used, "audio"), str(list[0], "file"));
  EXPECT_NE(ctl({"line.sample.use", "id=l1", "take=7"}).rc, 0);
  const JSONValue approved = ok({"line.approve", "id=l1"});
  EXPECT_EQ(*approved["approved"]->boolValue(), true);
  // The only stale line is approved: held back, so nothing is left to render.
  EXPECT_NE(ctl({"render", "stale=1"}).rc, 0);
  EXPECT_EQ(*ok({"render.status"})["heldBack"]->arrayValue(), JSONValue::Array{JSONValue("l1")});

  // A variant plays alone through the studio's output.
  // The variant is read off the main actor first, so the line may take a moment to start.
  ok({"line.sample.play", "id=l1", "take=2"});
  std::string playing;
  for (int i = 0; i < 100 && playing != "l1"; ++i) {
    playing = str(ok({"transport"}), "line");
    if (playing != "l1") std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_EQ(playing, "l1");
  ok({"line.stop"});

  ok({"line.sample.remove", "id=l1", "take=2"});
  EXPECT_EQ(*ok({"line.samples", "id=l1"})["count"]->intValue(), 1);
  EXPECT_TRUE(fs::exists(production() / str(list[1], "file")));  // the wav stays in audio/
  EXPECT_EQ(*ok({"render.samples", "n=3"})["n"]->intValue(), 3);
  EXPECT_NE(ctl({"render.samples", "n=0"}).rc, 0);
}

TEST_F(RenderEndToEnd, AStudioKilledMidRenderLosesNoLandedVariant) {
  test::SpeechServerProcess speech;
  castTheDemo(speech);
  ok({"render", "ids=l1,l2,l3,l4,l5,l6,l7,l8", "samples=8"});
  // Kill it once some variants have landed and more are on their way.
  const auto until = std::chrono::steady_clock::now() + 60s;
  std::size_t landedBefore = 0;
  while (std::chrono::steady_clock::now() < until) {
    std::size_t landed = 0;
    if (VariantsStore(production()).exists())
      for (const auto& [id, list] : VariantsStore(production()).read().lines) landed += list.size();
    if (landed >= 3) {
      ::kill(app.pid, SIGKILL);
      test::waitFor(app.pid, 5s);
      landedBefore = landed;
      break;
    }
    std::this_thread::sleep_for(5ms);
  }
  ASSERT_GE(landedBefore, 3u) << "no variant landed in a minute";
  ASSERT_LT(landedBefore, 64u) << "the render finished before the kill";

  // Every variant the index names is a whole file of the length it says.
  const auto index = VariantsStore(production()).read();
  std::size_t listed = 0;
  for (const auto& [id, list] : index.lines)
    for (const auto& v : list) {
      ++listed;
      const auto seconds = AudioFile::seconds(production() / v.file);
      ASSERT_TRUE(seconds) << v.file;
      EXPECT_NEAR(*seconds, v.seconds, 0.01) << v.file;
    }
  EXPECT_GE(listed, landedBefore);
  // No half-written file under a render's name: whatever was cut off is not a .wav.
  for (const auto& entry : fs::directory_iterator(production() / "audio")) {
    if (entry.path().extension() != ".wav") continue;
    EXPECT_TRUE(AudioFile::seconds(entry.path())) << entry.path();
  }

  // The next studio opens the production with every landed variant, and renders on.
  launch();
  castTheDemo(speech);  // the cast was edited less than a draft's delay before the kill
  std::size_t seen = 0;
  for (int i = 1; i <= 8; ++i) seen += *ok({"line.samples", "id=l" + std::to_string(i)})["count"]->intValue();
  EXPECT_GE(seen, listed);
  ok({"render", "ids=l8"});
  const JSONValue after = untilIdle();
  EXPECT_EQ(str(*(*after["lines"]->arrayValue())[7]["render"], "state"), "done") << after.encode();
  EXPECT_GE(*ok({"line.samples", "id=l8"})["count"]->intValue(), 1);
}

TEST_F(RenderEndToEnd, TheCastingRoomAuditionsAndCasts) {
  test::SpeechServerProcess speech;
  castTheDemo(speech);
  const JSONValue cast = ok({"cast", "filter=espeak"});
  ASSERT_EQ(cast["characters"]->arrayValue()->size(), 1u);
  const std::string voice = str((*cast["characters"]->arrayValue())[0], "defaultVoice");
  EXPECT_EQ(str(cast, "character"), "espeak-ng");
  EXPECT_TRUE(ok({"cast", "filter=nobody-by-that-name"})["characters"]->arrayValue()->empty());

  EXPECT_NE(ctl({"casting.use", "voice=" + voice}).rc, 0);  // the room is shut
  const JSONValue room = ok({"casting", "line=l3"});
  EXPECT_EQ(*room["open"]->boolValue(), true);
  EXPECT_EQ(str(room, "character"), "espeak-ng");
  EXPECT_EQ(str(room, "line"), "l3");
  EXPECT_NE(ctl({"casting", "tab=elsewhere"}).rc, 0);

  const JSONValue asked = ok({"casting.audition", "character=espeak-ng", "prompt=Try this voice on for size."});
  EXPECT_TRUE(str(asked, "ticket").starts_with("audition:"));
  untilIdle();
  const JSONValue history = ok({"casting.history", "character=espeak-ng", "voice=" + voice});
  const auto& takes = *(*history["voices"])[voice]->arrayValue();
  ASSERT_EQ(takes.size(), 1u);
  EXPECT_EQ(str(takes[0], "prompt"), "Try this voice on for size.");
  EXPECT_GT(*takes[0]["seconds"]->doubleValue(), 0.5);
  EXPECT_TRUE(fs::exists(dir / "support/auditions/espeak-ng" / voice / str(takes[0], "file")));
  const JSONValue listed = ok({"casting.cast", "character=espeak-ng"});
  EXPECT_EQ(*(*(*listed["characters"]->arrayValue())[0]["voices"]->arrayValue())[0]["auditions"]->intValue(), 1);

  // An audition never touches the production; casting from the room does.
  const JSONValue before = ok({"render.status"});
  EXPECT_TRUE((*before["lines"]->arrayValue())[2]["audio"]->isNull());
  ok({"casting.use", "voice=" + voice});
  ok({"casting.dismiss"});
  EXPECT_EQ(*ok({"casting.cast"})["pick"], JSONValue());
  ok({"cast.use", "character=espeak-ng", "voice=" + voice, "line=l4"});
  EXPECT_EQ(str(ok({"voice.preview", "line=l4"}), "said"), "rendering — this one takes a moment");
  EXPECT_NE(ctl({"voice.preview", "line=l99"}).rc, 0);
  untilIdle();
}
