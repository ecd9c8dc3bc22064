#include "platform/Peaks.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>

namespace tavorin {

namespace {

std::mutex cacheLock;
std::map<Peaks::Key, std::vector<float>>& cache() {
  static std::map<Peaks::Key, std::vector<float>> entries;
  return entries;
}

}  // namespace

Peaks::Key Peaks::key(const std::filesystem::path& path, int buckets, double from, std::optional<double> seconds) {
  std::error_code error;
  Key k;
  k.path = std::filesystem::absolute(path, error).lexically_normal().string();
  k.size = std::filesystem::file_size(path, error);
  if (error) k.size = 0;
  const auto modified = std::filesystem::last_write_time(path, error);
  k.modified = error ? 0 : std::chrono::duration_cast<std::chrono::nanoseconds>(modified.time_since_epoch()).count();
  k.buckets = buckets;
  k.from = std::max(from, 0.0);
  k.seconds = seconds ? std::max(*seconds, 0.0) : -1;
  return k;
}

std::vector<float> Peaks::peaks(const std::filesystem::path& path, int buckets, double from,
                                std::optional<double> seconds) {
  if (buckets <= 0) return {};
  const Key k = key(path, buckets, from, seconds);
  {
    std::lock_guard lock(cacheLock);
    if (auto hit = cache().find(k); hit != cache().end()) return hit->second;
  }

  // The span's frame count sets the slices before reading, so the walk needs one pass.
  const double span = seconds ? std::max(*seconds, 0.0) : std::max(AudioFile::duration(path) - k.from, 0.0);
  std::vector<float> out(buckets, 0.0f);
  std::uint64_t total = 0;
  std::size_t bucket = 0;
  std::uint64_t bucketEnd = 0;
  const auto endOf = [&](std::size_t b) { return (b + 1) * total / out.size(); };
  AudioFile::scan(path, k.from, seconds, [&](const float* frame, std::size_t count, std::uint64_t first, int rate) {
    if (total == 0) {
      // A file longer than its container said lands in the last slice.
      total = std::max<std::uint64_t>(std::llround(span * rate), 1);
      bucketEnd = endOf(0);
    }
    // A run of frames inside one slice at a time, so the inner loop is a plain maximum.
    std::size_t i = 0;
    while (i < count) {
      while (first + i >= bucketEnd && bucket + 1 < out.size()) bucketEnd = endOf(++bucket);
      const std::size_t stop =
          bucket + 1 < out.size() ? std::min<std::size_t>(count, bucketEnd - first) : count;
      float peak = out[bucket];
      for (; i < stop; ++i) peak = frame[i] > peak ? frame[i] : peak;
      out[bucket] = peak;
    }
  });
  std::lock_guard lock(cacheLock);
  cache()[k] = out;
  return out;
}

double Peaks::duration(const std::filesystem::path& path) { return AudioFile::duration(path); }

std::size_t Peaks::cached() {
  std::lock_guard lock(cacheLock);
  return cache().size();
}

}  // namespace tavorin
