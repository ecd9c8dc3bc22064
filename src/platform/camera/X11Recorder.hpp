#pragma once
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kit/ScreenRecorder.hpp"

namespace tavorin {

// The camera on an X11 display: grabs a window (or the whole screen) through
// ffmpeg's x11grab input in process and writes H.264 into an MP4 as it goes. The
// grab and the encoder have a thread each with a few frames of slack between them,
// so a busy encoder loses a frame instead of stalling the grab.
class X11Recorder final : public ScreenRecorder {
 public:
  // The window that shows an application, by its name; throws RecordError
  // noSuchApp or noWindow. Without a finder, a named app cannot be filmed.
  using WindowFinder = std::function<unsigned long(const std::string& app)>;

  static constexpr int defaultFps = 24;
  static constexpr int queueDepth = 6;
  static constexpr std::chrono::milliseconds firstFrameWait{3000};

  // `display` as X names it (":0"); empty reads $DISPLAY.
  explicit X11Recorder(std::string display = {}, WindowFinder finder = {});
  ~X11Recorder() override;
  X11Recorder(const X11Recorder&) = delete;
  X11Recorder& operator=(const X11Recorder&) = delete;

  void roll(const std::filesystem::path& to, const std::optional<CaptureConfig>& capture) override;
  FilmedSpan cut() override;
  std::optional<std::string> failure() const override;
  std::optional<std::string> silence() const override { return silence_; }
  bool isRolling() const;

  // Looks at a window (none: the screen) until a frame arrives or `deadline` ends.
  // Nothing is written.
  CameraVerdict check(std::optional<unsigned long> window = std::nullopt,
                      std::chrono::milliseconds deadline = firstFrameWait) const;
  // The window of the capture's app, or the screen without one.
  CameraVerdict check(const std::optional<CaptureConfig>& capture) const override;

  const std::string& display() const { return display_; }

  // Why the display cannot be filmed (none to reach, a server that refuses its
  // pictures, a Wayland session without X access), or nothing when it can.
  static std::optional<std::string> screenRefusal(std::string display = {});

 private:
  struct Session;
  std::string display_;
  WindowFinder finder_;
  std::unique_ptr<Session> session_;
  std::optional<std::string> silence_;
};

}  // namespace tavorin
