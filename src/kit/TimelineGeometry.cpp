#include "kit/TimelineGeometry.hpp"

#include <algorithm>
#include <array>

#include "kit/Cut.hpp"
#include "kit/Schedule.hpp"

namespace tavorin {

using Lane = TimelineGeometry::Lane;

namespace {

constexpr std::array<Lane, 7> allLanes{Lane::ruler, Lane::screen, Lane::zooms, Lane::actions,
                                       Lane::voice, Lane::music,  Lane::labels};

// A label's block grows with its words, about one monospace cell a character.
double labelWidth(const std::string& text) {
  std::size_t characters = 0;
  for (unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++characters;
  return std::max(16.0, 10 + 6.5 * static_cast<double>(characters));
}

}  // namespace

std::vector<Lane> TimelineGeometry::offered(bool scripting) {
  std::vector<Lane> out;
  for (Lane l : allLanes)
    if (scripting || l != Lane::actions) out.push_back(l);
  return out;
}

std::vector<Lane> TimelineGeometry::hideable(bool scripting) {
  auto out = offered(scripting);
  std::erase(out, Lane::ruler);
  return out;
}

std::vector<Lane> TimelineGeometry::visible(bool scripting, const std::set<Lane>& hidden) {
  auto out = offered(scripting);
  std::erase_if(out, [&](Lane l) { return l != Lane::ruler && hidden.count(l); });
  return out;
}

double TimelineGeometry::blockHeight(Lane lane) {
  switch (lane) {
    case Lane::ruler: return 24;
    case Lane::screen: return 48;
    case Lane::zooms: return 30;
    case Lane::actions: return 30;
    case Lane::voice: return 48;
    case Lane::music: return 48;
    case Lane::labels: return 18;
  }
  return 0;
}

std::string TimelineGeometry::title(Lane lane) {
  switch (lane) {
    case Lane::ruler: return "Time";
    case Lane::screen: return "Video";
    case Lane::zooms: return "Zooms";
    case Lane::actions: return "Actions";
    case Lane::voice: return "Audio";
    case Lane::music: return "Music";
    case Lane::labels: return "Labels";
  }
  return "";
}

std::string TimelineGeometry::name(Lane lane) {
  switch (lane) {
    case Lane::ruler: return "ruler";
    case Lane::screen: return "screen";
    case Lane::zooms: return "zooms";
    case Lane::actions: return "actions";
    case Lane::voice: return "voice";
    case Lane::music: return "music";
    case Lane::labels: return "labels";
  }
  return "";
}

std::optional<Lane> TimelineGeometry::parseLane(std::string_view text) {
  for (Lane l : allLanes)
    if (name(l) == text) return l;
  return std::nullopt;
}

TimelineGeometry::TimelineGeometry(const Recording& recording, double footage, double pxPerSecond,
                                   std::vector<Lane> lanes, std::vector<Mark> marks)
    : pxPerSecond(pxPerSecond), lanes(std::move(lanes)) {
  place(recording, footage, marks);
}

double TimelineGeometry::height() const {
  double h = 0;
  for (Lane l : lanes) h += step(l);
  return h;
}

std::optional<double> TimelineGeometry::top(Lane lane) const {
  double y = 0;
  for (Lane l : lanes) {
    if (l == lane) return y;
    y += step(l);
  }
  return std::nullopt;
}

std::optional<Lane> TimelineGeometry::lane(double y) const {
  double top = 0;
  for (Lane l : lanes) {
    if (y >= top && y < top + blockHeight(l)) return l;
    top += step(l);
  }
  return std::nullopt;
}

void TimelineGeometry::add(std::string id, const char* type, Lane lane, double start, double length,
                           double leastWidth, float radius) {
  auto laneTop = top(lane);
  if (!laneTop) return;
  double y = *laneTop, h = blockHeight(lane);
  switch (lane) {
    case Lane::screen: y += 2; break;
    case Lane::zooms: y += 3; break;
    case Lane::actions:
      y += 5;
      h = 20;
      break;
    default: break;
  }
  // Two pixels short, so that neighbours show a seam.
  const double width = std::max(length * pxPerSecond - 2, leastWidth);
  placements_.push_back(
      Placement{std::move(id), lane, Rect{start * pxPerSecond, y, width, h}, radius, type, start, length});
}

void TimelineGeometry::place(const Recording& recording, double footage, const std::vector<Mark>& marks) {
  total = 0;
  auto reach = [&](double end) { total = std::max(total, end); };

  for (const auto& p : Cut::placed(recording, footage)) {
    add(p.segment.id, "segment", Lane::screen, p.start, Cut::length(p.segment), 6, 6);
    reach(p.end());
  }
  if (recording.zooms) {
    std::vector<const Zoom*> zooms;
    for (const auto& z : *recording.zooms) zooms.push_back(&z);
    std::stable_sort(zooms.begin(), zooms.end(), [](auto* a, auto* b) { return a->from < b->from; });
    for (const Zoom* z : zooms) {
      add(z->id, "zoom", Lane::zooms, z->from, std::max(z->to - z->from, 0.0), 8, 8);
      reach(z->to);
    }
  }

  std::vector<const TimelineItem*> actions, music, labels;
  for (const auto& item : recording.timeline) {
    if (!item.start) continue;
    if (item.type == ItemType::action) actions.push_back(&item);
    if (item.type == ItemType::audio) music.push_back(&item);
    if (item.type == ItemType::label) labels.push_back(&item);
  }
  auto byStart = [](const TimelineItem* a, const TimelineItem* b) { return *a->start < *b->start; };

  // An action is a mark: a pip of 20 pixels, longer when it holds.
  std::stable_sort(actions.begin(), actions.end(), byStart);
  for (const auto* a : actions) {
    add(a->id, "action", Lane::actions, *a->start, a->effectiveDuration().value_or(0), 20, 10);
    reach(*a->start + a->effectiveDuration().value_or(0));
  }
  for (const auto& m : marks) {
    add(m.id, "cue", Lane::actions, m.time, 0, 20, 10);
    reach(m.time);
  }

  for (const auto& span : Schedule::lineSpans(recording)) {
    add(span.id, "line", Lane::voice, span.start, span.end - span.start, 6, 6);
    reach(span.end);
  }

  std::stable_sort(music.begin(), music.end(), byStart);
  for (const auto* m : music) {
    const double length = m->effectiveDuration().value_or(0);
    add(m->id, "music", Lane::music, *m->start, length, 8, 8);
    reach(*m->start + length);
  }

  std::stable_sort(labels.begin(), labels.end(), byStart);
  for (const auto* l : labels) {
    add(l->id, "label", Lane::labels, *l->start, 0, labelWidth(l->text.value_or(l->note.value_or(""))), 4);
    reach(*l->start);
  }
}

std::vector<TimelineGeometry::Placement> TimelineGeometry::labelBlocks() const {
  std::vector<Placement> out;
  for (const auto& p : placements_)
    if (p.lane == Lane::labels) out.push_back(p);
  return out;
}

std::vector<const TimelineGeometry::Placement*> TimelineGeometry::items(const Rect& box) const {
  std::vector<const Placement*> out;
  for (const auto& p : placements_)
    if (p.rect.intersects(box)) out.push_back(&p);
  return out;
}

const TimelineGeometry::Placement* TimelineGeometry::hit(double x, double y) const {
  // By the blocks themselves, not the lane bands: an inset block reaches into the gap below its lane.
  for (auto it = placements_.rbegin(); it != placements_.rend(); ++it)
    if (it->rect.contains(x, y)) return &*it;
  return nullptr;
}

Retime::Snap TimelineGeometry::drop(const Recording& recording, std::string_view id, double to, bool snap) const {
  const double window = snap ? Retime::snapWindow(pxPerSecond, snapPixels) : 0;
  return Retime::snap(recording, id, to, window);
}

}  // namespace tavorin
