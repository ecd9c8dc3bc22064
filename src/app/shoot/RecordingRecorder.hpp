#pragma once
#include <functional>
#include <memory>
#include <string>

#include "app/model/MainActor.hpp"
#include "kit/ScreenRecorder.hpp"

namespace tavorin {

// The camera as the production's feed sees it: each roll and cut is noted, with the
// film's path, and a take that asked for sound and cannot have it says so once.
// Calls come from the shoot's camera lane; the notes go to the actor.
class RecordingRecorder final : public ScreenRecorder {
 public:
  RecordingRecorder(ScreenRecorder& camera, MainActor& actor) : camera_(camera), actor_(actor) {}
  ~RecordingRecorder() override { *alive_ = false; }

  void roll(const std::filesystem::path& to, const std::optional<CaptureConfig>& capture) override;
  FilmedSpan cut() override;
  std::optional<std::string> failure() const override { return camera_.failure(); }
  std::optional<std::string> silence() const override { return camera_.silence(); }
  CameraVerdict check(const std::optional<CaptureConfig>& capture) const override { return camera_.check(capture); }

  // Set on the actor; called there with each line.
  std::function<void(const std::string&)> note;

 private:
  void post(std::string line);
  ScreenRecorder& camera_;
  MainActor& actor_;
  std::filesystem::path rolling_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tavorin
