#pragma once
#include <functional>
#include <memory>

#include "kit/SoundCue.hpp"
#include "platform/AudioOutput.hpp"

namespace tavorin {

class Playback;

// Sounds the cues on an output of their own, so a cue never interrupts what the
// transport plays. The output opens on the first cue: a studio that never sounds one
// holds no device for it.
class SoundCuePlayer {
 public:
  using Open = std::function<std::unique_ptr<AudioOutput>()>;
  explicit SoundCuePlayer(Open open);
  ~SoundCuePlayer();
  SoundCuePlayer(const SoundCuePlayer&) = delete;
  SoundCuePlayer& operator=(const SoundCuePlayer&) = delete;

  // A cue already sounding gives way to the new one. Throws the output's sentence
  // when no device opens.
  void play(SoundCue cue);

 private:
  Open open_;
  std::unique_ptr<AudioOutput> output_;
  std::unique_ptr<Playback> playback_;
};

}  // namespace tavorin
