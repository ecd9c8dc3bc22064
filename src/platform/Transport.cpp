#include "platform/Transport.hpp"

#include <algorithm>
#include <cstdio>

#include "kit/Music.hpp"
#include "kit/Schedule.hpp"

namespace tavorin {

namespace {

std::string seconds2(double t) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.2fs", t);
  return buffer;
}

}  // namespace

Transport::Transport(AudioOutput& output, Loader loader)
    : output_(output), loader_(std::move(loader)), playback_(output) {}

void Transport::start(const PlaybackPlan& plan, const std::filesystem::path& base) {
  const std::uint64_t act = ++generation_;
  const int rate = output_.sampleRate();
  const int channels = output_.channels();
  std::weak_ptr<bool> alive = alive_;
  loader_([plan, base, rate, channels] { return Playback::load(base, plan, rate, channels); },
          [this, act, alive](Program program) {
            if (alive.expired() || act != generation_ || !program) return;
            missing_ = program->missing;
            try {
              playback_.play(std::move(program));
            } catch (const std::exception& e) {
              // No device to play through: the sentence stands where the transport reports.
              missing_ = {e.what()};
              state_ = State::stopped;
              playingId_.reset();
            }
          });
}

std::string Transport::play(const Recording& recording, const std::filesystem::path& base,
                            std::optional<double> from) {
  playback_.teardown();
  playingId_.reset();
  const auto plan = PlaybackPlan::make(recording, from.value_or(playhead_));
  skipped_ = plan.skipped;
  missing_.clear();
  length_ = plan.duration;
  playedFrom_ = plan.from;
  playhead_ = plan.from;
  playback_.seek(plan.from);  // the position until the program lands
  state_ = State::playing;
  start(plan, base);
  std::string event = "play from " + seconds2(plan.from);
  if (!skipped_.empty()) event += ", " + std::to_string(skipped_.size()) + " unrendered line(s) silent";
  return event;
}

std::string Transport::pause() {
  ++generation_;
  if (state_ == State::playing) playhead_ = playback_.isPlaying() ? playback_.currentTime() : playhead_;
  playback_.pause();
  playback_.teardown();
  playback_.seek(playhead_);
  state_ = playingId_ ? State::stopped : State::paused;
  playingId_.reset();
  return "paused at " + seconds2(playhead_);
}

std::string Transport::toggle(const Recording& recording, const std::filesystem::path& base) {
  return state_ == State::playing ? pause() : play(recording, base);
}

std::string Transport::stop() {
  ++generation_;
  const bool wasLine = playingId_.has_value();
  playback_.teardown();
  playingId_.reset();
  if (!wasLine && state_ != State::stopped) playhead_ = playedFrom_;
  playback_.seek(playhead_);
  state_ = State::stopped;
  return "stopped at " + seconds2(playhead_);
}

std::string Transport::seek(const Recording& recording, const std::filesystem::path& base, double to) {
  const double total = Schedule::totalLength(recording);
  const double target = total > 0 ? std::clamp(to, 0.0, total) : 0.0;
  if (state_ == State::playing && !playingId_) {
    const auto from = playedFrom_;
    play(recording, base, target);
    playedFrom_ = from;  // stop still returns to where the play began
  } else {
    playhead_ = target;
    playback_.seek(target);
  }
  return "playhead " + seconds2(target);
}

bool Transport::tick() {
  if (state_ != State::playing || !playback_.isPlaying()) return false;
  const double now = playback_.currentTime();
  if (playingId_) {
    if (playback_.ended()) stopLine();
    return true;
  }
  playhead_ = std::min(now, std::max(length_, playedFrom_));
  if (length_ - 0.001 <= now) stop();
  return true;
}

std::string Transport::playLine(const TimelineItem& line, const std::filesystem::path& base) {
  stop();
  const double rate = std::max(line.rate.value_or(1.0), PlaybackPlan::minRate);
  const double from = line.renderedFrom ? line.renderedFrom->startsAt() : 0.0;
  const auto plan = Playback::clip(*line.audio, rate, from, line.duration);
  playingId_ = line.id;
  state_ = State::playing;
  start(plan, base);
  return "play " + line.id + " from " + seconds2(from) + " in " + seconds2(plan.duration);
}

std::string Transport::previewBed(const TimelineItem& bed, const std::filesystem::path& base) {
  stop();
  const double duration = bed.duration.value_or(0);
  const auto [in, out] =
      duration > 0 ? Music::trim(bed.trimIn.value_or(0), bed.trimOut.value_or(duration), duration)
                   : std::pair<double, double>{0, 0};
  const auto plan = Playback::clip(*bed.file, 1, in, duration > 0 ? std::optional(out - in) : std::nullopt,
                                   Music::gain(bed.gain.value_or(Music::defaultGain)));
  playingId_ = bed.id;
  state_ = State::playing;
  start(plan, base);
  return "preview " + bed.id + " from " + seconds2(in) + " in " + seconds2(out - in);
}

std::string Transport::stopLine() {
  if (!playingId_) return "nothing playing alone";
  const std::string id = *playingId_;
  ++generation_;
  playback_.teardown();
  playback_.seek(playhead_);
  playingId_.reset();
  state_ = State::stopped;
  return "stopped " + id;
}

std::string Transport::stateName() const {
  switch (state_) {
    case State::stopped: return "stopped";
    case State::playing: return "playing";
    case State::paused: return "paused";
  }
  return "stopped";
}

}  // namespace tavorin
