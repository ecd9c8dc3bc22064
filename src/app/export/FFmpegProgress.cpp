#include "app/export/FFmpegProgress.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tavorin {

std::optional<double> FFmpegProgress::share(std::string_view line, double total) {
  static constexpr std::string_view key = "out_time_us=";
  if (!line.starts_with(key) || !(total > 0)) return std::nullopt;
  line.remove_prefix(key.size());
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
  long long us = 0;
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), us);
  if (error != std::errc() || end != line.data() + line.size()) return std::nullopt;
  return std::clamp(double(us) / 1'000'000 / total, 0.0, 1.0);
}

}  // namespace tavorin
