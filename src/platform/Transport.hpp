#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/PlaybackPlan.hpp"
#include "kit/Recording.hpp"
#include "platform/Playback.hpp"

namespace tavorin {

// The transport of the open production: stopped, playing or paused, and the playhead
// as the output last reported it. Lives on the main actor; decoding runs wherever
// the loader sends it, and a load that arrives after a newer act is dropped.
class Transport {
 public:
  enum class State { stopped, playing, paused };
  using Program = std::shared_ptr<const Playback::Program>;
  // Builds the program of a plan (blocking work) and hands it to `done` on the main
  // actor. The model sends it to its worker pool; tests run it at once.
  using Loader = std::function<void(std::function<Program()> work, std::function<void(Program)> done)>;

  Transport(AudioOutput& output, Loader loader);

  // Stops what runs and plays from `from` (the playhead when not given). Returns the
  // feed line: "play from 3.00s", with the lines skipped for having no audio.
  std::string play(const Recording& recording, const std::filesystem::path& base,
                   std::optional<double> from = std::nullopt);
  // Holds the playhead where the output is now. Returns the feed line.
  std::string pause();
  // Plays when paused or stopped, pauses when playing.
  std::string toggle(const Recording& recording, const std::filesystem::path& base);
  // Stops and puts the playhead back where the play began.
  std::string stop();
  // Moves the playhead, held to 0 and the film's length; playing, plays on from there.
  std::string seek(const Recording& recording, const std::filesystem::path& base, double to);
  // What the surface's timer runs while playing: the playhead from the output, and a
  // stop at the film's end. True when something moved.
  bool tick();

  // One line's file alone, at its rate, from its slice; "play l1 from 0.00s in 2.10s".
  // The caller has refused a line with no audio.
  std::string playLine(const TimelineItem& line, const std::filesystem::path& base);
  // A bed's trimmed part alone, at its gain, stopping at the trim out.
  std::string previewBed(const TimelineItem& bed, const std::filesystem::path& base);
  // Ends a line or a preview; nothing when none plays.
  std::string stopLine();

  State state() const { return state_; }
  std::string stateName() const;
  double playhead() const { return playhead_; }
  void setPlayhead(double seconds) { playhead_ = std::max(seconds, 0.0); }
  double length() const { return length_; }
  const std::vector<std::string>& skipped() const { return skipped_; }
  const std::vector<std::string>& missing() const { return missing_; }
  // The line or bed playing alone, if any.
  const std::optional<std::string>& playingId() const { return playingId_; }
  Playback& playback() { return playback_; }

 private:
  void start(const PlaybackPlan& plan, const std::filesystem::path& base);

  AudioOutput& output_;
  Loader loader_;
  Playback playback_;
  State state_ = State::stopped;
  double playhead_ = 0;
  double playedFrom_ = 0;
  double length_ = 0;
  std::vector<std::string> skipped_;
  std::vector<std::string> missing_;
  std::optional<std::string> playingId_;
  std::uint64_t generation_ = 0;  // counts acts, so a late load knows it is stale
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tavorin
