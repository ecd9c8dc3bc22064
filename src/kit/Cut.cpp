#include "kit/Cut.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "kit/Zooms.hpp"

namespace tavorin {

namespace {

double roundTo(double v, double scale) { return std::round(v * scale) / scale; }

std::vector<Segment> unplace(const std::vector<Cut::Placed>& placed) {
  std::vector<Segment> out;
  out.reserve(placed.size());
  for (const auto& p : placed) out.push_back(p.segment);
  return out;
}

const Cut::Placed* find(const std::vector<Cut::Placed>& placed, std::string_view id) {
  for (const auto& p : placed)
    if (p.segment.id == id) return &p;
  return nullptr;
}

// Stores the list with one segment replaced and slides what follows by the change of its length.
Cut::Change replace(Recording& recording, const std::vector<Cut::Placed>& placed, const Cut::Placed& old,
                    const Segment& changed) {
  auto list = unplace(placed);
  for (auto& s : list)
    if (s.id == old.segment.id) s = changed;
  recording.segments = std::move(list);
  const double oldEnd = old.end();
  const double newEnd = old.start + Cut::length(changed);
  Cut::Change change{std::min(oldEnd, newEnd), newEnd - oldEnd};
  Cut::slide(recording, change.join, change.delta);
  return change;
}

}  // namespace

double Cut::Placed::end() const { return start + Cut::length(segment); }

double Cut::rate(const Segment& segment) { return std::clamp(segment.rate.value_or(1.0), minRate, maxRate); }

double Cut::length(const Segment& segment) { return std::max(segment.to - segment.from, 0.0) / rate(segment); }

std::optional<std::vector<Segment>> Cut::stored(const Recording& recording) {
  if (!recording.segments || recording.segments->empty()) return std::nullopt;
  return recording.segments;
}

std::vector<Segment> Cut::segments(const Recording& recording, double footage) {
  auto list = stored(recording);
  if (!list) return {Segment{"s1", std::nullopt, 0, footage, std::nullopt}};
  if (!(footage > 0)) return *list;
  // A cut written against a longer take shows less; the stored list is kept, so a
  // longer take brings the film back.
  std::vector<Segment> fitted;
  fitted.reserve(list->size());
  for (Segment s : *list) {
    s.from = std::min(std::max(s.from, 0.0), footage);
    s.to = std::min(std::max(s.to, s.from), footage);
    if (s.to > s.from) fitted.push_back(std::move(s));
  }
  return fitted;
}

std::vector<Cut::Placed> Cut::placed(const Recording& recording, double footage) {
  std::vector<Placed> out;
  double start = 0;
  for (auto& s : segments(recording, footage)) {
    const double l = length(s);
    out.push_back(Placed{std::move(s), start});
    start += l;
  }
  return out;
}

double Cut::length(const Recording& recording, double footage) {
  auto list = placed(recording, footage);
  return list.empty() ? 0 : list.back().end();
}

bool Cut::isCut(const Recording& recording, double footage) {
  auto list = stored(recording);
  if (!list) return false;
  if (list->size() > 1) return true;
  const Segment& s = list->front();
  return s.from > 0.001 || (footage > 0 && s.to < footage - 0.001) || rate(s) != 1;
}

std::optional<double> Cut::sourceTime(double t, const std::vector<Placed>& placed) {
  if (placed.empty()) return std::nullopt;
  if (t <= placed.front().start) return placed.front().segment.from;
  for (const auto& p : placed)
    if (t < p.end()) return p.segment.from + std::max(t - p.start, 0.0) * rate(p.segment);
  return placed.back().segment.to;
}

std::string Cut::nextId(const Recording& recording, const std::vector<std::string>& avoiding) {
  auto taken = recording.itemIds();
  if (recording.segments)
    for (const auto& segment : *recording.segments) taken.insert(segment.id);
  taken.insert(avoiding.begin(), avoiding.end());
  for (int n = 1;; ++n) {
    std::string id = "s" + std::to_string(n);
    if (!taken.count(id)) return id;
  }
}

std::optional<std::string> Cut::split(Recording& recording, double at, double footage) {
  const auto list = placed(recording, footage);
  auto hit = std::find_if(list.begin(), list.end(), [&](const Placed& p) {
    return p.start + minimum < at && at < p.end() - minimum;
  });
  if (hit == list.end()) return std::nullopt;
  const double s = hit->segment.from + rate(hit->segment) * (at - hit->start);

  std::vector<Segment> segments = unplace(list);
  std::vector<std::string> ids;
  for (const auto& seg : segments) ids.push_back(seg.id);
  const std::string id = nextId(recording, ids);

  const auto index = static_cast<std::size_t>(hit - list.begin());
  Segment after = segments[index];
  after.id = id;
  after.from = s;
  segments[index].to = s;
  segments.insert(segments.begin() + static_cast<std::ptrdiff_t>(index) + 1, std::move(after));
  recording.segments = std::move(segments);
  return id;
}

std::optional<Cut::Change> Cut::remove(Recording& recording, std::string_view id, double footage) {
  const auto list = placed(recording, footage);
  if (list.size() < 2) return std::nullopt;
  const Placed* gone = find(list, id);
  if (!gone) return std::nullopt;
  std::vector<Segment> kept;
  for (const auto& p : list)
    if (&p != gone) kept.push_back(p.segment);
  recording.segments = std::move(kept);
  Change change{gone->start, -length(gone->segment)};
  slide(recording, change.join, change.delta);
  return change;
}

std::optional<Cut::Change> Cut::trim(Recording& recording, std::string_view id, std::optional<double> from,
                                     std::optional<double> to, double footage) {
  const auto list = placed(recording, footage);
  const Placed* old = find(list, id);
  if (!old) return std::nullopt;
  const Segment& seg = old->segment;
  const double upper = footage > 0 ? footage : std::max(seg.to, minimum);
  double newTo = to ? std::min(std::max(*to, minimum), upper) : seg.to;
  const double newFrom = from ? std::min(std::max(*from, 0.0), newTo - minimum) : seg.from;
  newTo = std::max(newTo, newFrom + minimum);
  if (!(newTo > newFrom)) return std::nullopt;
  Segment changed = seg;
  changed.from = newFrom;
  changed.to = newTo;
  return replace(recording, list, *old, changed);
}

std::optional<Cut::Change> Cut::speed(Recording& recording, std::string_view id, double rate, double footage) {
  const auto list = placed(recording, footage);
  const Placed* old = find(list, id);
  if (!old) return std::nullopt;
  // NaN would pass every clamp untouched and poison the timeline.
  if (std::isnan(rate)) return std::nullopt;
  const double r = std::clamp(rate, minRate, maxRate);
  Segment changed = old->segment;
  if (std::abs(r - 1) <= 0.001)
    changed.rate.reset();
  else
    changed.rate = r;
  return replace(recording, list, *old, changed);
}

void Cut::slide(Recording& recording, double from, double by) {
  if (std::abs(by) <= 0.0001) return;
  for (auto& item : recording.timeline) {
    if (item.type != ItemType::line || !item.start || *item.start < from - 0.0001) continue;
    double moved = *item.start + by;
    // What stood inside a span taken out lands at the seam, not before it.
    if (by < 0 && moved <= from) moved = from;
    item.start = roundTo(moved, 100);
  }
  Zooms::slide(recording, from, by);
}

std::optional<double> Cut::refresh(Recording& recording, double footage, const std::string& take) {
  if (!(footage > 0) || !recording.segments || recording.segments->size() != 1) return std::nullopt;
  Segment& s = recording.segments->front();
  if (s.from > 0.001 || (s.rate && *s.rate != 1) || s.take == take) return std::nullopt;
  s.take = take;
  if (std::abs(s.to - footage) <= 0.01) return std::nullopt;
  const double former = s.to;
  s.to = roundTo(footage, 1000);
  return former;
}

std::vector<double> Atempo::chain(double rate) {
  if (!(rate > 0) || rate == 1 || !std::isfinite(rate)) return {};
  std::vector<double> stages;
  double rest = rate;
  while (rest > 2) {
    stages.push_back(2.0);
    rest /= 2;
  }
  while (rest < 0.5) {
    stages.push_back(0.5);
    rest *= 2;
  }
  stages.push_back(rest);
  return stages;
}

std::optional<std::string> Atempo::filter(double rate) {
  const auto stages = chain(rate);
  if (stages.empty()) return std::nullopt;
  std::string out;
  for (double stage : stages) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "atempo=%.6f", stage);
    if (!out.empty()) out += ',';
    out += buffer;
  }
  return out;
}

}  // namespace tavorin
