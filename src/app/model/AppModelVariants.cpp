// Every audio a line has had stays a variant: how one enters the index, which one a
// line speaks with, and how the user picks, hears and removes one. Files are never
// deleted here; a removed variant only moves to the index's `removed`.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/model/AppModel.hpp"
#include "voice/AudioFile.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

bool sameSlice(const Variant& a, const Variant& b) {
  return a.file == b.file && std::fabs(a.offset.value_or(0) - b.offset.value_or(0)) <= 0.001;
}

}  // namespace

std::optional<Variant> AppModel::unkeptLive(const std::string& id, const std::vector<Variant>& among) const {
  if (!stored_) return std::nullopt;
  const TimelineItem* line = stored_->item(id);
  if (!line || line->type != ItemType::line || !line->audio || line->audio->empty()) return std::nullopt;
  if (std::any_of(among.begin(), among.end(), [&](const Variant& v) { return v.isLive(*line); })) return std::nullopt;
  if (variantIndex_.wasRemoved(*line->audio, id)) return std::nullopt;
  auto made = actor_.wallNow();
  if (baseDir_) {
    std::error_code ec;
    const auto stamp = fs::last_write_time(*baseDir_ / *line->audio, ec);
    if (!ec) made = std::chrono::time_point_cast<std::chrono::system_clock::duration>(std::chrono::file_clock::to_sys(stamp));
  }
  Variant live = Variant::speaking(*line, *line->audio, std::chrono::time_point_cast<Clock::duration>(made));
  live.number = variantIndex_.nextNumber(id, among);
  return live;
}

std::vector<Variant> AppModel::variants(const std::string& id) const {
  std::vector<Variant> list;
  if (auto found = variantIndex_.lines.find(id); found != variantIndex_.lines.end()) list = found->second;
  if (auto live = unkeptLive(id, list)) list.push_back(*live);
  return list;
}

std::optional<Variant> AppModel::liveVariant(const std::string& id) const {
  const TimelineItem* line = stored_ ? stored_->item(id) : nullptr;
  if (!line) return std::nullopt;
  for (const auto& v : variants(id))
    if (v.isLive(*line)) return v;
  return std::nullopt;
}

void AppModel::keepVariant(Variant variant, const std::string& id) {
  std::vector<Variant> list = variantIndex_.lines.count(id) ? variantIndex_.lines[id] : std::vector<Variant>{};
  auto same = std::find_if(list.begin(), list.end(), [&](const Variant& v) { return sameSlice(v, variant); });
  if (same != list.end()) {
    variant.number = same->number;
    variant.made = same->made;
    *same = std::move(variant);
  } else {
    variant.number = variantIndex_.nextNumber(id, list);
    list.push_back(std::move(variant));
  }
  storeVariants(std::move(list), id);
}

void AppModel::keepLive(const std::string& id) {
  const std::vector<Variant> list = variantIndex_.lines.count(id) ? variantIndex_.lines[id] : std::vector<Variant>{};
  if (auto live = unkeptLive(id, list)) {
    auto next = list;
    next.push_back(*live);
    storeVariants(std::move(next), id);
  }
}

void AppModel::storeVariants(std::vector<Variant> list, const std::string& id, const std::optional<Variant>& restoring,
                             const std::optional<Variant>& removing) {
  if (list.empty()) variantIndex_.lines.erase(id);
  else variantIndex_.lines[id] = std::move(list);
  if (removing) variantIndex_.removed[id].push_back(*removing);
  if (restoring) {
    auto& gone = variantIndex_.removed[id];
    std::erase_if(gone, [&](const Variant& v) { return v.number == restoring->number; });
    if (gone.empty()) variantIndex_.removed.erase(id);
  }
  if (variantWritesHeld_ > 0) {
    heldVariantWrite_ = id;
    return;
  }
  writeVariants(id);
}

void AppModel::writeVariants(const std::string& id) {
  if (!baseDir_) return;
  try {
    // Written at once and atomically: a landed variant survives a crash a moment later.
    VariantsStore(*baseDir_).write(variantIndex_);
  } catch (const std::exception& error) {
    note("the variants of " + id + " did not save: " + error.what());
  }
}

Variant AppModel::variant(const std::string& id, int number) const {
  for (const auto& v : variants(id))
    if (v.number == number) return v;
  throw Failure::noSuchSample(id, std::to_string(number));
}

fs::path AppModel::variantOnDisk(const std::string& id, int number) const {
  const Variant v = variant(id, number);
  std::error_code ec;
  if (!baseDir_ || !fs::is_regular_file(*baseDir_ / v.file, ec))
    throw Failure::cannotVoice("variant " + std::to_string(number) + " of " + id + " is missing: " + v.file);
  return *baseDir_ / v.file;
}

std::optional<VoiceGroups::Group> AppModel::sampledGroup(const std::string& id) const {
  auto group = voiceGroup(id);
  if (!group) return std::nullopt;
  if (voiceSpan().kind != VoiceSpan::Kind::line || !group->isAlone()) return group;
  return std::nullopt;
}

