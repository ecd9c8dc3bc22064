#include "platform/SoundCuePlayer.hpp"

#include "platform/Playback.hpp"

namespace tavorin {

SoundCuePlayer::SoundCuePlayer(Open open) : open_(std::move(open)) {}

SoundCuePlayer::~SoundCuePlayer() {
  // The playback renders into the output: it goes first.
  playback_.reset();
  output_.reset();
}

void SoundCuePlayer::play(SoundCue cue) {
  if (!output_) {
    output_ = open_();
    playback_ = std::make_unique<Playback>(*output_);
  }
  const int rate = output_->sampleRate();
  const int channels = output_->channels();
  const std::vector<float> mono = SoundCues::synthesize(cue, rate);
  Playback::Source source;
  source.id = SoundCues::card(cue).name;
  source.samples.reserve(mono.size() * static_cast<std::size_t>(channels));
  for (float x : mono) source.samples.insert(source.samples.end(), static_cast<std::size_t>(channels), x);
  auto program = std::make_shared<Playback::Program>();
  program->sources.push_back(std::move(source));
  program->length = SoundCues::card(cue).seconds();
  program->sampleRate = rate;
  program->channels = channels;
  playback_->play(std::move(program));
}

}  // namespace tavorin
