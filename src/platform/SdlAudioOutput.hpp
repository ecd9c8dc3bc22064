#pragma once
#include <atomic>
#include <memory>
#include <mutex>

#include "platform/AudioOutput.hpp"

namespace tavorin {

// The desktop's sound device through SDL2 audio. Opens on the first sound, not at
// launch, so a studio that never plays holds no device and says nothing about one;
// from then it runs until destroyed, rendering silence while nothing plays, so that
// the clock never stops and every start can be placed against it.
class SdlAudioOutput final : public AudioOutput {
 public:
  explicit SdlAudioOutput(int sampleRate = 48000, int channels = 2);
  ~SdlAudioOutput() override;
  SdlAudioOutput(const SdlAudioOutput&) = delete;
  SdlAudioOutput& operator=(const SdlAudioOutput&) = delete;

  int sampleRate() const override { return rate_; }
  int channels() const override { return channels_; }
  void setRender(Render render) override;
  std::uint64_t clock() const override { return clock_.load(std::memory_order_acquire); }

 private:
  static void callback(void* self, unsigned char* stream, int bytes);
  // Throws a sentence when no device opens.
  void open();

  std::uint32_t device_ = 0;
  int rate_ = 0;
  int channels_ = 0;
  Render render_;
  std::atomic<std::uint64_t> clock_{0};
};

}  // namespace tavorin
