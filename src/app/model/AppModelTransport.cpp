// The transport of the open production: playing, pausing, seeking, and one line on
// its own. The output's clock moves the playhead; the model only reads it on a tick.
#include <chrono>
#include <cmath>
#include <cstdio>

#include "app/model/AppModel.hpp"

namespace tavorin {

namespace {

// Often enough for a playhead that looks continuous, seldom enough to cost nothing.
constexpr auto tickInterval = std::chrono::milliseconds(33);
// Film timecode counts frames at the rate screen recordings are made at.
constexpr int timecodeFps = 30;

}  // namespace

void AppModel::attachAudio(AudioOutput& output) {
  transport_ = std::make_unique<Transport>(output, [this](auto work, auto done) {
    auto program = std::make_shared<Transport::Program>();
    offloader_.offload([program, work = std::move(work)] { *program = work(); },
                       [program, done = std::move(done)](std::exception_ptr failed) {
                         // A load that failed whole (not one file) plays nothing.
                         done(failed ? nullptr : *program);
                       });
  });
}

void AppModel::requireTransport() {
  if (!stored_) throw Failure::noProduction();
  if (!transport_) throw Failure::cannotUse("There is no sound output to play through.");
}

bool AppModel::isPlaying() const { return transport_ && transport_->state() == Transport::State::playing; }

const std::vector<std::string>& AppModel::skippedLines() const {
  static const std::vector<std::string> none;
  return transport_ ? transport_->skipped() : none;
}

void AppModel::scheduleTick() {
  if (transportTick_) transportTick_->cancel();
  transportTick_.reset();
  if (!isPlaying()) return;
  transportTick_ = actor_.after(tickInterval, alive_.guard([this] { tickTransport(); }));
}

void AppModel::playTransport(std::optional<double> from) {
  requireTransport();
  transport_->setPlayhead(playhead_);
  note(transport_->play(audible(), *baseDir_, from));
  playhead_ = transport_->playhead();
  scheduleTick();
}

void AppModel::pauseTransport() {
  requireTransport();
  if (!isPlaying()) return;
  note(transport_->pause());
  playhead_ = transport_->playhead();
  scheduleTick();
}

void AppModel::stopTransport() {
  if (!transport_) return;
  if (transport_->state() == Transport::State::stopped && !transport_->playingId()) return;
  note(transport_->stop());
  playhead_ = transport_->playhead();
  scheduleTick();
}

void AppModel::togglePlay() {
  if (isPlaying()) pauseTransport();
  else playTransport();
}

void AppModel::seek(double to) {
  if (!stored_) throw Failure::noProduction();
  if (!std::isfinite(to)) throw Failure::badValue("to", std::to_string(to));
  if (!transport_) {
    const double total = Schedule::totalLength(*stored_);
    playhead_ = total > 0 ? std::clamp(to, 0.0, total) : 0.0;
    return;
  }
  transport_->setPlayhead(playhead_);
  transport_->seek(*stored_, *baseDir_, to);
  playhead_ = transport_->playhead();
  scheduleTick();
}

void AppModel::tickTransport() {
  if (!transport_) return;
  const bool wasPlaying = isPlaying();
  const bool alone = transport_->playingId().has_value();
  transport_->tick();
  if (!alone) playhead_ = transport_->playhead();
  if (wasPlaying && !isPlaying()) note(alone ? "finished playing alone" : "the film ended");
  scheduleTick();
}

void AppModel::playLine(const std::string& id) {
  requireTransport();
  const TimelineItem* line = stored_->item(id);
  if (!line || line->type != ItemType::line) throw Failure::noSuchLine(id);
  if (!line->audio || line->audio->empty()) throw Failure::notRendered(id);
  stopTransport();
  note(transport_->playLine(*line, *baseDir_));
  scheduleTick();
}

void AppModel::stopLine() {
  if (!transport_ || !transport_->playingId()) return;
  note(transport_->stopLine());
  scheduleTick();
}

void AppModel::setTimecodeFormat(const std::string& format) {
  if (format != "film" && format != "seconds") throw Failure::badChoice(format, "time format", "film, seconds");
  timecodeFormat_ = format;
  note("time counts as " + format);
}

std::string AppModel::timecode(double seconds) const {
  char text[64];
  seconds = std::max(seconds, 0.0);
  if (timecodeFormat_ == "film") {
    const auto frames = static_cast<long long>(std::floor(seconds * timecodeFps + 1e-6));
    const long long whole = frames / timecodeFps;
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60,
                  frames % timecodeFps);
  } else {
    std::snprintf(text, sizeof text, "%.2fs", seconds);
  }
  return text;
}

}  // namespace tavorin
