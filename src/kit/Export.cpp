#include "kit/Export.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tavorin {

namespace {

std::string format(const char* pattern, auto... args) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, pattern, args...);
  return buffer;
}

}  // namespace

std::string ExportSize::frame() const { return std::to_string(width) + " × " + std::to_string(height); }

std::string Export::suffix(ExportFormat f) { return f == ExportFormat::gif ? "gif" : "mp4"; }
bool Export::carriesSound(ExportFormat f) { return f == ExportFormat::mp4; }
std::optional<int> Export::rateCeiling(ExportFormat f) {
  return f == ExportFormat::gif ? std::optional<int>(gifRateCeiling) : std::nullopt;
}
std::optional<int> Export::widthCeiling(ExportFormat f) {
  return f == ExportFormat::gif ? std::optional<int>(gifWidthCeiling) : std::nullopt;
}

std::string Export::title(ExportQuality q) {
  switch (q) {
    case ExportQuality::studio: return "Studio";
    case ExportQuality::balanced: return "Balanced";
    case ExportQuality::web: return "Web";
    case ExportQuality::small: return "Small";
  }
  return "Balanced";
}

int Export::crf(ExportQuality q) {
  switch (q) {
    case ExportQuality::studio: return 16;
    case ExportQuality::balanced: return 20;
    case ExportQuality::web: return 23;
    case ExportQuality::small: return 28;
  }
  return 20;
}

double Export::weight(ExportQuality q) {
  switch (q) {
    case ExportQuality::studio: return 1.48;
    case ExportQuality::balanced: return 1.0;
    case ExportQuality::web: return 0.7;
    case ExportQuality::small: return 0.43;
  }
  return 1.0;
}

std::string Export::title(ExportDestination d) {
  switch (d) {
    case ExportDestination::file: return "File";
    case ExportDestination::clipboard: return "Clipboard";
    case ExportDestination::youtube: return "YouTube";
  }
  return "File";
}

std::string Export::sentence(ExportQuality q) {
  switch (q) {
    case ExportQuality::studio: return "Near-lossless. The biggest file, for a master you will cut again.";
    case ExportQuality::balanced: return "Clean at a sensible size. What every export before this wrote.";
    case ExportQuality::web: return "Smaller, for sharing and the web; fine detail softens a little.";
    case ExportQuality::small: return "The smallest file, for a quick look. Text may blur in motion.";
  }
  return "";
}

std::string Export::act(ExportDestination d) {
  switch (d) {
    case ExportDestination::file: return "Export";
    case ExportDestination::clipboard: return "Copy";
    case ExportDestination::youtube: return "Upload";
  }
  return "Export";
}

int Export::even(double value) {
  if (!(value > 0)) return 0;
  return int(std::round(value / 2)) * 2;
}

ExportSize Export::size(const ExportTarget& target, double width, double height, double rate) {
  ExportSize out;
  out.format = target.effectiveFormat();
  const double fps = rate > 0.01 ? rate : 30;
  const int nativeW = even(width), nativeH = even(height);
  int h = nativeH;
  if (target.height && *target.height > 0) h = std::min(*target.height, nativeH);
  int w = nativeH > 0 ? std::max(even(double(nativeW) * h / nativeH), 2) : nativeW;
  if (auto ceiling = widthCeiling(out.format); ceiling && w > *ceiling) {
    h = std::max(even(double(h) * *ceiling / w), 2);
    w = *ceiling;
  }
  out.width = w;
  out.height = h;
  out.scaled = w != nativeW || h != nativeH;
  double chosen = fps;
  if (target.fps && *target.fps > 0) chosen = std::min(chosen, double(*target.fps));
  if (auto ceiling = rateCeiling(out.format)) chosen = std::min(chosen, double(*ceiling));
  out.fps = chosen;
  out.rated = chosen < fps - 0.001;
  return out;
}

const std::vector<ExportSizeChoice>& Export::sizes() {
  static const std::vector<ExportSizeChoice> table = {
      {"720", "720p", 720}, {"1080", "1080p", 1080}, {"2160", "4K", 2160}, {"native", "Native", std::nullopt}};
  return table;
}

