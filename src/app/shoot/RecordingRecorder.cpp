#include "app/shoot/RecordingRecorder.hpp"

namespace tavorin {

void RecordingRecorder::post(std::string line) {
  actor_.post([this, alive = alive_, line = std::move(line)] {
    if (*alive && note) note(line);
  });
}

void RecordingRecorder::roll(const std::filesystem::path& to, const std::optional<CaptureConfig>& capture) {
  rolling_ = to;
  post("roll " + to.string());
  camera_.roll(to, capture);
  if (const auto why = camera_.silence()) post("the take is silent: " + *why);
}

FilmedSpan RecordingRecorder::cut() {
  try {
    const FilmedSpan span = camera_.cut();
    post("cut " + rolling_.string() + ": " + std::to_string(span.frames) + " frames, " + std::to_string(span.dropped) +
         " dropped");
    return span;
  } catch (const std::exception& e) {
    post("cut " + rolling_.string() + " failed: " + e.what());
    throw;
  }
}

}  // namespace tavorin
