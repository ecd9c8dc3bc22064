// Music beds: laying a copied file on the lane, trimming, levelling, removing, and
// hearing one alone. Every change is one undo step with its feed line.
#include <algorithm>

#include "app/model/AppModel.hpp"
#include "kit/Music.hpp"

namespace tavorin {

namespace {

const TimelineItem& bedOf(const Recording& recording, const std::string& id) {
  const TimelineItem* bed = Music::bed(recording, id);
  if (!bed) throw AppModelFailure::noSuchItem(id);
  return *bed;
}

}  // namespace

std::string AppModel::addMusic(const std::string& name, double seconds, std::optional<double> at) {
  requireEditable();
  if (!(seconds > 0)) throw Failure::cannotUse(Music::noLength(name));
  Recording next = *stored_;
  const std::string id = Music::nextId(next);
  const double where = std::max(at.value_or(playhead_), 0.0);
  next.timeline.push_back(Music::item(id, "music/" + name, where, seconds));
  remember("the audio");
  setRecording(std::move(next));
  settle();
  scheduleDraft();
  note(Music::addedEvent(id, name, seconds, where));
  return id;
}

void AppModel::trimMusic(const std::string& id, double in, double out) {
  requireEditable();
  const TimelineItem& bed = bedOf(*stored_, id);
  const auto [trimIn, trimOut] = Music::trim(in, out, bed.duration.value_or(0));
  Recording next = *stored_;
  next.item(id)->trimIn = trimIn;
  next.item(id)->trimOut = trimOut;
  if (next == *stored_) return;
  remember("the trim");
  setRecording(std::move(next));
  scheduleDraft();
  note(Music::trimmedEvent(id, trimIn, trimOut));
}

void AppModel::trimMusicByEdge(const std::string& id, MusicEdge edge, double toTimelineTime) {
  requireEditable();
  const TimelineItem& bed = bedOf(*stored_, id);
  const double duration = bed.duration.value_or(0);
  const double start = bed.start.value_or(0);
  const auto [in, out] = Music::trim(bed.trimIn.value_or(0), bed.trimOut.value_or(duration), duration);
  if (edge == MusicEdge::right) {
    trimMusic(id, in, in + (toTimelineTime - start));
    return;
  }
  // The left edge is dragged over the file: what is trimmed off the head moves the
  // start by as much, so the sound under the rest of the bed stays where it was.
  const auto [trimIn, trimOut] = Music::trim(in + (toTimelineTime - start), out, duration);
  const double moved = std::max(start + (trimIn - in), 0.0);
  Recording next = *stored_;
  next.item(id)->trimIn = trimIn;
  next.item(id)->trimOut = trimOut;
  next.item(id)->start = moved;
  if (next == *stored_) return;
  remember("the trim");
  setRecording(std::move(next));
  scheduleDraft();
  note(Music::trimmedEvent(id, trimIn, trimOut));
}

void AppModel::setMusicSource(const std::string& id, const std::string& url) {
  requireEditable();
  bedOf(*stored_, id);
  Recording next = *stored_;
  next.item(id)->source = url;
  if (next == *stored_) return;
  // Part of laying a fetched bed; undoing the bed takes its source with it.
  remember("the audio", true);
  setRecording(std::move(next));
  scheduleDraft();
}

void AppModel::setMusicGain(const std::string& id, double db) {
  requireEditable();
  bedOf(*stored_, id);
  const double gain = Music::gain(db);
  Recording next = *stored_;
  next.item(id)->gain = gain;
  if (next == *stored_) return;
  // A slider's run of moves is one step.
  remember("the level", true);
  setRecording(std::move(next));
  scheduleDraft();
  note(Music::gainEvent(id, gain));
}

void AppModel::removeMusic(const std::string& id) {
  requireEditable();
  bedOf(*stored_, id);
  stopTransport();
  Recording next = *stored_;
  std::erase_if(next.timeline, [&](const TimelineItem& item) { return item.id == id; });
  remember("the audio");
  setRecording(std::move(next));
  selection_.clear();
  if (editingMusic_ == id) editingMusic_.reset();
  scheduleDraft();
  note(Music::removedEvent(id));
}

void AppModel::previewMusic(const std::string& id) {
  requireTransport();
  const TimelineItem& bed = bedOf(*stored_, id);
  stopTransport();
  note(transport_->previewBed(bed, *baseDir_));
  scheduleTick();
}

std::string AppModel::musicTarget(const std::optional<std::string>& id) const {
  const Recording& rec = recording();
  if (id) return *id;
  for (const auto& picked : selection_)
    if (Music::bed(rec, picked)) return picked;
  std::vector<std::string> beds;
  for (const auto& item : rec.timeline)
    if (item.type == ItemType::audio) beds.push_back(item.id);
  if (beds.size() == 1) return beds[0];
  if (beds.empty()) throw Failure::cannotUse("There is no bed on the music lane.");
  throw Failure::nothingSelected();
}

void AppModel::editMusic(const std::optional<std::string>& id) {
  if (!id) {
    editingMusic_.reset();
    return;
  }
  bedOf(recording(), *id);
  editingMusic_ = *id;
  selection_ = {*id};
  note("editing music " + *id);
}

}  // namespace tavorin
