#pragma once
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// Neighbouring lines spoken as one generation, and how a generation is named.
// Pure functions of a production; packing comes with the span setting.
namespace VoiceGroups {

inline constexpr std::string_view mark = "g:";
inline constexpr int packLimit = 6;
inline constexpr std::string_view joiner = " ";

using Predicate = std::function<bool(const TimelineItem&)>;
// Line id to the label of the cue it lies under.
using CueTags = std::map<std::string, std::string, std::less<>>;

// One generation: the lines rendered as one audio file.
struct Group {
  std::string hash;
  std::vector<std::string> lineIds;
  std::string text;
  std::optional<std::string> character;
  std::optional<std::string> voice;

  bool isAlone() const { return lineIds.size() == 1; }
  // The key under which the group waits in the render queue.
  std::string ticket() const { return std::string(mark) + hash; }
  std::string file(std::string_view salt = {}) const;
  bool operator==(const Group&) const = default;
};

bool isGroupTicket(std::string_view text);

// The production's lines packed into generations, in reading order, under its span.
// `cues` matters only to the span `cue`.
std::vector<Group> of(const Recording& recording, const CueTags& cues = {});

// The group holding the line, if any.
std::optional<Group> containing(std::string_view id, const Recording& recording, const CueTags& cues = {});

// The lines that meet `where` (all lines when empty), in reading order: by start,
// an unplaced line last; ties keep their place in the timeline.
std::vector<const TimelineItem*> ordered(const Recording& recording, const Predicate& where = {});

// The texts of the lines joined by `joiner`; a line with no text adds nothing.
std::string text(const std::vector<const TimelineItem*>& lines);

// Effective character, resolved voice and rate, joined by U+0001: lines that
// differ here cannot share a generation.
std::string castKey(const Recording& recording, const TimelineItem& item);

// The first ten hex digits of the MD5 of the lines' keys; anything that changes
// the speech of a generation changes it.
std::string hash(const Recording& recording, const std::vector<const TimelineItem*>& lines);

// The hash of the lines that landed as `group`, as they stand now.
std::string rehash(const Recording& recording, std::string_view group);

// The ids of those lines, in reading order.
std::vector<std::string> members(const Recording& recording, std::string_view group);

}  // namespace VoiceGroups

}  // namespace tavorin
