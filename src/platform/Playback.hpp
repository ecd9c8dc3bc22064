#pragma once
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "kit/PlaybackPlan.hpp"
#include "platform/AudioOutput.hpp"

namespace tavorin {

// Plays a plan through an output: every cue and bed mixed in one render against one
// start frame, so nothing drifts by the time it took to start the others.
// Used from one thread (the main actor); the render touches only its own program.
class Playback {
 public:
  // The lead before the first sound, time enough to hand the program over.
  static constexpr double lead = 0.12;

  // One sound, already at the output's rate and its own speed.
  struct Source {
    std::string id;
    bool music = false;
    std::uint64_t at = 0;      // frames after the start frame
    std::vector<float> samples;  // interleaved at the output's channel count
    float gain = 1;
  };
  // What a plan sounds like, ready to play.
  struct Program {
    std::vector<Source> sources;
    std::vector<std::string> missing;  // files that could not be opened; left out
    double from = 0;
    double length = 0;
    int sampleRate = 48000;
    int channels = 2;
  };

  // Decodes and resamples everything the plan plays, with paths under `base`. It
  // blocks: run it off the main actor.
  static std::shared_ptr<const Program> load(const std::filesystem::path& base, const PlaybackPlan& plan,
                                             int sampleRate, int channels);
  // One file alone at `rate`, from `from` seconds into it for `seconds` (to its end
  // when not given): a line or a preview.
  static PlaybackPlan clip(const std::string& file, double rate, double from, std::optional<double> seconds,
                           std::optional<double> gain = std::nullopt);

  explicit Playback(AudioOutput& output);
  ~Playback();
  Playback(const Playback&) = delete;
  Playback& operator=(const Playback&) = delete;

  // Stops what runs and starts `program` one lead from now.
  void play(std::shared_ptr<const Program> program);
  // Holds the position; nothing sounds until the next play.
  void pause();
  // While not playing, moves where the next play is read from. A seek while playing
  // is a new program from that point.
  void seek(double to);
  // Silences everything and forgets the program.
  void teardown();

  double currentTime() const;
  bool isPlaying() const { return playing_; }
  // True once a playing program has run to its length.
  bool ended() const;
  double length() const { return length_; }
  const Program* program() const { return program_.get(); }

  void setMuteVoice(bool on) { state_->muteVoice.store(on); }
  void setMuteMusic(bool on) { state_->muteMusic.store(on); }
  bool muteVoice() const { return state_->muteVoice.load(); }
  bool muteMusic() const { return state_->muteMusic.load(); }

 private:
  // Shared with the render, which may outlive a swap by one callback.
  struct Lanes {
    std::atomic<bool> muteVoice{false};
    std::atomic<bool> muteMusic{false};
  };

  AudioOutput& output_;
  std::shared_ptr<Lanes> state_ = std::make_shared<Lanes>();
  std::shared_ptr<const Program> program_;
  bool playing_ = false;
  std::uint64_t anchor_ = 0;  // the output frame of the program's position 0
  double startedFrom_ = 0;
  double pausedAt_ = 0;
  double length_ = 0;
};

// Mixes `program` into `out` for the output frames [first, first + frames), with
// position 0 at output frame `anchor`. Adds to what is there.
void mixProgram(const Playback::Program& program, std::uint64_t anchor, float* out, int frames, std::uint64_t first,
                bool muteVoice, bool muteMusic);

}  // namespace tavorin
