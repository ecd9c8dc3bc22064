#pragma once
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include "kit/Recording.hpp"

namespace tavorin {

// Why a take could not be filmed, in the words the user reads.
struct RecordError : std::runtime_error {
  enum class Kind { cameraBlocked, noSuchApp, noWindow, writerFailed, noPermission };
  RecordError(Kind kind, const std::string& what) : std::runtime_error(what), kind(kind) {}
  static RecordError cameraBlocked(const std::string& seen) { return {Kind::cameraBlocked, seen}; }
  static RecordError noSuchApp(const std::string& app) {
    return {Kind::noSuchApp, "Couldn't find '" + app + "' to film — is it running?"};
  }
  static RecordError noWindow(const std::string& app) {
    return {Kind::noWindow, "'" + app + "' is running but has no window open to film."};
  }
  static RecordError writerFailed(const std::string& why) { return {Kind::writerFailed, "The camera stopped: " + why}; }
  static RecordError noPermission() {
    return {Kind::noPermission,
            "Tavorin can't see the screen yet. Start it inside an X11 session (DISPLAY set and the X server "
            "letting it connect), then relaunch."};
  }
  Kind kind;
};

// What a few seconds of looking proved, before anything is written.
struct CameraVerdict {
  enum class Kind { proven, blocked, noAccess, noTarget };
  Kind kind = Kind::noTarget;
  double secondsToFirstFrame = 0;  // proven
  std::optional<std::string> seen;  // blocked: what was seen instead of frames
  static std::string name(Kind);
};

// What the recorder knows once the camera is cut.
struct FilmedSpan {
  double seconds = 0;      // last frame's time less the first's
  long long frames = 0;    // written to the file
  long long dropped = 0;   // lost to a busy writer or a late grab
};

// The camera. Both calls block (opening the display, waiting for the first frame,
// flushing the encoder), so the main actor makes them from its worker pool.
class ScreenRecorder {
 public:
  virtual ~ScreenRecorder() = default;
  // Starts filming into `to` and returns once the first frame is in; throws RecordError.
  virtual void roll(const std::filesystem::path& to, const std::optional<CaptureConfig>& capture) = 0;
  // Stops, finishes the file and says what was filmed; throws RecordError::writerFailed.
  virtual FilmedSpan cut() = 0;
  // The first failure while rolling (the window went away, the disk filled), if any.
  virtual std::optional<std::string> failure() const = 0;
  // Why the take rolling now has no sound although its capture asked for it, if so.
  virtual std::optional<std::string> silence() const { return std::nullopt; }
  // Looks, for a few seconds and writing nothing, at what a take of `capture` would film.
  virtual CameraVerdict check(const std::optional<CaptureConfig>& capture) const = 0;
};

}  // namespace tavorin
