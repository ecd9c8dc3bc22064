#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"
#include "kit/Music.hpp"
#include "platform/MusicImport.hpp"
#include "platform/OfflineAudioOutput.hpp"
#include "../../platform/Wav.hpp"

using namespace tavorin;
using test::refusal;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

constexpr int rate = 8000;

class AppModelTransportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = tmp / "film";
    Recording r("film", "Film");
    TimelineItem spoken("l1", ItemType::line);
    spoken.start = 0;
    spoken.duration = 2;
    spoken.audio = "audio/l1.wav";
    r.timeline.push_back(spoken);
    TimelineItem silent("l2", ItemType::line);
    silent.start = 2;
    silent.hold = 2;
    r.timeline.push_back(silent);
    RecordingStore(dir).saveNewVersion(r, std::chrono::system_clock::now());
    fs::create_directories(dir / "audio");
    test::writeLevel(dir / "audio" / "l1.wav", 2, 0.5f, rate);
    model.open(dir);
    model.attachAudio(output);
    actor.drain();
  }
  void play(double seconds) {
    output.pull(int(seconds * rate));
    actor.advance(40ms);
  }

  test::TempDir tmp;
  fs::path dir;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  OfflineAudioOutput output{rate, 2};
  AppModel model{actor, SessionStore(tmp / "support/session.json"), pasteboard};
};

}  // namespace

TEST_F(AppModelTransportTest, ThePlayheadFollowsTheOutputToTheEndOfTheFilm) {
  model.playTransport();
  EXPECT_EQ(model.events().back(), "play from 0.00s, 1 unrendered line(s) silent");
  EXPECT_EQ(model.skippedLines(), std::vector<std::string>{"l2"});
  actor.drain();
  play(Playback::lead);
  play(1.5);
  EXPECT_TRUE(model.isPlaying());
  EXPECT_NEAR(model.playhead(), 1.5, 1e-9);

  model.pauseTransport();
  play(1);
  EXPECT_NEAR(model.playhead(), 1.5, 1e-9);
  model.seek(-4);
  EXPECT_EQ(model.playhead(), 0);

  model.playTransport(3);
  actor.drain();
  play(Playback::lead);
  play(1.5);  // past the 4 s film
  EXPECT_FALSE(model.isPlaying());
  EXPECT_EQ(model.events().back(), "the film ended");
  EXPECT_EQ(model.playhead(), 3);
}

TEST_F(AppModelTransportTest, ALineAloneIsRefusedWithoutAudio) {
  EXPECT_EQ(refusal([&] { model.playLine("l2"); }), "line l2 has no rendered audio yet");
  EXPECT_EQ(refusal([&] { model.playLine("m9"); }), "no line m9 in the open production");
  model.playLine("l1");
  EXPECT_EQ(model.events().back(), "play l1 from 0.00s in 2.00s");
  model.stopLine();
  EXPECT_EQ(model.events().back(), "stopped l1");
}

TEST_F(AppModelTransportTest, BedsAreUndoableEditsWithTheirRefusals) {
  test::TempDir elsewhere;
  test::writeLevel(elsewhere / "theme.wav", 6, 0.5f, rate);
  const auto copied = MusicImport::copyIn(dir, elsewhere / "theme.wav");
  const std::string id = model.addMusic(copied.name, copied.seconds, 2);
  EXPECT_EQ(id, "m1");
  EXPECT_EQ(model.events().back(), "music m1 — theme.wav, 6.0s at 2.00");
  EXPECT_EQ(*model.recording().item("m1")->file, "music/theme.wav");
  actor.drain();

  model.setMusicGain("m1", 9);
  EXPECT_EQ(*model.recording().item("m1")->gain, 6);
  model.trimMusic("m1", 5.95, 20);
  EXPECT_EQ(*model.recording().item("m1")->trimIn, 5.95);
  EXPECT_EQ(*model.recording().item("m1")->trimOut, 6);
  actor.drain();
  model.undo();
  EXPECT_FALSE(model.recording().item("m1")->trimIn);

  EXPECT_EQ(refusal([&] { model.setMusicGain("l1", -6); }), "no item l1 on the timeline");
  EXPECT_EQ(refusal([&] { model.removeMusic("l1"); }), "no item l1 on the timeline");
  EXPECT_EQ(model.musicTarget(std::nullopt), "m1");  // the only bed

  model.removeMusic("m1");
  EXPECT_EQ(model.events().back(), "removed audio m1 — Ctrl+Z puts it back");
  EXPECT_TRUE(fs::exists(dir / "music" / "theme.wav"));  // the file stays
  actor.drain();
  model.undo();
  EXPECT_NE(model.recording().item("m1"), nullptr);
}

