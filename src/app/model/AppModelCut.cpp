// Takes on the monitor, the cut and the zooms, each an undoable edit of the document.
// The film files are never touched: the cut and the zooms are data in the version.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/model/AppModel.hpp"
#include "kit/TakesStore.hpp"
#include "kit/Zooms.hpp"

namespace tavorin {

namespace {

std::string fixed(const char* format, double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, v);
  return buffer;
}

std::string seconds(double v) { return fixed("%.2fs", v); }

}  // namespace

std::vector<Take> AppModel::takes() const {
  if (!baseDir_) return {};
  return TakesStore(*baseDir_).list();
}

std::optional<Take> AppModel::monitorTake() const {
  if (monitorCleared_ || monitorStill_) return std::nullopt;
  const auto all = takes();
  if (pickedTake_)
    for (const auto& t : all)
      if (t.id == *pickedTake_) return t;
  for (const auto& t : all)
    if (t.hasFootage()) return t;
  return std::nullopt;
}

void AppModel::selectTake(const std::string& id) {
  if (!isOpen()) throw Failure::noProduction();
  const auto all = takes();
  auto found = std::find_if(all.begin(), all.end(), [&](const Take& t) { return t.id == id; });
  if (found == all.end()) throw Failure::noSuchTake(id);
  pickedTake_ = id;
  monitorCleared_ = false;
  monitorStill_.reset();
  note("the monitor shows take " + id);
  // The picture follows the take; not an undo step, and never on an older version.
  if (isReadOnly() || !found->hasFootage()) return;
  Recording copy = *stored_;
  const double footage = found->footage();
  auto former = Cut::refresh(copy, footage, id);
  if (copy == *stored_) return;
  {
    Hold hold(*this);
    setRecording(std::move(copy));
  }
  scheduleDraft();
  if (former) note("the picture follows the take — " + fixed("%.2fs", *former) + " → " + fixed("%.2fs", footage));
}

double AppModel::cutFootage() const {
  auto take = monitorTake();
  if (!take || !(take->footage() > 0)) throw Failure::noFootage();
  return take->footage();
}

std::vector<Cut::Placed> AppModel::placedSegments() const {
  auto take = monitorTake();
  return Cut::placed(recording(), take ? take->footage() : 0);
}

const Cut::Placed& AppModel::oneSegment(const std::vector<Cut::Placed>& placed, const std::string& id) const {
  const Cut::Placed* found = nullptr;
  int count = 0;
  for (const auto& p : placed)
    if (p.segment.id == id) {
      if (!found) found = &p;
      ++count;
    }
  if (!found) throw Failure::cannotCut("no segment " + id + ". Try: tavorinctl segment.list");
  if (count > 1)
    throw Failure::cannotCut(std::to_string(count) + " segments answer to " + id +
                             " in this version, so there is no telling which you mean. Try: tavorinctl segment.list");
  return *found;
}

void AppModel::commitCut(Recording next, const std::string& summary) {
  if (auto take = monitorTake(); take && next.segments)
    for (auto& s : *next.segments) s.take = take->id;
  setRecording(std::move(next));
  scheduleDraft();
  note(summary);
}

std::string AppModel::splitPicture(std::optional<double> at) {
  requireEditable();
  const double footage = cutFootage();
  const double t = at.value_or(playhead_);
  Recording next = *stored_;
  auto id = Cut::split(next, t, footage);
  if (!id) throw Failure::cannotCut("nothing to split at " + seconds(t) + " — the playhead has to sit inside the footage");
  remember("the split");
  commitCut(std::move(next), "split the picture at " + seconds(t) + " → " + *id);
  return *id;
}

double AppModel::removeSegment(const std::string& id) {
  requireEditable();
  const double footage = cutFootage();
  oneSegment(Cut::placed(*stored_, footage), id);
  Recording next = *stored_;
  auto change = Cut::remove(next, id, footage);
  if (!change) throw Failure::cannotCut(id + " is the only picture there is. Remove the take instead");
  remember("the cut");
  commitCut(std::move(next), "cut " + id + " — " + seconds(-change->delta) + " out, everything after slid left");
  return -change->delta;
}

void AppModel::setSegment(const std::string& id, std::optional<double> from, std::optional<double> to) {
  requireEditable();
  const double footage = cutFootage();
  oneSegment(Cut::placed(*stored_, footage), id);
  Recording next = *stored_;
  if (!Cut::trim(next, id, from, to, footage))
    throw Failure::cannotCut(id + " cannot hold those bounds — a segment shows at least 0.05s of the take, and the take holds " +
                             seconds(footage));
  const Segment& s = *std::find_if(next.segments->begin(), next.segments->end(),
                                   [&](const Segment& x) { return x.id == id; });
  const std::string summary = id + " shows " + seconds(s.from) + " to " + seconds(s.to) + " of the take";
  remember("the segment");
  commitCut(std::move(next), summary);
}

void AppModel::trimSegment(const std::string& id, std::optional<double> from, std::optional<double> to) {
  requireEditable();
  const double footage = cutFootage();
  oneSegment(Cut::placed(*stored_, footage), id);
  Recording next = *stored_;
  auto change = Cut::trim(next, id, from, to, footage);
  if (!change) throw Failure::cannotCut(id + " cannot hold those bounds");
  remember("the trim");
  commitCut(std::move(next),
            "trimmed " + id + " — " + seconds(std::abs(change->delta)) + (change->delta < 0 ? " off" : " on"));
}

void AppModel::setSegmentRate(const std::string& id, double rate) {
  requireEditable();
  const double footage = cutFootage();
  oneSegment(Cut::placed(*stored_, footage), id);
  Recording next = *stored_;
  if (!Cut::speed(next, id, rate, footage)) throw Failure::cannotCut(id + " will not run at " + fixed("%g", rate) + "×");
  const double stored = std::clamp(rate, Cut::minRate, Cut::maxRate);
  remember("the speed");
  commitCut(std::move(next), id + " runs at " + fixed("%.2f", stored) + "×");
}

std::string AppModel::addZoom(std::optional<double> at, std::optional<double> length, std::optional<double> scale,
                              std::optional<double> x, std::optional<double> y, std::optional<std::string> style) {
  requireEditable();
  const double from = at.value_or(playhead_);
  std::optional<Zoom::Anchor> anchor;
  if (x || y) anchor = Zoom::Anchor{Zooms::clamped01(x.value_or(0.5)), Zooms::clamped01(y.value_or(0.5))};
  if (style && *style != "smooth" && *style != "spring")
    throw Failure::badChoice(*style, "style", "smooth | spring");
  Recording next = *stored_;
  auto id = Zooms::add(next, from, length.value_or(Zooms::defaultLength), scale.value_or(2), anchor, style);
  if (!id)
    throw Failure::cannotZoom("no room for a zoom at " + seconds(from) +
                              " — zooms sit one at a time. Move or trim the one there");
  const std::string summary = "zoom " + *id + " " + Zooms::summary(*Zooms::zoom(*id, next));
  remember("the zoom");
  setRecording(std::move(next));
  scheduleDraft();
  note(summary);
  return *id;
}

void AppModel::removeZoom(const std::string& id) {
  requireEditable();
  Recording next = *stored_;
  if (!Zooms::remove(next, id)) throw Failure::noSuchZoom(id);
  remember("the zoom");
  setRecording(std::move(next));
  scheduleDraft();
  note("removed 1 zoom — undo puts it back");
}

}  // namespace tavorin
