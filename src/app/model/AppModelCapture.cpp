// What a take films: the app, the frame rate, the computer's own sound.
#include "app/model/AppModel.hpp"

namespace tavorin {

void AppModel::setCapture(std::optional<bool> audio, std::optional<std::optional<std::string>> app) {
  requireEditable();
  Recording next = *stored_;
  CaptureConfig capture = next.capture.value_or(CaptureConfig{});
  if (audio) capture.audio = *audio ? std::optional<bool>(true) : std::nullopt;
  if (app) capture.app = *app && !(*app)->empty() ? *app : std::nullopt;
  next.capture = capture.isEmpty() ? std::nullopt : std::optional<CaptureConfig>(capture);
  if (next == *stored_) return;
  remember("the capture");
  setRecording(std::move(next));
  scheduleDraft();
  note("capture: " + (stored_->capture && stored_->capture->app ? *stored_->capture->app : std::string("the whole screen")) +
       (stored_->capture && stored_->capture->audio.value_or(false) ? ", with sound" : ", muted"));
}

}  // namespace tavorin
