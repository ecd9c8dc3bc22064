#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/ExportTarget.hpp"
#include "kit/Take.hpp"

namespace tavorin {

// What an export target means for the picture in hand.
struct ExportSize {
  int width = 0;
  int height = 0;
  double fps = 30;
  bool scaled = false;  // the picture must be rescaled
  bool rated = false;   // the frame rate must be changed
  ExportFormat format = ExportFormat::mp4;

  // "W × H"
  std::string frame() const;
  long long pixels() const { return (long long)width * height; }
  bool operator==(const ExportSize&) const = default;
};

struct ExportSizeChoice {
  std::string id;
  std::string title;
  std::optional<int> height;
  bool operator==(const ExportSizeChoice&) const = default;
};

struct ExportRateChoice {
  std::string id;
  std::string title;
  std::optional<int> fps;
  bool operator==(const ExportRateChoice&) const = default;
};

// The choices of an export and what they mean, as pure functions.
namespace Export {

inline constexpr std::string_view nativeId = "native";
inline constexpr int gifRateCeiling = 15;
inline constexpr int gifWidthCeiling = 1280;
// Seconds of work per second of film when no export has been timed on this machine.
inline constexpr double fallbackSpeed = 4.0;

std::string suffix(ExportFormat format);
bool carriesSound(ExportFormat format);
std::optional<int> rateCeiling(ExportFormat format);
std::optional<int> widthCeiling(ExportFormat format);

std::string title(ExportQuality quality);
int crf(ExportQuality quality);
// The words under the quality's row: what the file is good for.
std::string sentence(ExportQuality quality);
double weight(ExportQuality quality);
std::string title(ExportDestination destination);
// The word on the button.
std::string act(ExportDestination destination);

// Halved, rounded and doubled, never below 0.
int even(double value);
ExportSize size(const ExportTarget& target, double width, double height, double rate);
const std::vector<ExportSizeChoice>& sizes();
std::string sizeId(const ExportTarget& target);
// The title of a size choice's id; an unknown id reads as itself.
std::string sizeTitle(std::string_view id);
std::vector<ExportRateChoice> rates(double native);
std::string rateId(const ExportTarget& target);
// "scale=W:H:flags=lanczos" when the picture must be rescaled.
std::optional<std::string> scaleFilter(const ExportSize& size);

// The file's likely size in bytes; nothing without a picture, a rate and a length.
std::optional<long long> sizeBytes(const ExportSize& size, double seconds, ExportQuality quality);
// Seconds an export of `seconds` of film should take: at the pace of the last one
// (work seconds per film second) or the fallback.
double estimateSeconds(double seconds, std::optional<double> pace);

// Which take an export uses: the one on the monitor when it is complete and holds film,
// otherwise the newest complete take with film. `hasFilm` says whether a take's file is on disk.
std::optional<Take> pickTake(const std::vector<Take>& takes, const std::optional<std::string>& monitor,
                             const std::function<bool(const Take&)>& hasFilm);

// What stands in the way of footage for an export, in the order a user fixes them.
struct Footing {
  bool open = false;
  bool anythingShotOrImported = false;  // takes, imports or dropped films
  std::optional<Take> take;              // the take the export would use
  bool takeHasFilm = false;
  bool anyTakeHasFilm = false;
};
std::optional<std::string> missingFootage(const Footing& footing);
// Adds the running export, and a film (the take through the cut) shorter than the timeline,
// to `missingFootage`.
std::optional<std::string> canExport(const Footing& footing, bool running, double filmLength, double timelineLength);

// "YouTube takes no GIF. ..." when the pair cannot go together.
std::optional<std::string> destinationRefusal(ExportFormat format, ExportDestination destination);
// "This film holds ..." when a height asks for more than the footage has.
std::optional<std::string> heightRefusal(int height, int nativeHeight);

}  // namespace Export
}  // namespace tavorin
