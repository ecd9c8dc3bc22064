#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavorin {

// A file the decoder refuses. `what()` is "Can't read <name>: unsupported audio format."
struct UnreadableAudio : std::runtime_error {
  explicit UnreadableAudio(const std::string& name);
  std::string name;
};

// Decoding any format ffmpeg reads into floats.
namespace AudioFile {

struct Decoded {
  int sampleRate = 0;
  int channels = 0;            // of `samples`, interleaved
  std::vector<float> samples;  // frames × channels
  std::size_t frames() const { return channels ? samples.size() / channels : 0; }
};

// The span [from, from + seconds) of the first audio stream, as `channels`
// interleaved floats at the file's own rate. No `seconds` reads to the end.
Decoded decode(const std::filesystem::path& path, double from = 0,
               std::optional<double> seconds = std::nullopt, int channels = 2);

// The file's length in seconds from its container; 0 when it has none it can tell.
// Throws UnreadableAudio when no audio stream opens.
double duration(const std::filesystem::path& path);

// Walks the span's samples in the file's own layout: `visit(peaks, count, first, rate)`
// gets, for `count` frames from frame `first` of the span, the largest absolute
// value of each over its channels. Returns the stream's rate. Faster than decode for a long file, since nothing is converted.
int scan(const std::filesystem::path& path, double from, std::optional<double> seconds,
         const std::function<void(const float* peaks, std::size_t count, std::uint64_t first, int rate)>& visit);

}  // namespace AudioFile

}  // namespace tavorin
