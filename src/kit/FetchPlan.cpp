#include "kit/FetchPlan.hpp"

#include <cmath>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "base/IsoDate.hpp"

namespace tavorin {

FetchError FetchError::notAURL(const std::string& text) { return FetchError("'" + text + "' doesn't look like a URL"); }
FetchError FetchError::launchFailed(const std::string& text) { return FetchError("couldn't start yt-dlp: " + text); }
FetchError FetchError::busy() { return FetchError("a fetch is already running"); }
FetchError FetchError::noYtDlp(const std::string& path) {
  return FetchError("yt-dlp isn't where Tavorin expects it (" + path +
                    "). Install it once: uv tool install yt-dlp — or apt install yt-dlp.");
}

namespace FetchPlan {

std::string clock(double seconds) {
  const double rounded = std::isfinite(seconds) ? std::max(std::round(seconds), 0.0) : 0.0;
  const long long s = static_cast<long long>(std::min(rounded, 1e12));
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%lld:%02lld:%02lld", s / 3600, (s / 60) % 60, s % 60);
  return buffer;
}

Plan plan(const std::string& url, const std::filesystem::path& folder, std::chrono::system_clock::time_point now,
          std::optional<double> start, std::optional<double> end) {
  if (url.rfind("http", 0) != 0) throw FetchError::notAURL(url);
  const std::string stamp = IsoDate::stamp(now);
  Plan p;
  p.output = folder / (stamp + ".mp3");
  p.arguments = {"--extract-audio", "--audio-format", "mp3", "--audio-quality", "0", "--no-playlist",
                 "--newline",       "-o",             (folder / (stamp + ".%(ext)s")).string()};
  if (start || end) {
    p.arguments.push_back("--download-sections");
    p.arguments.push_back("*" + clock(start.value_or(0)) + "-" + (end ? clock(*end) : ""));
    p.arguments.push_back("--force-keyframes-at-cuts");
  }
  p.arguments.push_back("--");
  p.arguments.push_back(url);
  return p;
}

std::optional<double> progress(std::string_view line) {
  const size_t percent = line.find('%');
  if (percent == std::string_view::npos || percent == 0) return std::nullopt;
  size_t begin = percent;
  while (begin > 0 && (std::isdigit(static_cast<unsigned char>(line[begin - 1])) || line[begin - 1] == '.')) --begin;
  if (begin == percent) return std::nullopt;
  const std::string number(line.substr(begin, percent - begin));
  char* stop = nullptr;
  const double value = std::strtod(number.c_str(), &stop);
  if (stop == number.c_str() || !std::isfinite(value)) return std::nullopt;
  return std::clamp(value / 100.0, 0.0, 1.0);
}

}  // namespace FetchPlan

}  // namespace tavorin
