#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "kit/Blocking.hpp"
#include "kit/Recording.hpp"

namespace tavorin {

// A stage script compiled against a production into a flat list of timed events:
// what the runner walks, and what a dry run shows.
struct RunPlan {
  struct Event {
    int id = 0;          // the step's id
    double time = 0;     // seconds from the start of the run
    Blocking::Kind kind;
    std::string description;  // the cue's label
    int sourceLine = 0;
    bool operator==(const Event&) const = default;
  };

  std::vector<Event> events;
  double duration = 0;

  // Steps that cannot be read are left out; see `skipped`.
  static RunPlan make(std::string_view source, const Recording& rec);
  // The raw text of every unreadable step, in source order.
  static std::vector<std::string> skipped(std::string_view source);

  // Seconds an event keeps the stage busy: a wait or hold, or the glide of a move or scroll.
  static double occupied(const Blocking::Kind& kind);
  // Steps that are the author's own timing or no action at all; no pace is kept around them.
  static bool isPause(const Blocking::Kind& kind);

  bool operator==(const RunPlan&) const = default;
};

}  // namespace tavorin
