// The stage script in the model, and the timing edits that move items and cues.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/model/AppModel.hpp"
#include "kit/BlockingRewrite.hpp"

namespace tavorin {

namespace {
std::string twoDecimals(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", v);
  return buf;
}
}  // namespace

void AppModel::compileBlocking() {
  if (!stored_) {
    blockingSteps_.clear();
    cues_.clear();
    blockingDiagnostics_.clear();
    return;
  }
  blockingSteps_ = Blocking::parse(storedBlocking_);
  cues_ = Schedule::cues(blockingSteps_, *stored_);
  blockingDiagnostics_ = Blocking::diagnostics(storedBlocking_, *stored_);
}

void AppModel::replaceBlocking(std::string text) {
  requireEditable();
  if (text == storedBlocking_) return;
  remember("the script");
  setBlocking(std::move(text));
  scheduleDraft();
  note("blocking replaced — " + std::to_string(cues_.size()) + " cues");
}

void AppModel::moveCue(int ordinal, double to) {
  requireEditable();
  const auto cue = std::find_if(cues_.begin(), cues_.end(), [&](const Schedule::Cue& c) { return c.id == ordinal; });
  if (cue == cues_.end()) throw Failure::noSuchCue(std::to_string(ordinal));
  if (!cue->anchored) throw Failure::notAnchored(std::to_string(ordinal));
  // The block moves as a whole, so that this cue lands where it was asked to.
  const double offset = BlockingRewrite::offset(storedBlocking_, ordinal).value_or(0);
  const auto rewritten = BlockingRewrite::setOffset(storedBlocking_, ordinal, offset + (to - cue->time));
  if (!rewritten) throw Failure::notAnchored(std::to_string(ordinal));
  remember("the cue");
  setBlocking(*rewritten);
  scheduleDraft();
  note("cue " + std::to_string(ordinal) + " → " + twoDecimals(to));
}

double AppModel::snapWindow(std::optional<bool> snap) const {
  if (!snap.value_or(snapping)) return 0;
  return Retime::snapWindow(pxPerSecond_, snapPixels);
}

Retime::Snap AppModel::snapPreview(const std::string& id, double to, std::optional<bool> snap) const {
  const Recording& rec = recording();
  if (!rec.item(id)) throw Failure::noSuchItem(id);
  return Retime::snap(rec, id, std::max(0.0, to), snapWindow(snap));
}

Retime::Snap AppModel::moveItem(const std::string& id, double to, std::optional<bool> snap) {
  requireEditable();
  const TimelineItem* item = stored_->item(id);
  if (!item) throw Failure::noSuchItem(id);
  if (item->type == ItemType::action)
    throw Failure::cannotUse(id + " is a step of the stage script; move its cue with cue.move, or edit the script");
  const Retime::Snap landing = Retime::snap(*stored_, id, to, snapWindow(snap));
  Recording next = Retime::move(*stored_, id, Schedule::hundredths(landing.start));
  if (next == *stored_) return landing;
  remember("the move");
  setRecording(std::move(next));
  scheduleDraft();
  note("move " + id + " → " + twoDecimals(landing.start) + (landing.snapped ? " (snapped)" : ""));
  return landing;
}

std::string AppModel::duplicateItem(const std::string& id, std::optional<double> at) {
  requireEditable();
  const TimelineItem* item = stored_->item(id);
  if (!item) throw Failure::noSuchItem(id);
  if (item->type == ItemType::action)
    throw Failure::cannotUse(id + " is a step of the stage script; copy the step in the script instead");
  // By default the copy follows the original.
  const double where = at.value_or(item->start.value_or(0) + item->effectiveDuration().value_or(0));
  auto result = Retime::duplicate(*stored_, id, Schedule::hundredths(std::max(0.0, where)));
  if (!result) throw Failure::noSuchItem(id);
  remember("the duplicate");
  setRecording(std::move(result->first));
  selection_ = {result->second};
  scheduleDraft();
  note("duplicate " + id + " → " + result->second);
  return result->second;
}

double AppModel::stepCue(const std::string& to) {
  const Recording& rec = recording();
  std::vector<double> times;
  if (!storedBlocking_.empty() && !cues_.empty()) {
    for (const auto& c : cues_)
      if (c.known) times.push_back(c.time);
  } else {
    for (const auto& span : Schedule::lineSpans(rec)) times.push_back(span.start);
  }
  std::sort(times.begin(), times.end());
  double target = playhead_;
  if (to == "start") target = 0;
  else if (to == "end") target = Schedule::totalLength(rec);
  else if (to == "prev") {
    // A playhead standing on a cue moves off it.
    for (double t : times)
      if (t < playhead_ - 0.05) target = t;
  } else if (to == "next") {
    for (double t : times)
      if (t > playhead_ + 0.05) {
        target = t;
        break;
      }
  } else {
    throw Failure::badChoice(to, "jog", "prev, next, start, end");
  }
  setPlayhead(target);
  return playhead_;
}

}  // namespace tavorin
