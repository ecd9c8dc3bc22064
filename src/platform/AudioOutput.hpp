#pragma once
#include <cstdint>
#include <functional>

namespace tavorin {

// Where sound goes: a device that pulls interleaved float frames at its own pace
// and counts what it has taken. That count is the clock every position is read from.
class AudioOutput {
 public:
  // Fills `frames` interleaved frames; `first` is the clock's frame of the first of
  // them. Runs on the output's own thread and must not block.
  using Render = std::function<void(float* out, int frames, std::uint64_t first)>;

  virtual ~AudioOutput() = default;
  virtual int sampleRate() const = 0;
  virtual int channels() const = 0;
  // Replaces what renders; nothing (an empty function) renders silence. Once this
  // returns, the old function is never called again.
  virtual void setRender(Render render) = 0;
  // Frames the device has taken since it opened.
  virtual std::uint64_t clock() const = 0;
};

}  // namespace tavorin