std::string Export::sizeId(const ExportTarget& target) {
  if (!target.height) return std::string(nativeId);
  for (const auto& choice : sizes())
    if (choice.height == target.height) return choice.id;
  // A height outside the menu still names itself, so the choice is never lost.
  return std::to_string(*target.height);
}

std::string Export::sizeTitle(std::string_view id) {
  for (const auto& choice : sizes())
    if (choice.id == id) return choice.title;
  return std::string(id);
}

std::vector<ExportRateChoice> Export::rates(double native) {
  std::vector<ExportRateChoice> out = {{std::string(nativeId), format("Native (%.0f)", native), std::nullopt}};
  if (native - 0.001 > 30) out.push_back({"30", "30", 30});
  if (native - 0.001 > 24) out.push_back({"24", "24", 24});
  return out;
}

std::string Export::rateId(const ExportTarget& target) {
  return target.fps ? std::to_string(*target.fps) : std::string(nativeId);
}

std::optional<std::string> Export::scaleFilter(const ExportSize& size) {
  if (!size.scaled) return std::nullopt;
  return "scale=" + std::to_string(size.width) + ":" + std::to_string(size.height) + ":flags=lanczos";
}

std::optional<long long> Export::sizeBytes(const ExportSize& size, double seconds, ExportQuality quality) {
  if (size.width <= 0 || size.height <= 0 || !(size.fps > 0) || !(seconds > 0)) return std::nullopt;
  const double w = size.width, h = size.height;
  double bytes;
  if (size.format == ExportFormat::gif) {
    bytes = size.fps * (w * 0.026 * h) * seconds;
  } else {
    const double k = 0.03 * weight(quality);
    bytes = (seconds * 192000 + size.fps * (k * w * h) * seconds) * 0.125;
  }
  const long long rounded = std::llround(bytes);
  if (rounded < 1) return std::nullopt;
  return rounded;
}

double Export::estimateSeconds(double seconds, std::optional<double> pace) {
  const double factor = pace && *pace > 0 ? *pace : fallbackSpeed;
  return std::max(seconds, 0.0) * factor;
}

std::optional<Take> Export::pickTake(const std::vector<Take>& takes, const std::optional<std::string>& monitor,
                                     const std::function<bool(const Take&)>& hasFilm) {
  auto usable = [&](const Take& t) { return t.status == Take::Status::complete && hasFilm(t); };
  if (monitor)
    for (const auto& t : takes)
      if (t.id == *monitor && usable(t)) return t;
  const Take* newest = nullptr;
  for (const auto& t : takes)
    if (usable(t) && (!newest || t.startedAt > newest->startedAt)) newest = &t;
  if (newest) return *newest;
  return std::nullopt;
}

std::optional<std::string> Export::missingFootage(const Footing& f) {
  if (!f.open) return "no production is open";
  if (!f.anythingShotOrImported) return "nothing shot, imported or dropped yet — roll a take or drop a video in";
  if (f.take && !f.takeHasFilm) return "take " + f.take->id + " has metadata but no film on disk";
  if (!f.anyTakeHasFilm || !f.take) return "no take holds film to cut from";
  return std::nullopt;
}

std::optional<std::string> Export::canExport(const Footing& f, bool running, double filmLength,
                                             double timelineLength) {
  if (!f.open) return "no production is open";
  if (running) return "an export is already running";
  if (auto missing = missingFootage(f)) return missing;
  if (f.take && filmLength + 0.01 < timelineLength)
    return format("take %s gives %.2f s of film but the timeline runs %.2f s — shorten the timeline or roll a "
                  "longer take",
                  f.take->id.c_str(), filmLength, timelineLength);
  return std::nullopt;
}

std::optional<std::string> Export::destinationRefusal(ExportFormat format, ExportDestination destination) {
  if (format == ExportFormat::gif && destination == ExportDestination::youtube)
    return "YouTube takes no GIF. Choose MP4 to send this one up.";
  return std::nullopt;
}

std::optional<std::string> Export::heightRefusal(int height, int nativeHeight) {
  if (nativeHeight > 0 && height > nativeHeight)
    return "This film holds " + std::to_string(nativeHeight) + " lines of picture, so it stops there.";
  return std::nullopt;
}

}  // namespace tavorin
