#pragma once
#include <optional>
#include <string>

#include "kit/Recording.hpp"
#include "kit/RecordingStore.hpp"

namespace tavorin {

// One audio a line has had. Variants outlive every edit: a line only points at one.
struct Variant {
  int number = 0;  // the line's own running number, from 1, never given out twice
  std::string file;  // relative to the production's folder
  std::string text;
  std::optional<std::string> character;
  std::optional<std::string> voice;
  double seconds = 0;
  std::optional<double> offset;  // where the line's slice begins when lines share a file
  std::optional<std::string> group;
  std::optional<std::string> split;
  std::optional<bool> imported;
  std::optional<std::string> from;
  Clock::time_point made;

  // What the line's audio is now, as a variant; number 0 until the caller gives one.
  static Variant speaking(const TimelineItem& item, std::string file, Clock::time_point made);

  // Made from other words than the line says now.
  bool isOld(const TimelineItem& item) const;
  // The very audio the line plays: this file, and this slice of it.
  bool isLive(const TimelineItem& item) const;
  // The receipt a line gets when this variant becomes its audio; `pinned` is the voice
  // pinned on the line.
  RenderedFrom receipt(const std::optional<std::string>& pinned) const;

  bool operator==(const Variant&) const = default;
};

}  // namespace tavorin
