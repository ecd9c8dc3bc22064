#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "TestSupport.hpp"
#include "platform/FrameDecoder.hpp"

using namespace tavorin;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// One second each of red, blue and green at 24 fps, a keyframe every half second, so
// that reaching a time means a seek and decoding forward.
void makeColours(const fs::path& file) {
  tavorin::test::ScopedEnv out("FILM_OUT", file.string());
  const std::string command =
      "ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i "
      "'color=c=red:s=160x90:r=24:d=1[a];color=c=blue:s=160x90:r=24:d=1[b];"
      "color=c=lime:s=160x90:r=24:d=1[c];[a][b][c]concat=n=3[out0]' "
      "-c:v libx264 -g 12 -pix_fmt yuv420p -preset ultrafast \"$FILM_OUT\"";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

enum class Colour { red, blue, green, other };

// The colour of the middle of a frame.
Colour middle(const FrameDecoder::Frame& f) {
  const std::size_t at = (std::size_t(f.height / 2) * f.width + f.width / 2) * 4;
  const int r = f.rgba[at], g = f.rgba[at + 1], b = f.rgba[at + 2];
  if (r > 180 && g < 80 && b < 80) return Colour::red;
  if (b > 180 && r < 80 && g < 80) return Colour::blue;
  if (g > 180 && r < 80 && b < 80) return Colour::green;
  return Colour::other;
}

// Counts the decoder's news; while the gate is shut, the decoding thread waits in it.
struct Arrivals {
  std::mutex mutex;
  std::condition_variable changed;
  int count = 0;
  bool shut = false;

  void operator()() {
    std::unique_lock lock(mutex);
    ++count;
    changed.notify_all();
    changed.wait(lock, [this] { return !shut; });
  }
  bool reach(int n) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 10s, [&] { return count >= n; });
  }
  int seen() {
    std::lock_guard lock(mutex);
    return count;
  }
  void open() {
    {
      std::lock_guard lock(mutex);
      shut = false;
    }
    changed.notify_all();
  }
};

class FrameDecoderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0)
      GTEST_SKIP() << "ffmpeg is not installed (Debian package ffmpeg)";
    makeColours(film);
  }
  // Asks for one time and waits for its frame.
  FrameDecoder::Frame at(FrameDecoder& decoder, double seconds, int width = 32, int height = 18) {
    const int before = arrivals.seen();
    decoder.request(seconds, width, height);
    EXPECT_TRUE(arrivals.reach(before + 1)) << "no frame for " << seconds;
    auto frame = decoder.take();
    EXPECT_TRUE(frame.has_value()) << seconds;
    return frame.value_or(FrameDecoder::Frame{});
  }

  tavorin::test::TempDir dir;
  fs::path film = dir / "colours.mp4";
  Arrivals arrivals;
};

}  // namespace

TEST_F(FrameDecoderTest, EachTimeGivesThePictureShowingThenAtTheSizeAskedAndTheLastPastTheEnd) {
  FrameDecoder decoder(film, std::ref(arrivals));
  const auto red = at(decoder, 0.5);
  EXPECT_EQ(red.width, 32);
  EXPECT_EQ(red.height, 18);
  ASSERT_EQ(red.rgba.size(), 32u * 18 * 4);
  EXPECT_EQ(middle(red), Colour::red);
  EXPECT_EQ(red.seconds, 0.5);

  EXPECT_EQ(middle(at(decoder, 1.5)), Colour::blue);
  // Back, across keyframes, then forward again and at another size.
  EXPECT_EQ(middle(at(decoder, 0.1)), Colour::red);
  const auto green = at(decoder, 2.25, 64, 36);
  EXPECT_EQ(green.width, 64);
  EXPECT_EQ(middle(green), Colour::green);
  // Past the end the last picture stays, and the film plays again from earlier on.
  EXPECT_EQ(middle(at(decoder, 60)), Colour::green);
  // Either side of a seam: the last red picture, then the first blue.
  EXPECT_EQ(middle(at(decoder, 0.99)), Colour::red);
  EXPECT_EQ(middle(at(decoder, 1.01)), Colour::blue);
  EXPECT_FALSE(decoder.failure());
}

TEST_F(FrameDecoderTest, OnlyTheNewestRequestIsAnswered) {
  arrivals.shut = true;
  FrameDecoder decoder(film, std::ref(arrivals));
  decoder.request(0.5, 32, 18);
  // The decoding thread is now held in the gate with the red frame handed over.
  ASSERT_TRUE(arrivals.reach(1));
  for (double t : {2.5, 0.2, 1.2, 2.9}) decoder.request(t, 32, 18);
  decoder.request(1.5, 16, 9);
  arrivals.open();
  ASSERT_TRUE(arrivals.reach(2));
  const auto frame = decoder.take();
  ASSERT_TRUE(frame);
  // The red one was replaced before it was taken; the asks in between were never decoded.
  EXPECT_EQ(frame->seconds, 1.5);
  EXPECT_EQ(frame->width, 16);
  EXPECT_EQ(middle(*frame), Colour::blue);
  EXPECT_FALSE(decoder.take());
  // Asking again for the picture in hand brings no news; a new picture does.
  decoder.request(1.52, 16, 9);
  EXPECT_EQ(middle(at(decoder, 2.5, 16, 9)), Colour::green);
  EXPECT_EQ(arrivals.seen(), 3);
}

TEST_F(FrameDecoderTest, AFileThatIsNoFilmSaysSoInASentence) {
  tavorin::test::writeFile(dir / "notes.mp4", "these are words, not pictures\n");
  FrameDecoder decoder(dir / "notes.mp4", std::ref(arrivals));
  ASSERT_TRUE(arrivals.reach(1));
  const auto why = decoder.failure();
  ASSERT_TRUE(why);
  EXPECT_EQ(why->rfind("the film notes.mp4 can't be shown: ", 0), 0u) << *why;
  decoder.request(0.5, 32, 18);
  EXPECT_FALSE(decoder.take());

  FrameDecoder gone(dir / "absent.mp4", std::ref(arrivals));
  ASSERT_TRUE(arrivals.reach(2));
  EXPECT_TRUE(gone.failure());
}
