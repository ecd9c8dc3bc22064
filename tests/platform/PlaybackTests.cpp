#include "platform/Playback.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "TestSupport.hpp"
#include "Wav.hpp"
#include "kit/Music.hpp"
#include "platform/OfflineAudioOutput.hpp"
#include "platform/SdlAudioOutput.hpp"

namespace tavorin {
namespace {

using test::TempDir;
constexpr int rate = 48000;
const std::uint64_t leadFrames = std::llround(Playback::lead * rate);

// The first frame from `from` whose left sample is louder than `threshold`.
std::int64_t onset(const std::vector<float>& mix, std::size_t from, float threshold) {
  for (std::size_t f = from; f < mix.size() / 2; ++f)
    if (std::abs(mix[f * 2]) > threshold) return std::int64_t(f);
  return -1;
}

float at(const std::vector<float>& mix, std::uint64_t frame) { return mix[frame * 2]; }

struct Film {
  TempDir dir;
  Recording recording{"p", "P"};

  void line(const std::string& id, double start, double seconds, float level, double speed = 1) {
    test::writeLevel(dir / (id + ".wav"), seconds, level);
    TimelineItem item(id, ItemType::line);
    item.start = start;
    item.duration = seconds;
    item.rate = speed;
    item.audio = id + ".wav";
    recording.timeline.push_back(item);
  }
  void bed(const std::string& id, double start, double seconds, float level, double gain, int fileRate = rate) {
    std::filesystem::create_directories(dir / "music");
    test::writeLevel(dir / "music" / (id + ".wav"), seconds, level, fileRate);
    auto item = Music::item(id, "music/" + id + ".wav", start, seconds);
    item.gain = gain;
    recording.timeline.push_back(item);
  }
  std::shared_ptr<const Playback::Program> program(double from = 0) const {
    return Playback::load(dir.path(), PlaybackPlan::make(recording, from), rate, 2);
  }
};

TEST(Playback, TwoCuesAndABedLandOnTheirFramesAgainstOneStart) {
  Film film;
  film.line("l1", 0.5, 0.25, 0.5f);
  film.line("l2", 1.0, 0.25, 0.25f);
  film.bed("m1", 0.25, 2.0, 0.5f, -20, 44100);  // another rate, resampled on load

  OfflineAudioOutput output(rate, 2);
  output.pull(1000);  // the device has been running a while
  Playback playback(output);
  playback.play(film.program());
  ASSERT_TRUE(playback.program()->missing.empty());
  const auto mix = output.pull(int(leadFrames + 2 * rate));
  const std::uint64_t anchor = leadFrames;  // frames from the pull's first frame

  const double bed = 0.5 * Music::amplitude(-20);
  EXPECT_NEAR(onset(mix, 0, 0.01f), anchor + rate / 4, 1);
  EXPECT_NEAR(onset(mix, 0, float(bed + 0.25)), anchor + rate / 2, 1);
  EXPECT_NEAR(at(mix, anchor + rate * 6 / 10), bed + 0.5, 1e-3);
  EXPECT_NEAR(at(mix, anchor + rate * 8 / 10), bed, 1e-3);  // l1 has ended
  EXPECT_NEAR(onset(mix, anchor + rate * 8 / 10, float(bed + 0.1)), anchor + rate, 1);
  EXPECT_NEAR(at(mix, anchor + rate * 11 / 10), bed + 0.25, 1e-3);
  EXPECT_EQ(at(mix, anchor + rate / 8), 0.0f);  // nothing before the bed
  EXPECT_FLOAT_EQ(mix[(anchor + rate * 6 / 10) * 2], mix[(anchor + rate * 6 / 10) * 2 + 1]);  // mono on both sides
}

TEST(Playback, VarispeedChangesHowLongACueSounds) {
  for (double speed : {0.5, 2.0}) {
    Film film;
    film.line("l1", 0, 1.0, 0.5f, speed);
    OfflineAudioOutput output(rate, 2);
    Playback playback(output);
    playback.play(film.program());
    const auto mix = output.pull(int(leadFrames + 3 * rate));
    const auto start = onset(mix, 0, 0.25f);
    std::int64_t last = start;
    for (auto f = start; f < std::int64_t(mix.size() / 2); ++f)
      if (std::abs(mix[f * 2]) > 0.25f) last = f;
    EXPECT_NEAR(start, std::int64_t(leadFrames), 2) << speed;
    EXPECT_NEAR(double(last - start), rate / speed, 4) << speed;
    EXPECT_NEAR(at(mix, leadFrames + rate / 4), 0.5, 1e-3) << speed;
  }
}

TEST(Playback, PositionFollowsTheDeviceClockThroughPauseAndSeek) {
  Film film;
  film.line("l1", 0, 3, 0.5f);
  OfflineAudioOutput output(rate, 2);
  Playback playback(output);
  playback.play(film.program(1.0));
  EXPECT_DOUBLE_EQ(playback.currentTime(), 1.0);  // the lead is not the film moving
  output.pull(int(leadFrames));
  EXPECT_DOUBLE_EQ(playback.currentTime(), 1.0);
  output.pull(rate / 2);
  EXPECT_DOUBLE_EQ(playback.currentTime(), 1.5);
  EXPECT_FALSE(playback.ended());

  playback.pause();
  output.pull(rate);
  EXPECT_FALSE(playback.isPlaying());
  EXPECT_DOUBLE_EQ(playback.currentTime(), 1.5);
  const auto silent = output.pull(100);
  EXPECT_EQ(onset(silent, 0, 0.0f), -1);  // a paused output renders nothing

  playback.seek(-4);
  EXPECT_DOUBLE_EQ(playback.currentTime(), 0);
  playback.play(film.program(2.5));
  output.pull(int(leadFrames) + rate / 2);
  EXPECT_DOUBLE_EQ(playback.currentTime(), 3.0);
  EXPECT_TRUE(playback.ended());
}

TEST(Playback, MutesSilenceTheirLaneWhilePlaying) {
  Film film;
  film.line("l1", 0, 1, 0.5f);
  film.bed("m1", 0, 1, 0.5f, 0);
  OfflineAudioOutput output(rate, 2);
  Playback playback(output);
  playback.play(film.program());
  output.pull(int(leadFrames));
  EXPECT_NEAR(output.pull(10)[0], 1.0, 1e-3);
  playback.setMuteVoice(true);
  EXPECT_NEAR(output.pull(10)[0], 0.5, 1e-3);
  playback.setMuteMusic(true);
  EXPECT_EQ(output.pull(10)[0], 0.0f);
  playback.setMuteVoice(false);
  EXPECT_NEAR(output.pull(10)[0], 0.5, 1e-3);
}

TEST(Playback, UnreadableFilesAreLeftOutAndTheRestPlays) {
  Film film;
  film.line("l1", 0, 1, 0.5f);
  film.line("l2", 0, 1, 0.25f);
  test::writeFile(film.dir / "l2.wav", "not audio at all");
  TimelineItem gone("l3", ItemType::line);
  gone.start = 0;
  gone.duration = 1;
  gone.audio = "missing.wav";
  film.recording.timeline.push_back(gone);

  const auto program = film.program();
  EXPECT_EQ(program->missing, (std::vector<std::string>{"l2.wav", "missing.wav"}));
  ASSERT_EQ(program->sources.size(), 1u);
  EXPECT_EQ(program->sources[0].id, "l1");
}

TEST(Playback, AClipPlaysOneFileAloneToItsEnd) {
  Film film;
  film.line("l1", 0, 2, 0.5f);
  OfflineAudioOutput output(rate, 2);
  Playback playback(output);
  playback.play(Playback::load(film.dir.path(), Playback::clip("l1.wav", 2, 1, std::nullopt), rate, 2));
  EXPECT_NEAR(playback.length(), 0.5, 1e-3);  // one second of file left, at twice the speed
  output.pull(int(leadFrames) + rate / 4);
  EXPECT_FALSE(playback.ended());
  output.pull(rate / 4 + 10);
  EXPECT_TRUE(playback.ended());
}

TEST(Playback, TheSdlDeviceClockMovesThePlayhead) {
  test::ScopedEnv driver("SDL_AUDIODRIVER", "dummy");
  Film film;
  film.line("l1", 0, 5, 0.5f);
  SdlAudioOutput output(rate, 2);
  Playback playback(output);
  playback.play(film.program());
  const auto started = output.clock();
  // The dummy device takes frames at the wall clock's pace: wait for it in short steps.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (playback.currentTime() <= 0.05 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_GT(output.clock(), started);
  const double position = playback.currentTime();
  EXPECT_GT(position, 0.05);
  EXPECT_LT(position, 5);
  playback.pause();
  const double held = playback.currentTime();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_DOUBLE_EQ(playback.currentTime(), held);
}

}  // namespace
}  // namespace tavorin
