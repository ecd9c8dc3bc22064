#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// The cut: which spans of a take's footage the film shows, in what order, at what speed.
// The footage file is never touched; these are pure functions on a Recording. A film
// with nothing cut reads as one segment over the whole footage.
namespace Cut {

inline constexpr double minRate = 0.1;
inline constexpr double maxRate = 8;
// The least footage a trimmed segment keeps, and the distance from a seam within which
// no split lands.
inline constexpr double minimum = 0.05;

// A segment with its place on the film's timeline; computed, never stored.
struct Placed {
  Segment segment;
  double start = 0;
  double end() const;
  bool operator==(const Placed&) const = default;
};

// Where a change happened on the film's timeline, and how far what follows moved
// (negative is left).
struct Change {
  double join = 0;
  double delta = 0;
  bool operator==(const Change&) const = default;
};

// The one clamp every stored rate is read through: missing is 1, then 0.1 through 8.
double rate(const Segment& segment);
// Seconds on the timeline: the footage shown divided by the rate.
double length(const Segment& segment);

std::optional<std::vector<Segment>> stored(const Recording& recording);
// The list in force: the stored one fitted to the footage, or one segment over all of it.
std::vector<Segment> segments(const Recording& recording, double footage);
std::vector<Placed> placed(const Recording& recording, double footage);
double length(const Recording& recording, double footage);
bool isCut(const Recording& recording, double footage);
// Footage time under film time `t`; missing for an empty list.
std::optional<double> sourceTime(double t, const std::vector<Placed>& placed);

// "s" and the first free number from 1 among the stored segments' ids, the
// timeline's ids and `avoiding`.
std::string nextId(const Recording& recording, const std::vector<std::string>& avoiding = {});

// Each returns missing, and leaves the recording as it was, when it cannot act.
std::optional<std::string> split(Recording& recording, double at, double footage);
std::optional<Change> remove(Recording& recording, std::string_view id, double footage);
std::optional<Change> trim(Recording& recording, std::string_view id, std::optional<double> from,
                           std::optional<double> to, double footage);
std::optional<Change> speed(Recording& recording, std::string_view id, double rate, double footage);
// Moves the lines (never labels, music or actions) and the zooms at or after `from`.
void slide(Recording& recording, double from, double by);
// Keeps a whole-take cut attached to a new take; answers the former end when it moved.
std::optional<double> refresh(Recording& recording, double footage, const std::string& take);

}  // namespace Cut

// Speed changes of sound, kept inside the range one atempo stage accepts.
namespace Atempo {
// The stages whose product is `rate`; nothing for a rate not above 0 or exactly 1.
std::vector<double> chain(double rate);
// "atempo=%.6f" stages joined by commas; missing when there are none.
std::optional<std::string> filter(double rate);
}  // namespace Atempo

}  // namespace tavorin
