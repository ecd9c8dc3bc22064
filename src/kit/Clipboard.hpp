#pragma once
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// Timeline items and zooms as they travel through the pasteboard, and their landing
// in a production.
namespace Clipboard {

inline constexpr std::string_view pasteboardType = "com.nerrick.tavorin.timeline-items";

struct Cargo {
  std::vector<TimelineItem> items;
  std::vector<Zoom> zooms;
  bool operator==(const Cargo&) const = default;
};

// Pretty-printed JSON with sorted keys. Cargo without zooms is written as a bare
// array of items, the form a person or an agent most easily writes by hand.
std::string encode(const std::vector<TimelineItem>& items);
std::string encode(const Cargo& cargo);

// Reads a cargo object, else an array of items, else a single item; anything else,
// including text that is no JSON, gives nothing.
std::optional<Cargo> cargo(std::string_view text);
std::optional<std::vector<TimelineItem>> decode(std::string_view text);

// The id itself if free; else the id and the first free letter a-z; else the id,
// "-" and the first free number from 2.
std::string freeId(std::string_view like, const std::set<std::string>& taken);

// Places copied items at `at`, keeping their spacing: fresh ids that never collide
// with the production or with each other, and lines without audio, since a pasted
// line has not been rendered.
std::vector<TimelineItem> rehome(std::vector<TimelineItem> items, const Recording& into, double at);

// Places copied zooms at `at`, keeping their spacing and lengths where there is room;
// a zoom that finds none is dropped.
std::vector<Zoom> rehome(std::vector<Zoom> zooms, const Recording& into, double at);

}  // namespace Clipboard
}  // namespace tavorin
