#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "TestSupport.hpp"
#include "platform/Footage.hpp"

using namespace tavorin;
using namespace std::chrono;
namespace fs = std::filesystem;
using tavorin::test::TempDir;
using tavorin::test::writeFile;

namespace {

bool haveFfmpeg() { return std::system("command -v ffmpeg >/dev/null 2>&1") == 0; }

// A 3-second 320x240 test picture at 30 fps, with a sine tone when asked.
void makeFilm(const fs::path& file, bool withSound) {
  tavorin::test::ScopedEnv out("FILM_OUT", file.string());
  std::string command = "ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i testsrc=size=320x240:rate=30:duration=3";
  if (withSound) command += " -f lavfi -i sine=frequency=440:duration=3 -c:a aac";
  command += " -c:v libx264 -pix_fmt yuv420p -preset ultrafast -shortest \"$FILM_OUT\"";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// Asks everything of a file and says how long it took.
std::pair<Footage::Answer, milliseconds> timed(const fs::path& file) {
  const auto start = steady_clock::now();
  auto answer = Footage::probe(file);
  return {answer, duration_cast<milliseconds>(steady_clock::now() - start)};
}

class FootageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!haveFfmpeg()) GTEST_SKIP() << "ffmpeg is not installed (Debian package ffmpeg)";
  }
  TempDir dir;
};

}  // namespace

TEST_F(FootageTest, AFilmSaysItsLengthSizeRateAndSound) {
  makeFilm(dir / "silent.mp4", false);
  makeFilm(dir / "sound.mp4", true);

  auto silent = Footage::probe(dir / "silent.mp4");
  ASSERT_TRUE(silent.seconds);
  EXPECT_NEAR(*silent.seconds, 3, 0.05);
  EXPECT_EQ(silent.size, (Footage::Size{320, 240}));
  EXPECT_NEAR(silent.rate.value_or(0), 30, 0.01);
  EXPECT_EQ(silent.hasAudio, false);

  EXPECT_EQ(Footage::hasAudio(dir / "sound.mp4"), true);
  EXPECT_NEAR(Footage::seconds(dir / "sound.mp4").value_or(0), 3, 0.1);
  EXPECT_EQ(Footage::size(dir / "sound.mp4"), (Footage::Size{320, 240}));
  EXPECT_NEAR(Footage::rate(dir / "sound.mp4").value_or(0), 30, 0.01);
}

TEST_F(FootageTest, NamesWithQuotesSpacesAndOtherLettersAreTakenLiterally) {
  const fs::path odd = dir / "it's a \"take\" — ünïcode %d";
  fs::create_directories(odd);
  makeFilm(odd / "file:take 1?.mp4", false);
  auto answer = Footage::probe(odd / "file:take 1?.mp4");
  EXPECT_NEAR(answer.seconds.value_or(0), 3, 0.05);

  // A name that looks like an image sequence is not read as one.
  makeFilm(dir / "frame.mp4", false);
  fs::copy_file(dir / "frame.mp4", dir / "frame%03d.mp4");
  EXPECT_TRUE(Footage::probe(dir / "frame%03d.mp4").seconds);
}

TEST_F(FootageTest, HostileFilesAnswerNothingWithinASecond) {
  makeFilm(dir / "whole.mp4", true);
  const auto bytes = fs::file_size(dir / "whole.mp4");
  {
    std::ifstream in(dir / "whole.mp4", std::ios::binary);
    std::string half(bytes / 2, '\0');
    in.read(half.data(), static_cast<std::streamsize>(half.size()));
    const fs::path quoted = dir / "it's half a film.mp4";
    std::ofstream(quoted, std::ios::binary) << half;
    std::ofstream(dir / "half.mp4", std::ios::binary) << half;
  }
  writeFile(dir / "empty.mp4", "");
  writeFile(dir / "notes.mov", "These are my notes, not a film.\n");
  std::string noise(1 << 16, '\0');
  for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>((i * 2654435761u) >> 13);
  writeFile(dir / "noise.mkv", noise);
  fs::create_directories(dir / "folder.mp4");
  ASSERT_EQ(::mkfifo((dir / "pipe.mp4").c_str(), 0600), 0);

  for (const char* name : {"empty.mp4", "notes.mov", "half.mp4", "it's half a film.mp4", "noise.mkv", "folder.mp4",
                           "pipe.mp4", "missing.mp4"}) {
    auto [answer, took] = timed(dir / name);
    EXPECT_EQ(answer, Footage::Answer{}) << name;
    EXPECT_LT(took, 1000ms) << name;
  }
}

TEST_F(FootageTest, TheDeadlineEndsASlowProbe) {
  makeFilm(dir / "film.mp4", false);
  // With no time at all the first read is interrupted: nothing, and promptly.
  auto start = steady_clock::now();
  EXPECT_EQ(Footage::probe(dir / "film.mp4", 0ms), Footage::Answer{});
  EXPECT_LT(steady_clock::now() - start, 500ms);
}
