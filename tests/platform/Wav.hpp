#pragma once
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace tavorin::test {

// Writes interleaved float samples as a 32-bit float WAV, so that what a test
// reads back is exactly what it wrote. `claimFrames` lets a header promise more
// frames than follow, as a cut-off download would.
inline void writeWav(const std::filesystem::path& file, const std::vector<float>& samples, int rate, int channels,
                     std::int64_t claimFrames = -1) {
  const auto frames = claimFrames >= 0 ? std::uint32_t(claimFrames) : std::uint32_t(samples.size() / channels);
  const std::uint32_t dataBytes = frames * channels * 4;
  std::ofstream out(file, std::ios::binary);
  const auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  const auto u16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
  out.write("RIFF", 4);
  u32(36 + dataBytes);
  out.write("WAVEfmt ", 8);
  u32(16);
  u16(3);  // IEEE float
  u16(std::uint16_t(channels));
  u32(std::uint32_t(rate));
  u32(std::uint32_t(rate * channels * 4));
  u16(std::uint16_t(channels * 4));
  u16(32);
  out.write("data", 4);
  u32(dataBytes);
  out.write(reinterpret_cast<const char*>(samples.data()), std::streamsize(samples.size() * 4));
}

// A mono file of `seconds` holding one level throughout.
inline void writeLevel(const std::filesystem::path& file, double seconds, float level, int rate = 48000) {
  writeWav(file, std::vector<float>(std::size_t(seconds * rate), level), rate, 1);
}

}  // namespace tavorin::test
