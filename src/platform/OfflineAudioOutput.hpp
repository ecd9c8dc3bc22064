#pragma once
#include <mutex>
#include <vector>

#include "platform/AudioOutput.hpp"

namespace tavorin {

// An output with no device: the caller pulls frames, and so moves the clock. Renders
// a mix into a buffer, and lets a test step time exactly.
class OfflineAudioOutput final : public AudioOutput {
 public:
  explicit OfflineAudioOutput(int sampleRate = 48000, int channels = 2);
  int sampleRate() const override { return rate_; }
  int channels() const override { return channels_; }
  void setRender(Render render) override;
  std::uint64_t clock() const override;

  // The next `frames` frames, interleaved.
  std::vector<float> pull(int frames);

 private:
  int rate_;
  int channels_;
  mutable std::mutex lock_;
  Render render_;
  std::uint64_t clock_ = 0;
};

}  // namespace tavorin
