#include "platform/SdlAudioOutput.hpp"

#include <SDL2/SDL.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace tavorin {

SdlAudioOutput::SdlAudioOutput(int sampleRate, int channels) : rate_(sampleRate), channels_(channels) {}

void SdlAudioOutput::open() {
  const int sampleRate = rate_;
  const int channels = channels_;
  if (SDL_InitSubSystem(SDL_INIT_AUDIO) != 0)
    throw std::runtime_error(std::string("No sound output could start: ") + SDL_GetError() + ".");
  SDL_AudioSpec want{};
  want.freq = sampleRate;
  want.format = AUDIO_F32SYS;
  want.channels = static_cast<Uint8>(channels);
  want.samples = 1024;
  want.callback = &SdlAudioOutput::callback;
  want.userdata = this;
  SDL_AudioSpec have{};
  device_ = SDL_OpenAudioDevice(nullptr, 0, &want, &have, 0);
  if (device_ == 0) {
    const std::string reason = SDL_GetError();
    SDL_QuitSubSystem(SDL_INIT_AUDIO);
    throw std::runtime_error("No sound output could open: " + reason + ".");
  }
  rate_ = have.freq;
  channels_ = have.channels;
  SDL_PauseAudioDevice(device_, 0);
}

SdlAudioOutput::~SdlAudioOutput() {
  if (device_ == 0) return;
  SDL_CloseAudioDevice(device_);
  SDL_QuitSubSystem(SDL_INIT_AUDIO);
}

void SdlAudioOutput::setRender(Render render) {
  if (device_ == 0) {
    if (!render) return;
    open();
  }
  // Swapped under the device's lock, so the callback sees the old or the new one whole.
  Render old;
  SDL_LockAudioDevice(device_);
  old = std::exchange(render_, std::move(render));
  SDL_UnlockAudioDevice(device_);
}

void SdlAudioOutput::callback(void* self, unsigned char* stream, int bytes) {
  auto* output = static_cast<SdlAudioOutput*>(self);
  std::memset(stream, 0, bytes);
  const int frames = bytes / int(sizeof(float) * output->channels_);
  const std::uint64_t first = output->clock_.load(std::memory_order_relaxed);
  if (output->render_) output->render_(reinterpret_cast<float*>(stream), frames, first);
  output->clock_.store(first + frames, std::memory_order_release);
}

}  // namespace tavorin
