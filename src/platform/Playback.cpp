#include "platform/Playback.hpp"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "kit/Music.hpp"
#include "platform/AudioFile.hpp"

namespace tavorin {

namespace {

// Resamples interleaved floats so that audio read at `inRate` lands at `outRate`;
// varispeed is an input rate scaled by the speed.
std::vector<float> resample(const std::vector<float>& in, int channels, double inRate, double outRate) {
  if (in.empty() || std::abs(inRate - outRate) < 1e-9) return in;
  const std::size_t inFrames = in.size() / channels;
  const auto outFrames = static_cast<std::size_t>(std::ceil(inFrames * outRate / inRate)) + 16;
  std::vector<float> out(outFrames * channels);
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  std::size_t done = 0;
  std::size_t made = 0;
  if (soxr_oneshot(inRate, outRate, channels, in.data(), inFrames, &done, out.data(), outFrames, &made, &io,
                   &quality, nullptr))
    throw std::runtime_error("resampling failed");
  out.resize(made * channels);
  return out;
}

std::uint64_t framesOf(double seconds, int rate) {
  return static_cast<std::uint64_t>(std::llround(std::max(seconds, 0.0) * rate));
}

}  // namespace

std::shared_ptr<const Playback::Program> Playback::load(const std::filesystem::path& base, const PlaybackPlan& plan,
                                                        int sampleRate, int channels) {
  auto program = std::make_shared<Program>();
  program->from = plan.from;
  program->length = plan.duration;
  program->sampleRate = sampleRate;
  program->channels = channels;

  const auto add = [&](Source source, const std::string& file, double offset, std::optional<double> seconds,
                       double speed, double wall) {
    try {
      const auto path = std::filesystem::path(file).is_absolute() ? std::filesystem::path(file) : base / file;
      auto decoded = AudioFile::decode(path, offset, seconds, channels);
      source.samples = resample(decoded.samples, channels, decoded.sampleRate * speed, sampleRate);
      // The plan's length wins over the resampler's rounding, so a slice ends on time.
      if (wall > 0) source.samples.resize(std::min(source.samples.size(), framesOf(wall, sampleRate) * channels));
      program->sources.push_back(std::move(source));
    } catch (const std::exception&) {
      program->missing.push_back(file);
    }
  };

  for (const auto& cue : plan.cues) {
    Source source;
    source.id = cue.id;
    source.at = framesOf(cue.delay, sampleRate);
    add(std::move(source), cue.audio, cue.offsetInFile, cue.secondsInFile, cue.rate, cue.wallDuration);
  }
  for (const auto& bed : plan.beds) {
    Source source;
    source.id = bed.id;
    source.music = true;
    source.at = framesOf(bed.delay, sampleRate);
    source.gain = static_cast<float>(Music::amplitude(bed.gain));
    add(std::move(source), bed.file, bed.offsetInFile, bed.wallDuration, 1.0, bed.wallDuration);
  }
  // A clip has no timeline to measure, so its sound is its length.
  for (const auto& source : program->sources)
    program->length = std::max(program->length, program->from + double(source.at + source.samples.size() / channels) /
                                                                    sampleRate);
  return program;
}

PlaybackPlan Playback::clip(const std::string& file, double rate, double from, std::optional<double> seconds,
                            std::optional<double> gain) {
  PlaybackPlan plan;
  rate = std::max(rate, PlaybackPlan::minRate);
  if (gain) {
    PlaybackPlan::Bed bed;
    bed.id = file;
    bed.file = file;
    bed.offsetInFile = std::max(from, 0.0);
    bed.wallDuration = seconds.value_or(0);
    bed.gain = *gain;
    plan.beds.push_back(bed);
  } else {
    PlaybackPlan::Cue cue;
    cue.id = file;
    cue.audio = file;
    cue.offsetInFile = std::max(from, 0.0);
    cue.rate = rate;
    cue.secondsInFile = seconds;
    cue.wallDuration = seconds ? *seconds / rate : 0;
    plan.cues.push_back(cue);
  }
  plan.duration = seconds ? *seconds / (gain ? 1.0 : rate) : 0;
  return plan;
}

void mixProgram(const Playback::Program& program, std::uint64_t anchor, float* out, int frames, std::uint64_t first,
                bool muteVoice, bool muteMusic) {
  const int channels = program.channels;
  const std::uint64_t end = first + frames;
  for (const auto& source : program.sources) {
    if (source.music ? muteMusic : muteVoice) continue;
    const std::uint64_t begin = anchor + source.at;
    const std::uint64_t finish = begin + source.samples.size() / channels;
    const std::uint64_t from = std::max(begin, first);
    const std::uint64_t to = std::min(finish, end);
    if (to <= from) continue;
    const float* in = source.samples.data() + (from - begin) * channels;
    float* target = out + (from - first) * channels;
    const std::size_t count = (to - from) * channels;
    for (std::size_t i = 0; i < count; ++i) target[i] += in[i] * source.gain;
  }
}

Playback::Playback(AudioOutput& output) : output_(output) {}

Playback::~Playback() { teardown(); }

void Playback::play(std::shared_ptr<const Program> program) {
  teardown();
  program_ = std::move(program);
  if (!program_) return;
  startedFrom_ = program_->from;
  pausedAt_ = program_->from;
  length_ = program_->length;
  anchor_ = output_.clock() + framesOf(lead, output_.sampleRate());
  playing_ = true;
  output_.setRender([program = program_, lanes = state_, anchor = anchor_](float* out, int frames,
                                                                           std::uint64_t first) {
    mixProgram(*program, anchor, out, frames, first, lanes->muteVoice.load(std::memory_order_relaxed),
               lanes->muteMusic.load(std::memory_order_relaxed));
  });
}

void Playback::pause() {
  if (!playing_) return;
  pausedAt_ = currentTime();
  output_.setRender(nullptr);
  playing_ = false;
}

void Playback::seek(double to) {
  if (!playing_) pausedAt_ = std::max(to, 0.0);
}

void Playback::teardown() {
  if (playing_) pausedAt_ = currentTime();
  output_.setRender(nullptr);
  playing_ = false;
  program_.reset();
}

double Playback::currentTime() const {
  if (!playing_) return pausedAt_;
  const std::uint64_t now = output_.clock();
  const double elapsed = now > anchor_ ? double(now - anchor_) / output_.sampleRate() : 0.0;
  return startedFrom_ + elapsed;
}

bool Playback::ended() const { return playing_ && length_ - 0.001 <= currentTime(); }

}  // namespace tavorin
