#include "platform/Peaks.hpp"

#include <gtest/gtest.h>

#include "Processes.hpp"
#include "TestSupport.hpp"
#include "Wav.hpp"

namespace tavorin {
namespace {

using test::TempDir;

// A stereo file: quiet for a second then loud for a second, loudest on the right.
void steps(const std::filesystem::path& file, int rate = 8000) {
  std::vector<float> samples;
  for (int i = 0; i < 2 * rate; ++i) {
    const float level = i < rate ? 0.25f : 0.75f;
    samples.push_back(-level / 2);
    samples.push_back(i % 2 ? -level : level);
  }
  test::writeWav(file, samples, rate, 2);
}

TEST(Peaks, EachBucketHoldsTheLoudestSampleOfItsSlice) {
  TempDir dir;
  steps(dir / "steps.wav");
  EXPECT_EQ(Peaks::peaks(dir / "steps.wav", 2), (std::vector<float>{0.25f, 0.75f}));
  EXPECT_EQ(Peaks::peaks(dir / "steps.wav", 4), (std::vector<float>{0.25f, 0.25f, 0.75f, 0.75f}));
  // A span across the step: the first quarter second quiet, the rest loud.
  EXPECT_EQ(Peaks::peaks(dir / "steps.wav", 4, 0.75, 1.0), (std::vector<float>{0.25f, 0.75f, 0.75f, 0.75f}));
  EXPECT_TRUE(Peaks::peaks(dir / "steps.wav", 0).empty());
  EXPECT_DOUBLE_EQ(Peaks::duration(dir / "steps.wav"), 2.0);
}

TEST(Peaks, AChangedFileMissesTheCache) {
  TempDir dir;
  const auto file = dir / "bed.wav";
  test::writeLevel(file, 1, 0.5f, 8000);
  EXPECT_EQ(Peaks::peaks(file, 1), std::vector<float>{0.5f});
  const auto held = Peaks::cached();
  EXPECT_EQ(Peaks::peaks(file, 1), std::vector<float>{0.5f});
  EXPECT_EQ(Peaks::cached(), held);  // a hit
  test::writeLevel(file, 2, 0.125f, 8000);
  EXPECT_EQ(Peaks::peaks(file, 1), std::vector<float>{0.125f});
  EXPECT_NE(Peaks::key(file, 1, 0, std::nullopt), Peaks::key(file, 2, 0, std::nullopt));
}

TEST(Peaks, AnyFormatFfmpegWrites) {
  if (!std::filesystem::exists("/usr/bin/ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
  TempDir dir;
  steps(dir / "steps.wav", 44100);
  const auto run = test::spawn("/usr/bin/ffmpeg",
                               {"-nostdin", "-v", "error", "-i", (dir / "steps.wav").string(), "-c:a", "flac",
                                "-sample_fmt", "s16", (dir / "steps.flac").string()},
                               {}, dir.path());
  ASSERT_EQ(test::waitFor(run.pid, std::chrono::seconds(30)), 0) << test::readFile(run.err);
  const auto peaks = Peaks::peaks(dir / "steps.flac", 2);
  ASSERT_EQ(peaks.size(), 2u);
  EXPECT_NEAR(peaks[0], 0.25, 1e-3);
  EXPECT_NEAR(peaks[1], 0.75, 1e-3);
}

TEST(Peaks, BadFilesGiveASentenceOrWhatTheyHold) {
  TempDir dir;
  test::writeFile(dir / "notes.txt", "these are my notes, not a song\n");
  EXPECT_EQ(test::refusal([&] { Peaks::peaks(dir / "notes.txt", 10); }),
            "Can't read notes.txt: unsupported audio format.");
  EXPECT_EQ(test::refusal([&] { Peaks::duration(dir / "gone.wav"); }), "Can't read gone.wav: unsupported audio format.");
  test::writeFile(dir / "empty.wav", "");
  EXPECT_EQ(test::refusal([&] { Peaks::duration(dir / "empty.wav"); }),
            "Can't read empty.wav: unsupported audio format.");

  // No frames at all: no length, and a waveform of silence rather than a failure.
  test::writeWav(dir / "zero.wav", {}, 8000, 1);
  EXPECT_DOUBLE_EQ(Peaks::duration(dir / "zero.wav"), 0);
  EXPECT_EQ(Peaks::peaks(dir / "zero.wav", 3), (std::vector<float>{0, 0, 0}));

  // A header that promises two seconds over half a second of data.
  test::writeWav(dir / "cut.wav", std::vector<float>(4000, 0.5f), 8000, 1, 16000);
  const auto peaks = Peaks::peaks(dir / "cut.wav", 4);
  ASSERT_EQ(peaks.size(), 4u);
  EXPECT_EQ(peaks[0], 0.5f);
}

}  // namespace
}  // namespace tavorin
