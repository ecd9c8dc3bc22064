#include <gtest/gtest.h>

#include <cmath>

#include "platform/OfflineAudioOutput.hpp"
#include "platform/Playback.hpp"
#include "platform/SoundCuePlayer.hpp"

using namespace tavorin;

namespace {

// Frames (of the first channel) louder than a whisper, from `frames` pulled.
std::vector<std::size_t> audible(const std::vector<float>& mix, int channels) {
  std::vector<std::size_t> at;
  for (std::size_t i = 0; i * channels < mix.size(); ++i)
    if (std::abs(mix[i * channels]) > 0.02f) at.push_back(i);
  return at;
}

}  // namespace

TEST(SoundCuePlayer, OpensItsOutputOnTheFirstCueAndSoundsTheCueWhole) {
  OfflineAudioOutput* output = nullptr;
  int opened = 0;
  SoundCuePlayer player([&] {
    ++opened;
    auto out = std::make_unique<OfflineAudioOutput>(48000, 2);
    output = out.get();
    return out;
  });
  EXPECT_EQ(opened, 0);  // a studio that never sounds a cue holds no device

  player.play(SoundCue::rolling);
  ASSERT_EQ(opened, 1);
  const auto mix = output->pull(48000);
  const auto loud = audible(mix, 2);
  ASSERT_FALSE(loud.empty());
  // It starts one lead in and lasts the cue's length, give or take its soft edges.
  EXPECT_NEAR(loud.front() / 48000.0, Playback::lead, 0.01);
  EXPECT_NEAR((loud.back() - loud.front()) / 48000.0, SoundCues::card(SoundCue::rolling).seconds(), 0.02);
  for (std::size_t i = 0; i < mix.size(); i += 2) ASSERT_EQ(mix[i], mix[i + 1]);  // the same on both sides

  // A second cue takes the same output, and only it sounds.
  player.play(SoundCue::done);
  EXPECT_EQ(opened, 1);
  const auto next = audible(output->pull(48000), 2);
  ASSERT_FALSE(next.empty());
  EXPECT_NEAR((next.back() - next.front()) / 48000.0, SoundCues::card(SoundCue::done).seconds(), 0.02);
}
