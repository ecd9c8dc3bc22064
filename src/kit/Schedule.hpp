#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kit/Blocking.hpp"
#include "kit/Recording.hpp"

namespace tavorin {

// Where lines and the steps of a stage script fall in time, and the two rules that
// keep lines apart when an audio changes length. The mutating rules change nothing
// but `start` values of timeline items.
namespace Schedule {

// Largest drift, in seconds, at which a group's members still lie as one take.
inline constexpr double seam = 0.02;
// Seconds kept between a line and its follower when nobody names a gap.
inline constexpr double defaultGap = 0.25;
// A change smaller than this does not count; also the slack of "at or after".
inline constexpr double nudge = 0.0001;
// Neighbouring anchored steps closer than this land at the same moment.
inline constexpr double sameMoment = 0.05;

struct LineSpan {
  std::string id;
  double start = 0;
  double end = 0;
  bool operator==(const LineSpan&) const = default;
};

using SpanMap = std::unordered_map<std::string, LineSpan>;

// One step of the stage script placed in time.
struct Cue {
  int id = 0;  // the step's id
  double time = 0;
  std::string label;
  bool anchored = false;
  bool known = true;  // false only for an unknown step
  int sourceLine = 0;
  std::string raw;
  Blocking::Mark mark = Blocking::Mark::unknown;
  bool operator==(const Cue&) const = default;
};

// What a ripple did.
struct Reflow {
  std::string id;
  double delta = 0;  // to four decimals
  std::vector<std::string> moved;
  bool isEmpty() const { return moved.empty(); }
  bool operator==(const Reflow&) const = default;
};

// What a glue did.
struct Glue {
  std::string group;
  std::vector<std::string> closed;  // members pulled onto the take's seam
  double delta = 0;                 // to four decimals
  std::vector<std::string> moved;   // followers
  bool isEmpty() const { return closed.empty() && moved.empty(); }
  bool operator==(const Glue&) const = default;
};

// One member of a generation: its index in the timeline and its offset in the audio.
struct RunEntry {
  size_t index = 0;
  double offset = 0;
  bool operator==(const RunEntry&) const = default;
};

// Placed lines, sorted by start; lines at the same start keep their timeline order.
std::vector<LineSpan> lineSpans(const Recording& recording);

std::vector<Cue> cues(const std::vector<Blocking::Step>& steps, const Recording& recording);

// The short caption of a step on the timeline.
std::string label(const Blocking::Step& step);

// The end of the last placed item of any type; 0 when nothing is placed.
double totalLength(const Recording& recording);

// The anchor's edge plus its offset, or the cursor when the anchor names no span.
double resolve(const std::optional<Anchor>& anchor, const SpanMap& spans, double cursor);

// The latest end among the placed lines named; absent when none has a length.
std::optional<double> end(const std::vector<std::string>& of, const Recording& recording);

// Moves the lines that follow `changed` in the timeline after its audio changed
// length. With `from` (the previous length) they move by the difference; without
// it the whole tail is placed at the gap behind the line.
Reflow ripple(Recording& recording, std::string_view changed, std::optional<double> from = std::nullopt,
              std::optional<double> gap = std::nullopt);

// The members that exist as one take, by offset into the audio, then by index.
std::vector<RunEntry> run(const Recording& recording, const std::vector<std::string>& members);

// Closes a generation group up onto its true offsets and moves what lies behind it.
Glue glue(Recording& recording, std::string_view group);
Glue glue(Recording& recording, std::string_view group, const std::vector<std::string>& members,
          std::optional<double> from, std::optional<double> gap = std::nullopt);

bool isContiguous(const Recording& recording, std::string_view group);

// Sixteen hex digits that change whenever what the script does in time changes.
std::string digest(std::string_view source, const Recording& recording);

// Shortest round-trip decimal with at least one digit after the point ("2.0", "0.125").
std::string plainDecimal(double value);

// Rounded to hundredths, halves away from zero: how the system writes a start.
double hundredths(double value);

}  // namespace Schedule

}  // namespace tavorin
