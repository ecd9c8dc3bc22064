#pragma once
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "kit/ScreenRecorder.hpp"

namespace tavorin {

// A camera that films nothing: it writes a stand-in file, notes each call, and fails
// where a test tells it to. Its calls come from the shoot's camera lane.
class FakeRecorder final : public ScreenRecorder {
 public:
  void roll(const std::filesystem::path& to, const std::optional<CaptureConfig>& capture) override {
    std::lock_guard guard(lock_);
    calls_.push_back("roll " + to.filename().string() + (capture && capture->app ? " " + *capture->app : ""));
    if (rollFailure) throw *rollFailure;
    std::ofstream(to) << "film";
    rolling_ = true;
  }
  FilmedSpan cut() override {
    std::lock_guard guard(lock_);
    calls_.push_back("cut");
    rolling_ = false;
    if (cutFailure) throw RecordError::writerFailed(*cutFailure);
    return span;
  }
  std::optional<std::string> failure() const override {
    std::lock_guard guard(lock_);
    return lost;
  }
  CameraVerdict check(const std::optional<CaptureConfig>&) const override {
    std::lock_guard guard(lock_);
    calls_.push_back("check");
    return verdict;
  }
  std::vector<std::string> calls() const {
    std::lock_guard guard(lock_);
    return calls_;
  }
  bool rolling() const {
    std::lock_guard guard(lock_);
    return rolling_;
  }

  std::optional<RecordError> rollFailure;
  std::optional<std::string> cutFailure;
  std::optional<std::string> lost;  // the picture lost mid-take
  FilmedSpan span;                  // what cut reports; seconds 0 leaves the clock to time it
  CameraVerdict verdict{CameraVerdict::Kind::proven, 0.04, std::nullopt};

 private:
  mutable std::mutex lock_;
  mutable std::vector<std::string> calls_;
  bool rolling_ = false;
};

}  // namespace tavorin
