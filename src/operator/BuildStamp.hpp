#pragma once
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "operator/JSONValue.hpp"

namespace tavorin {

// Tells a client from a source checkout that the studio answering it was built
// from older sources, which otherwise shows up as verbs that do not behave as the
// source says.
namespace BuildStamp {

using Clock = std::chrono::system_clock;
using TimePoint = Clock::time_point;

// One source file and when it last changed. `file` is relative to the checkout root.
struct Change {
  std::filesystem::path file;
  TimePoint modified;
  bool operator==(const Change&) const = default;
};

struct Verdict {
  enum class Kind { stale, current, unknown };
  Kind kind = Kind::unknown;
  // With `stale`: the newest change, and how many seconds the binary trails it;
  // `behind` is nothing when the binary's date is unknown.
  std::optional<Change> change;
  std::optional<double> behind;

  static Verdict stale(Change change, std::optional<double> behind) {
    return Verdict{Kind::stale, std::move(change), behind};
  }
  static Verdict current() { return Verdict{Kind::current, std::nullopt, std::nullopt}; }
  static Verdict unknown() { return Verdict{Kind::unknown, std::nullopt, std::nullopt}; }
  bool operator==(const Verdict&) const = default;
};

// The checkout a binary was built in: the nearest folder above the binary that is a
// CMake build folder (it holds CMakeCache.txt), whose parent holds the top
// CMakeLists.txt and src/. An installed binary has none. `exists` is the
// file-system test, passed in so the logic runs without a real tree.
std::optional<std::filesystem::path> checkoutRoot(
    const std::filesystem::path& binary,
    const std::function<bool(const std::filesystem::path&)>& exists =
        [](const std::filesystem::path& p) { return std::filesystem::exists(p); });

// The running program's own path, symlinks resolved.
std::filesystem::path currentExecutable();

// The latest modification among the root's CMakeLists.txt and every regular file
// under src/, hidden files and folders skipped. On a tie the first met stays.
// Nothing when there is no such file.
std::optional<Change> newestSourceChange(const std::filesystem::path& root);

// Nothing newer to compare: unknown. A known binary date no more than `tolerance`
// seconds older than the newest change: current. Otherwise stale.
Verdict verdict(std::optional<TimePoint> binaryModified, const std::optional<Change>& newest, double tolerance);

// The sentences a client prints instead of sending a verb to a stale studio.
std::string refusal(const Change& behind, std::optional<TimePoint> binaryModified, const std::filesystem::path& root,
                    TimePoint now = Clock::now());

// "HH:mm" for a date on `now`'s day in local time, else "d MMM HH:mm" with English
// month abbreviations.
std::string clock(TimePoint date, TimePoint now = Clock::now());

// An ISO 8601 UTC date as the studio reports it ("2024-05-01T09:30:00Z", fractions
// of a second allowed), or nothing for any other text.
std::optional<TimePoint> parseDate(std::string_view text);

// The studio's build date from its `status` report (`build.modified`), or nothing
// when it does not say.
std::optional<TimePoint> reportedBuildDate(const JSONValue& status);

// Verbs a stale studio still takes, so that it can be looked at and quit.
bool passesStaleBuild(std::string_view verb);

}  // namespace BuildStamp

}  // namespace tavorin
