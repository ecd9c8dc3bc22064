#include "platform/OfflineAudioOutput.hpp"

namespace tavorin {

OfflineAudioOutput::OfflineAudioOutput(int sampleRate, int channels) : rate_(sampleRate), channels_(channels) {}

void OfflineAudioOutput::setRender(Render render) {
  std::lock_guard guard(lock_);
  render_ = std::move(render);
}

std::uint64_t OfflineAudioOutput::clock() const {
  std::lock_guard guard(lock_);
  return clock_;
}

std::vector<float> OfflineAudioOutput::pull(int frames) {
  std::vector<float> out(std::size_t(std::max(frames, 0)) * channels_, 0.0f);
  std::lock_guard guard(lock_);
  if (render_ && frames > 0) render_(out.data(), frames, clock_);
  clock_ += std::max(frames, 0);
  return out;
}

}  // namespace tavorin
