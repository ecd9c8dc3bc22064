// A bed's waveform is read once per file and zoom; a long bed must not keep it blank.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/Peaks.hpp"

using namespace tavorin;

namespace {

// Ten minutes of 48 kHz 16-bit stereo, the common form of a music bed.
std::filesystem::path tenMinuteWav() {
  const auto file = std::filesystem::temp_directory_path() / "tavorin-peaks-bench.wav";
  const int rate = 48000;
  const std::uint32_t frames = 600u * rate;
  std::vector<std::int16_t> samples(std::size_t(frames) * 2);
  for (std::size_t i = 0; i < frames; ++i) {
    const auto v = std::int16_t(12000 * std::sin(i * 0.0314) * (1 + (i / rate) % 3) / 3);
    samples[2 * i] = v;
    samples[2 * i + 1] = std::int16_t(-v);
  }
  std::ofstream out(file, std::ios::binary);
  const auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  const auto u16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
  const std::uint32_t bytes = frames * 4;
  out.write("RIFF", 4);
  u32(36 + bytes);
  out.write("WAVEfmt ", 8);
  u32(16);
  u16(1);
  u16(2);
  u32(rate);
  u32(rate * 4);
  u16(4);
  u16(16);
  out.write("data", 4);
  u32(bytes);
  out.write(reinterpret_cast<const char*>(samples.data()), bytes);
  return file;
}

void BM_PeaksTenMinuteWav(benchmark::State& state) {
  const auto file = tenMinuteWav();
  int buckets = 2000;
  for (auto _ : state) {
    // A bucket count not asked before misses the cache, as a new zoom would.
    auto peaks = Peaks::peaks(file, buckets++);
    benchmark::DoNotOptimize(peaks);
  }
  std::filesystem::remove(file);
}
BENCHMARK(BM_PeaksTenMinuteWav)->Unit(benchmark::kMillisecond);

}  // namespace