TEST_F(AppModelTransportTest, DraggingABedsEdgesTrimsWithinItsFile) {
  test::TempDir elsewhere;
  test::writeLevel(elsewhere / "theme.wav", 6, 0.5f, rate);
  const auto copied = MusicImport::copyIn(dir, elsewhere / "theme.wav");
  model.addMusic(copied.name, copied.seconds, 2);
  actor.drain();
  auto bed = [&] { return *model.recording().item("m1"); };

  // The head trimmed by a second: the rest of the sound stays where it played.
  model.trimMusicByEdge("m1", AppModel::MusicEdge::left, 3);
  EXPECT_DOUBLE_EQ(*bed().trimIn, 1);
  EXPECT_DOUBLE_EQ(*bed().start, 3);
  EXPECT_DOUBLE_EQ(*bed().trimOut, 6);
  // Dragged left past the file's first sample, the head comes back and no further.
  model.trimMusicByEdge("m1", AppModel::MusicEdge::left, 0);
  EXPECT_DOUBLE_EQ(*bed().trimIn, 0);
  EXPECT_DOUBLE_EQ(*bed().start, 2);
  // The tail: never past the file, never under the shortest length.
  model.trimMusicByEdge("m1", AppModel::MusicEdge::right, 20);
  EXPECT_DOUBLE_EQ(*bed().trimOut, 6);
  actor.drain();  // the turn ends: the next drag is a step of its own
  model.trimMusicByEdge("m1", AppModel::MusicEdge::right, 1);
  EXPECT_NEAR(*bed().trimOut - *bed().trimIn, Music::minLength, 1e-9);
  actor.drain();
  model.undo();
  EXPECT_DOUBLE_EQ(bed().trimOut.value_or(0), 6);

  model.setMusicSource("m1", "https://example.org/theme");
  EXPECT_EQ(*bed().source, "https://example.org/theme");
  EXPECT_EQ(refusal([&] { model.setMusicSource("l1", "x"); }), "no item l1 on the timeline");
  EXPECT_EQ(refusal([&] { model.trimMusicByEdge("l1", AppModel::MusicEdge::left, 1); }), "no item l1 on the timeline");
}

TEST_F(AppModelTransportTest, TimecodeCountsFramesOrSeconds) {
  EXPECT_EQ(model.timecode(61.5), "61.50s");
  model.setTimecodeFormat("film");
  EXPECT_EQ(model.timecode(3661.5), "01:01:01:15");
  EXPECT_EQ(refusal([&] { model.setTimecodeFormat("feet"); }), "'feet' is not a time format. Try: film, seconds");
}

TEST_F(AppModelTransportTest, AMutedVoiceLanePlaysSilentAndOnlyLanesWithSoundMute) {
  EXPECT_EQ(refusal([&] { model.setLaneMuted(TimelineGeometry::Lane::screen, true); }),
            "screen lane makes no sound, so there is nothing to mute. Try: voice or music");
  // The loudest sample of the next stretch the output plays.
  const auto loudest = [&](double seconds) {
    float most = 0;
    for (float v : output.pull(int(seconds * rate))) most = std::max(most, std::abs(v));
    actor.advance(40ms);
    return most;
  };
  model.setLaneMuted(TimelineGeometry::Lane::voice, true);
  model.playTransport();
  actor.drain();
  loudest(Playback::lead);
  EXPECT_EQ(loudest(1), 0.0f);
  model.stopTransport();
  // Muting is how the production sounds, not what it holds.
  EXPECT_TRUE(model.recording().item("l1")->audio.has_value());

  model.setLaneMuted(TimelineGeometry::Lane::voice, false);
  model.playTransport();
  actor.drain();
  loudest(Playback::lead);
  EXPECT_GT(loudest(1), 0.1f);
}
