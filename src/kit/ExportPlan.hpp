#pragma once
#include <optional>
#include <string>
#include <vector>

#include "kit/ExportTarget.hpp"
#include "kit/Look.hpp"
#include "kit/Recording.hpp"
#include "kit/Segment.hpp"
#include "kit/Subtitles.hpp"
#include "kit/Take.hpp"
#include "kit/Zoom.hpp"

namespace tavorin {

// Everything that goes into one film, flat and resolved, before any encoder runs.
struct ExportPlan {
  struct Piece {
    // A part of a generation's file: the line's own words inside a group's audio.
    struct Slice {
      double from = 0;
      double seconds = 0;
      // "atrim=start=..:end=..,asetpts=PTS-STARTPTS"
      std::string filter() const;
      bool operator==(const Slice&) const = default;
    };
    std::string id;
    std::string audio;
    double at = 0;
    double seconds = 0;
    double rate = 1;
    std::string text;
    std::optional<Slice> slice;
    bool operator==(const Piece&) const = default;
  };

  struct Bed {
    std::string id;
    std::string file;
    double at = 0;
    double trimIn = 0;
    double seconds = 0;
    double gainDb = 0;
    bool operator==(const Bed&) const = default;
  };

  std::string video;
  double trimHead = 0;
  double duration = 0;
  std::vector<Piece> pieces;
  std::vector<Bed> beds;
  std::vector<std::string> skipped;
  std::vector<Subtitles::Caption> captions;
  std::vector<Segment> cut;
  std::vector<Zoom> zooms;
  std::optional<Look> look;
  std::optional<ExportTarget> target;

  bool hasCut() const;
  bool hasZoom() const { return !zooms.empty(); }
  bool hasLook() const { return look.has_value(); }
  // The largest segment end, or the duration with no segments.
  double sourceEnd() const;

  static ExportPlan make(const Recording& recording, const Take& take);
  // The film's length as `make` gives it, without building the rest.
  static double runtime(const Recording& recording, const Take& take);
};

}  // namespace tavorin
