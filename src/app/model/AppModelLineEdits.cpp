// Editing lines as text, and pinning them into generations: the model's side of
// LineEdits, with the step names and the sentences of refusal.
#include "app/model/AppModel.hpp"

#include <algorithm>

namespace tavorin {

namespace {

std::string joined(const std::vector<std::string>& ids) {
  std::string out;
  for (const auto& id : ids) out += (out.empty() ? "" : ", ") + id;
  return out;
}

std::string movedNote(const std::vector<std::string>& moved) {
  if (moved.empty()) return "";
  return "; moved " + joined(moved);
}

}  // namespace

LineEdits::Split AppModel::splitLine(const std::string& id, int at) {
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found || found->type != ItemType::line)
    throw Failure::cannotUse("Line " + id + " does not exist in this production. Enter an active line identifier.");
  Recording next = *stored_;
  auto split = LineEdits::split(next, id, at);
  if (!split) throw Failure::cannotUse("Cannot split at the line edge. Move the caret between characters to split text.");
  remember("the split");
  setRecording(std::move(next));
  scheduleDraft();
  note("split " + split->head + " at " + std::to_string(at) + " into " + split->head + " and " + split->tail +
       movedNote(split->moved));
  return *split;
}

LineEdits::Merge AppModel::mergeLines(const std::vector<std::string>& ids) {
  requireEditable();
  Recording next = *stored_;
  auto merge = LineEdits::merge(next, ids);
  if (!merge) throw Failure::cannotUse("Cannot merge separate lines. Select two or more neighbouring lines.");
  remember("the merge");
  setRecording(std::move(next));
  selection_.erase(std::remove_if(selection_.begin(), selection_.end(),
                                  [&](const std::string& id) {
                                    return std::find(merge->gone.begin(), merge->gone.end(), id) != merge->gone.end();
                                  }),
                   selection_.end());
  scheduleDraft();
  note("merged " + joined(merge->gone) + " into " + merge->kept + movedNote(merge->moved));
  return *merge;
}

LineEdits::Pin AppModel::generateTogether(const std::vector<std::string>& ids) {
  requireEditable();
  Recording next = *stored_;
  auto pin = LineEdits::together(next, ids);
  if (!pin) throw Failure::cannotUse("Cannot pin separate lines. Select two or more neighbouring lines.");
  if (next == *stored_) return *pin;  // already pinned so
  remember("the pin");
  setRecording(std::move(next));
  scheduleDraft();
  note(std::to_string(pin->ids.size()) + " line into generation " + pin->name);
  return *pin;
}

std::vector<std::string> AppModel::generateAlone(const std::vector<std::string>& ids) {
  requireEditable();
  Recording next = *stored_;
  auto unpinned = LineEdits::alone(next, ids);
  if (unpinned.empty()) throw Failure::cannotUse("Cannot pin separate lines. Select two or more neighbouring lines.");
  remember("the pin");
  setRecording(std::move(next));
  scheduleDraft();
  note("unpinned " + std::to_string(unpinned.size()) + " line");
  return unpinned;
}

Schedule::Glue AppModel::glueLines(const std::string& id) {
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found || found->type != ItemType::line) throw Failure::noSuchLine(id);
  if (!found->renderedFrom || !found->renderedFrom->group)
    throw Failure::cannotUse(id + " was not rendered as part of a generation, so it has nothing to glue");
  Recording next = *stored_;
  auto glue = Schedule::glue(next, *found->renderedFrom->group);
  if (glue.isEmpty()) return glue;
  remember("the glue");
  setRecording(std::move(next));
  scheduleDraft();
  note("glued generation " + glue.group + (glue.closed.empty() ? "" : ": closed " + joined(glue.closed)) +
       movedNote(glue.moved));
  return glue;
}

}  // namespace tavorin
