#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavorin {

// Cutting a generation's audio back into one slice per line, at the pauses the
// speech itself holds. Pure: the log it reads comes from ffmpeg's silencedetect.
namespace VoiceSplit {

inline constexpr std::string_view fittedMark = "fitted";
inline constexpr std::string_view fallbackMark = "fallback";
inline constexpr double noiseFloor = -35.0;
inline constexpr double shortestPause = 0.05;
inline constexpr double rateBand = 0.4;
inline constexpr double edge = 0.01;
inline constexpr double sentenceWeight = 8.0;
inline constexpr double clauseWeight = 2.0;
inline constexpr double pauseWeight = 0.5;

struct Pause {
  double start = 0;
  double end = 0;
  double length() const { return end > start ? end - start : 0.0; }
  double middle() const { return (start + end) * 0.5; }
  bool operator==(const Pause&) const = default;
};

// Where a line's speech begins in the group's file, and how long it lasts.
struct Slice {
  std::string id;
  double offset = 0;
  double seconds = 0;
  bool operator==(const Slice&) const = default;
};

// Either slices with how they were found, or the reason no cut could be trusted.
struct Outcome {
  std::vector<Slice> sliced;
  std::string how;
  std::optional<std::string> refusal;

  static Outcome split(std::vector<Slice> slices, std::string how) { return {std::move(slices), std::move(how), {}}; }
  static Outcome refuse(std::string reason) { return {{}, {}, std::move(reason)}; }
  std::optional<std::vector<Slice>> slices() const {
    if (refusal) return std::nullopt;
    return sliced;
  }
  bool operator==(const Outcome&) const = default;
};

using Line = std::pair<std::string, std::string>;  // id, text

// The silences of a silencedetect log, less those touching the file's ends.
std::vector<Pause> pauses(std::string_view log, double duration);
// How long a text takes to say, in characters: sentence and clause marks weigh more.
double share(std::string_view text);
// The cut times the shares ask for: one fewer than the shares.
std::vector<double> expected(const std::vector<double>& shares, double duration);
// For each wanted time one pause, in order, at the least total cost; their middles.
std::vector<double> fitted(const std::vector<Pause>& pauses, const std::vector<double>& wanted);
Outcome slice(const std::vector<Line>& lines, double duration, const std::vector<Pause>& pauses);
Outcome measure(const std::vector<Line>& lines, const std::vector<double>& shares, double duration,
                const std::vector<double>& cuts);

}  // namespace VoiceSplit

}  // namespace tavorin
