#pragma once
#include <optional>
#include <string>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// What the transport plays from a point of the timeline: every rendered line and
// every bed, each as a delay from the moment of starting and a span of its file.
struct PlaybackPlan {
  struct Cue {
    std::string id;
    double delay = 0;         // seconds from starting until the line begins
    double offsetInFile = 0;  // seconds into the file
    double rate = 1;
    double wallDuration = 0;  // seconds it takes to play; 0 with no known length
    std::string audio;        // path as stored, relative to the production
    std::optional<double> secondsInFile;  // the span of the file it plays, when known
    bool operator==(const Cue&) const = default;
  };
  struct Bed {
    std::string id;
    double delay = 0;
    double offsetInFile = 0;
    double wallDuration = 0;
    double gain = 0;  // decibels
    std::string file;
    bool operator==(const Bed&) const = default;
  };

  std::vector<Cue> cues;
  std::vector<Bed> beds;
  std::vector<std::string> skipped;  // lines with no audio, silent in this run
  double from = 0;
  double duration = 0;

  // The slowest a line plays; a stored rate under it is read as it.
  static constexpr double minRate = 0.1;

  static PlaybackPlan make(const Recording& recording, double start);
};

}  // namespace tavorin
