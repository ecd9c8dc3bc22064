#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// Editing lines as text: split one in two, merge neighbours, pin lines to render
// together and unpin them. Each operation either changes the recording it is given
// and answers what it did, or answers nothing and leaves the recording alone.
namespace LineEdits {

struct Split {
  std::string head, tail;
  std::vector<std::string> moved;
  bool operator==(const Split&) const = default;
};

struct Merge {
  std::string kept;
  std::vector<std::string> gone, moved;
  bool operator==(const Merge&) const = default;
};

struct Pin {
  std::string name;
  std::vector<std::string> ids;
  bool operator==(const Pin&) const = default;
};

// The lines of `ids` in reading order, when they form one unbroken run of lines.
std::optional<std::vector<const TimelineItem*>> run(const Recording& recording, const std::vector<std::string>& ids);
// Every run of neighbouring lines sharing a `together`, in reading order.
std::vector<Pin> pins(const Recording& recording);
// Pins a run of two lines or more under the first line's id.
std::optional<Pin> together(Recording& recording, const std::vector<std::string>& ids);
// Unpins the lines that had a pin; answers their ids.
std::vector<std::string> alone(Recording& recording, const std::vector<std::string>& ids);
// Splits a line's text before the character `at`; the new line follows at the gap.
std::optional<Split> split(Recording& recording, std::string_view id, int at, std::optional<double> gap = std::nullopt);
// Joins a run of lines into its first one.
std::optional<Merge> merge(Recording& recording, const std::vector<std::string>& ids);

}  // namespace LineEdits

}  // namespace tavorin