void AppModel::useVariant(const std::string& id, int number) {
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found || found->type != ItemType::line) throw Failure::noSuchLine(id);
  const Variant chosen = variant(id, number);
  variantOnDisk(id, number);
  keepLive(id);
  if (chosen.group) {
    // A slice of a generation: the group as it stands now, or the one it landed as.
    auto group = sampledGroup(id);
    if (!group || group->hash != *chosen.group) {
      const auto members = VoiceGroups::members(*stored_, *chosen.group);
      if (members.size() > 1) group = VoiceGroups::Group{*chosen.group, members, {}, {}, {}};
      else group.reset();
    }
    if (group && group->hash == *chosen.group) {
      useGroupVariant(*group, chosen);
      return;
    }
  }
  Recording next = *stored_;
  TimelineItem& line = *next.item(id);
  const double before = line.effectiveDuration().value_or(0);
  line.audio = chosen.file;
  line.duration = chosen.seconds;
  line.renderedFrom = chosen.receipt(line.voice);
  const auto reflow = Schedule::ripple(next, id, before, next.gap);
  remember("the variant");
  setRecording(std::move(next));
  scheduleDraft();
  note(id + " uses variant " + std::to_string(number) +
       (reflow.isEmpty() ? std::string() : "; moved " + std::to_string(reflow.moved.size()) + " after it"));
}

void AppModel::useGroupVariant(const VoiceGroups::Group& group, const Variant& chosen) {
  Recording next = *stored_;
  const auto oldEnd = Schedule::end(group.lineIds, next);
  const auto measured = baseDir_ ? AudioFile::seconds(*baseDir_ / chosen.file) : std::nullopt;
  std::vector<std::string> moved;
  for (const auto& id : group.lineIds) {
    TimelineItem* line = next.item(id);
    if (!line) continue;
    std::optional<Variant> slice;
    for (const auto& v : variants(id))
      if (v.file == chosen.file) slice = v;
    if (!slice) continue;
    keepLive(id);
    line->audio = slice->file;
    double seconds = slice->seconds;
    if (measured) seconds = std::min(seconds, std::max(0.0, *measured - slice->offset.value_or(0)));
    line->duration = seconds;
    line->renderedFrom = slice->receipt(line->voice);
    line->renderedFrom->group = group.hash;
    moved.push_back(id);
  }
  Schedule::glue(next, group.hash, group.lineIds, oldEnd, std::nullopt);
  remember("the variant");
  setRecording(std::move(next));
  scheduleDraft();
  note(RenderQueue::name(moved) + " use variant " + std::to_string(chosen.number));
}

void AppModel::silenceLine(const std::string& id) {
  Recording next = *stored_;
  TimelineItem& line = *next.item(id);
  // It holds its length in silence, so nothing after it moves.
  line.duration = line.effectiveDuration();
  line.audio.reset();
  line.renderedFrom.reset();
  remember("the variant");
  setRecording(std::move(next));
  scheduleDraft();
}

void AppModel::removeVariant(const std::string& id, int number) {
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found || found->type != ItemType::line) throw Failure::noSuchLine(id);
  const Variant gone = variant(id, number);
  if (playingVariant_ == number) stopLine();
  const bool wasLive = gone.isLive(*found);

  std::vector<Variant> list = variants(id);
  std::erase_if(list, [&](const Variant& v) { return v.number == number; });
  storeVariants(list, id, std::nullopt, gone);
  if (!wasLive) {
    note("removed variant " + std::to_string(number) + " of " + id);
    return;
  }
  const TimelineItem& line = *stored_->item(id);
  std::optional<Variant> newest;
  for (const auto& v : list) {
    std::error_code ec;
    if (v.isOld(line) || !baseDir_ || !fs::is_regular_file(*baseDir_ / v.file, ec)) continue;
    if (!newest || v.made >= newest->made) newest = v;
  }
  if (newest) {
    useVariant(id, newest->number);
    note("removed variant " + std::to_string(number) + " of " + id + "; it uses variant " + std::to_string(newest->number));
    return;
  }
  silenceLine(id);
  note("removed variant " + std::to_string(number) + " of " + id + "; it has no voice now");
}

void AppModel::playVariant(const std::string& id, int number) {
  requireTransport();
  const Variant chosen = variant(id, number);
  variantOnDisk(id, number);
  if (variantEnd_) variantEnd_->cancel();
  stopTransport();
  // The transport plays it as a line of its own: this file, this slice, at rate 1.
  TimelineItem take(id, ItemType::line);
  take.audio = chosen.file;
  take.duration = chosen.seconds;
  RenderedFrom from;
  from.offset = chosen.offset;
  take.renderedFrom = from;
  transport_->playLine(take, *baseDir_);
  scheduleTick();
  playingVariant_ = number;
  note("play " + id + " variant " + std::to_string(number));
  variantEnd_ = actor_.after(std::chrono::duration_cast<MainActor::Clock::duration>(std::chrono::duration<double>(chosen.seconds)),
                             alive_.guard([this, number] {
                               if (playingVariant_ == number) playingVariant_.reset();
                             }));
}

}  // namespace tavorin
