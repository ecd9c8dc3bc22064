#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "kit/Recording.hpp"

namespace tavorin {

// Music beds: audio items that sit under the voice.
namespace Music {

inline constexpr double minGain = -60.0;
inline constexpr double maxGain = 6.0;
inline constexpr double defaultGain = -18.0;
inline constexpr double minLength = 0.1;

// A gain held to minGain through maxGain.
double gain(double db);
// The linear level of a gain. At or under the floor a bed is 0.001, never silent.
double amplitude(double db);

// The (in, out) marks of a bed held inside a file of `duration` seconds; a file
// that has length always keeps at least a tenth of a second.
std::pair<double, double> trim(double in, double out, double duration);

// The length a bed takes on the timeline: its out mark, else `duration`, else the
// item's own duration, less its in mark; never negative.
double length(const TimelineItem& item, std::optional<double> duration = std::nullopt);

// A new bed of `file` (relative to the production) at `at`, floored at 0.
TimelineItem item(std::string id, std::string file, double at, double duration);

// "m" and the first free number from 1 among the timeline's ids.
std::string nextId(const Recording& recording);

// The bed of that id, or nothing when there is none or the id is not a bed.
const TimelineItem* bed(const Recording& recording, std::string_view id);
const TimelineItem* label(const Recording& recording, std::string_view id);

// The name a copy takes in music/ when `name` is already there: the stem, "-",
// `unique`, and the extension.
std::string collisionName(std::string_view name, std::string_view unique);

// The sentence for a file whose length can't be measured.
std::string noLength(std::string_view name);
// The sentence for a copy into music/ that failed, with the system's words.
std::string wouldNotCopy(std::string_view name, std::string_view reason);

// The feed lines of the edits.
std::string addedEvent(std::string_view id, std::string_view name, double seconds, double at);
std::string trimmedEvent(std::string_view id, double in, double out);
std::string gainEvent(std::string_view id, double db);
std::string removedEvent(std::string_view id);

}  // namespace Music

}  // namespace tavorin
