#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "TestSupport.hpp"
#include "kit/VoiceSplit.hpp"
#include "voice/AudioFile.hpp"
#include "voice/Silence.hpp"
#include "voice/SpeechServerProcess.hpp"
#include "voice/local/LocalDriver.hpp"

namespace tavorin {
namespace {

namespace fs = std::filesystem;

void ffmpeg(const std::string& args) {
  ASSERT_EQ(std::system(("ffmpeg -v error -y " + args).c_str()), 0) << args;
}

// Cuts the group's audio at the pauses silencedetect finds.
VoiceSplit::Outcome cut(const fs::path& file, const std::vector<VoiceSplit::Line>& lines) {
  auto log = Silence::log(file);
  EXPECT_TRUE(log);
  double duration = *AudioFile::seconds(file);
  return VoiceSplit::slice(lines, duration, VoiceSplit::pauses(log.value_or(""), duration));
}

TEST(SilenceLog, TheFilterAndAMissingProgram) {
  EXPECT_EQ(Silence::filter(), "silencedetect=noise=-35dB:d=0.05");
  test::TempDir dir;
  EXPECT_FALSE(Silence::log(dir / "x.wav", dir / "no-ffmpeg-here"));
}

TEST(SilenceLog, SlicesToneGroupsInTheirPausesOrRefuses) {
  test::TempDir dir;
  // Three "phrases" of 1.2, 1.2 and 1.0 s with 0.4 s of silence between.
  const fs::path group = dir / "group.wav";
  ffmpeg("-f lavfi -i sine=frequency=300:duration=1.2 -f lavfi -i anullsrc=r=22050:cl=mono:d=0.4 "
         "-f lavfi -i sine=frequency=400:duration=1.2 -f lavfi -i anullsrc=r=22050:cl=mono:d=0.4 "
         "-f lavfi -i sine=frequency=500:duration=1.0 "
         "-filter_complex '[0][1][2][3][4]concat=n=5:v=0:a=1' -ar 22050 -ac 1 " + group.string());
  auto outcome = cut(group, {{"l1", "Open the menu."}, {"l2", "Pick a colour."}, {"l3", "Then save."}});
  ASSERT_TRUE(outcome.slices()) << *outcome.refusal;
  const auto slices = *outcome.slices();
  EXPECT_EQ(outcome.how, "fitted");
  EXPECT_NEAR(slices[1].offset, 1.4, 0.05);  // the middle of the first pause
  EXPECT_NEAR(slices[2].offset, 3.0, 0.05);
  EXPECT_NEAR(slices[2].offset + slices[2].seconds, 4.2, 0.05);

  // One unbroken tone holds no pause: the group refuses, for the fallback to take over.
  const fs::path steady = dir / "steady.wav";
  ffmpeg("-f lavfi -i sine=frequency=300:duration=3 -ar 22050 -ac 1 " + steady.string());
  EXPECT_EQ(cut(steady, {{"l1", "One."}, {"l2", "Two."}}).refusal,
            "3.0s of audio holds 0 pause(s) where 1 line joins are needed");
}

TEST(SilenceLog, SlicesSpeechFromTavorinSpeechAtItsSentenceBreaks) {
  test::SpeechServerProcess server;
  test::TempDir dir;
  LocalServer{server.url(), std::nullopt}.save(dir / "local-voice.json");
  LocalDriver driver(dir / "local-voice.json");
  const std::vector<VoiceSplit::Line> lines{{"l1", "Welcome to the studio."},
                                            {"l2", "Today we record a short film about the timeline."},
                                            {"l3", "Let us begin."}};
  std::string text;
  for (const auto& [id, words] : lines) text += (text.empty() ? "" : " ") + words;
  auto group = driver.render(text, "espeak-ng", "en-us", dir / "group.wav");
  auto outcome = cut(group.audioURL, lines);
  ASSERT_TRUE(outcome.slices()) << *outcome.refusal;
  // Each line rendered alone runs about as long as its slice.
  const auto slices = *outcome.slices();
  for (size_t i = 0; i < lines.size(); ++i) {
    auto alone = driver.render(lines[i].second, "espeak-ng", "en-us", dir / (lines[i].first + ".wav"));
    EXPECT_NEAR(slices[i].seconds, alone.duration, 0.6) << lines[i].first;
  }
}

}  // namespace
}  // namespace tavorin
