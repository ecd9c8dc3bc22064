#pragma once
#include "kit/TimelineGeometry.hpp"
#include "operator/JSONValue.hpp"

namespace tavorin {

// The timeline's blocks as the timeline verbs report them, from the same geometry the
// canvas draws with.
namespace TimelineReport {

// Every block: its id, type, lane, start and duration in seconds, its x and width in
// pixels (the lane fixes the rest of its rectangle), and what its lane draws of it (a line's words, a bed's file, a zoom's scale).
JSONValue items(const TimelineGeometry& geometry, const Recording& recording);

}  // namespace TimelineReport

}  // namespace tavorin
