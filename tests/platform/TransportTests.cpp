#include "platform/Transport.hpp"

#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "Wav.hpp"
#include "kit/Music.hpp"
#include "platform/OfflineAudioOutput.hpp"

namespace tavorin {
namespace {

using test::TempDir;
constexpr int rate = 8000;
const int lead = int(Playback::lead * rate);

struct Studio {
  TempDir dir;
  Recording recording{"p", "P"};
  OfflineAudioOutput output{rate, 2};
  // Loads wait here until the test lets them land, as a worker pool would.
  std::vector<std::function<void()>> pending;
  Transport transport{output, [this](auto work, auto done) {
                        pending.push_back([work, done] { done(work()); });
                      }};

  void land() {
    auto now = std::move(pending);
    pending.clear();
    for (auto& f : now) f();
  }
  void line(const std::string& id, double start, double seconds, bool rendered = true) {
    TimelineItem item(id, ItemType::line);
    item.start = start;
    item.duration = seconds;
    if (rendered) {
      test::writeLevel(dir / (id + ".wav"), seconds, 0.5f, rate);
      item.audio = id + ".wav";
    }
    recording.timeline.push_back(item);
  }
  void advance(double seconds) { output.pull(int(seconds * rate)); }
};

TEST(Transport, PlayMovesThePlayheadFromTheOutputAndStopsAtTheEnd) {
  Studio s;
  s.line("l1", 0, 1);
  s.line("l2", 1, 1, false);
  EXPECT_EQ(s.transport.play(s.recording, s.dir.path(), 0.5), "play from 0.50s, 1 unrendered line(s) silent");
  EXPECT_EQ(s.transport.skipped(), std::vector<std::string>{"l2"});
  s.land();
  s.output.pull(lead);
  s.advance(0.5);
  EXPECT_TRUE(s.transport.tick());
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 1.0);
  EXPECT_EQ(s.transport.state(), Transport::State::playing);
  s.advance(1.0);
  s.transport.tick();  // past the end: it stops of itself, back where it began
  EXPECT_EQ(s.transport.state(), Transport::State::stopped);
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 0.5);
}

TEST(Transport, PauseHoldsAndSeekClampsIntoTheFilm) {
  Studio s;
  s.line("l1", 0, 4);
  s.transport.play(s.recording, s.dir.path());
  s.land();
  s.output.pull(lead);
  s.advance(1.25);
  EXPECT_EQ(s.transport.pause(), "paused at 1.25s");
  s.advance(1);
  EXPECT_FALSE(s.transport.tick());
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 1.25);
  EXPECT_EQ(s.transport.state(), Transport::State::paused);

  s.transport.seek(s.recording, s.dir.path(), -4);
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 0);
  s.transport.seek(s.recording, s.dir.path(), 99);
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 4);
  EXPECT_EQ(s.transport.state(), Transport::State::paused);

  s.transport.seek(s.recording, s.dir.path(), 1);
  s.transport.toggle(s.recording, s.dir.path());  // plays on from the playhead
  s.land();
  s.output.pull(lead);
  s.advance(0.5);
  s.transport.tick();
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 1.5);
  s.transport.seek(s.recording, s.dir.path(), 3);  // a seek while playing plays on from there
  EXPECT_EQ(s.transport.state(), Transport::State::playing);
  s.land();
  s.output.pull(lead);
  s.advance(0.25);
  s.transport.tick();
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 3.25);
  s.transport.stop();
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 1);  // back where the play began
}

TEST(Transport, ALoadThatLandsAfterANewerActIsDropped) {
  Studio s;
  s.line("l1", 0, 2);
  s.transport.play(s.recording, s.dir.path());
  s.transport.stop();
  s.land();
  EXPECT_FALSE(s.transport.playback().isPlaying());
  const auto quiet = s.output.pull(lead + rate / 2);
  EXPECT_TRUE(std::all_of(quiet.begin(), quiet.end(), [](float v) { return v == 0; }));
}

TEST(Transport, ALineOrABedPlaysAloneAndEndsOfItself) {
  Studio s;
  s.line("l1", 5, 2);
  s.recording.timeline[0].rate = 2;  // two seconds of file in one of wall time
  EXPECT_EQ(s.transport.playLine(s.recording.timeline[0], s.dir.path()), "play l1 from 0.00s in 1.00s");
  EXPECT_EQ(s.transport.playingId(), "l1");
  s.land();
  s.output.pull(lead);
  s.advance(0.5);
  s.transport.tick();
  EXPECT_DOUBLE_EQ(s.transport.playhead(), 0);  // a line alone leaves the playhead be
  s.advance(0.6);
  s.transport.tick();
  EXPECT_FALSE(s.transport.playingId());
  EXPECT_EQ(s.transport.state(), Transport::State::stopped);

  std::filesystem::create_directories(s.dir / "music");
  test::writeLevel(s.dir / "music" / "bed.wav", 4, 0.5f, rate);
  auto bed = Music::item("m1", "music/bed.wav", 0, 4);
  bed.trimIn = 1;
  bed.trimOut = 2;
  bed.gain = 0;
  EXPECT_EQ(s.transport.previewBed(bed, s.dir.path()), "preview m1 from 1.00s in 1.00s");
  s.land();
  s.output.pull(lead);
  EXPECT_NEAR(s.output.pull(1)[0], 0.5, 1e-3);
  EXPECT_EQ(s.transport.stopLine(), "stopped m1");
  EXPECT_EQ(s.transport.stopLine(), "nothing playing alone");
}

}  // namespace
}  // namespace tavorin
