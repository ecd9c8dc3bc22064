#pragma once
#include <filesystem>
#include <optional>

namespace tavorin {

// Questions put to an audio file of any coding, answered by decoding it.
namespace AudioFile {

// The length of the sound really in the file, by decoding it: a header that
// promises samples it lacks counts for nothing. Nothing when it will not decode.
std::optional<double> seconds(const std::filesystem::path& file);

// Whatever the coding (MP3, AAC, FLAC, Ogg...), a 16-bit little-endian PCM WAV of
// the same rate and channels. False when the file holds no sound it can decode;
// throws a sentence when the WAV cannot be written.
bool transcodeToWav(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace AudioFile

}  // namespace tavorin
