#pragma once
#include <functional>
#include <memory>

#include "ui/MonitorFeed.hpp"

namespace tavorin {

class FrameDecoder;

// The window's feed: a decoder of the take's film on its own thread, and one OpenGL
// texture that takes each new frame on the main thread, only when one has arrived.
// Made, used and destroyed on the main thread with the window's GL context current.
class MonitorPicture final : public MonitorFeed {
 public:
  // `arrived` is called from the decoding thread when a new frame waits; it must be
  // safe to call from there and only wake the window.
  explicit MonitorPicture(std::function<void()> arrived);
  ~MonitorPicture() override;
  MonitorPicture(const MonitorPicture&) = delete;
  MonitorPicture& operator=(const MonitorPicture&) = delete;

  std::optional<Image> show(const std::filesystem::path& film, double seconds, int width, int height) override;
  void release() override;
  std::optional<std::string> failure() const override;

 private:
  struct Asked {
    double seconds = -1;
    int width = 0;
    int height = 0;
    bool operator==(const Asked&) const = default;
  };
  std::function<void()> arrived_;
  std::unique_ptr<FrameDecoder> decoder_;
  Asked asked_;
  unsigned texture_ = 0;
  int textureWidth_ = 0;
  int textureHeight_ = 0;
  bool holding_ = false;  // the texture holds a frame of this film
  int filmWidth_ = 0;
  int filmHeight_ = 0;
};

}  // namespace tavorin
