#pragma once
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"
#include "kit/Retime.hpp"

namespace tavorin {

// The timeline as lanes and rectangles in pixels, drawn by nobody here, so that the
// canvas, hit testing and the timeline verbs agree on one set of numbers.
class TimelineGeometry {
 public:
  enum class Lane { ruler, screen, zooms, actions, voice, music, labels };

  struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    // Half-open, so that blocks that touch never both hold a point.
    bool contains(double px, double py) const { return px >= x && px < x + width && py >= y && py < y + height; }
    bool intersects(const Rect& o) const {
      return x < o.x + o.width && o.x < x + width && y < o.y + o.height && o.y < y + height;
    }
    bool operator==(const Rect&) const = default;
  };

  struct Placement {
    std::string id;
    Lane lane = Lane::screen;
    Rect rect;
    float radius = 0;
    // What the block stands for, in seconds of the film: "segment", "zoom", "action",
    // "cue", "line", "music" or "label".
    std::string type;
    double start = 0;
    double duration = 0;
    bool operator==(const Placement&) const = default;
  };

  // A step of the stage script on the timeline, drawn in the actions lane.
  struct Mark {
    std::string id;
    double time = 0;
    std::string label;
  };

  // Pixels between one lane's block and the next.
  static constexpr double gap = 6;
  // How far, in pixels, a dragged item reaches for something to snap to.
  static constexpr double snapPixels = 7;

  double pxPerSecond = 0;
  double total = 0;
  std::vector<Lane> lanes;

  // `footage` is the selected take's length between its pads; 0 with no take.
  TimelineGeometry(const Recording& recording, double footage, double pxPerSecond, std::vector<Lane> lanes,
                   std::vector<Mark> marks = {});

  // All seven while the stage script is in play; otherwise all but actions.
  static std::vector<Lane> offered(bool scripting);
  static std::vector<Lane> hideable(bool scripting);
  // The offered lanes less the hidden ones; the ruler cannot be hidden.
  static std::vector<Lane> visible(bool scripting, const std::set<Lane>& hidden);
  static double blockHeight(Lane lane);
  static double step(Lane lane) { return blockHeight(lane) + gap; }
  static std::string name(Lane lane);
  // The lane's title on its rail, as a user reads it.
  static std::string title(Lane lane);
  static std::optional<Lane> parseLane(std::string_view text);

  double height() const;
  // Missing for a lane not shown.
  std::optional<double> top(Lane lane) const;
  // Missing for a y in a gap, above the lanes or below them.
  std::optional<Lane> lane(double y) const;

  // Every block, lane by lane, each lane's blocks in time order.
  const std::vector<Placement>& placements() const { return placements_; }
  std::vector<Placement> labelBlocks() const;
  // The blocks a selection box touches.
  std::vector<const Placement*> items(const Rect& box) const;
  // The block drawn on top at a point: a later block covers an earlier one.
  const Placement* hit(double x, double y) const;

  // Where an item dropped at `to` seconds lands, snapping within snapPixels when asked.
  Retime::Snap drop(const Recording& recording, std::string_view id, double to, bool snap) const;

 private:
  void place(const Recording& recording, double footage, const std::vector<Mark>& marks);
  void add(std::string id, const char* type, Lane lane, double start, double length, double leastWidth,
           float radius);

  std::vector<Placement> placements_;
};

}  // namespace tavorin
