// Edits of the production and its items, and the clipboard.
#include <algorithm>
#include <cstdio>
#include <cmath>
#include <set>

#include "app/model/AppModel.hpp"
#include "kit/Diff.hpp"
#include "kit/Clipboard.hpp"
#include "kit/Pasteboard.hpp"

namespace tavorin {

namespace {

double numberFor(const std::string& field, const FieldValue& value) {
  if (const double* v = value.number()) return *v;
  throw AppModelFailure::badValue(field, value.display());
}

bool truthFor(const std::string& field, const FieldValue& value) {
  if (const bool* v = value.truth()) return *v;
  throw AppModelFailure::badChoice(value.display(), "value for " + field, "1 or 0");
}

std::optional<std::string> textOrNothing(const FieldValue& value) {
  const std::string text = value.display();
  if (text.empty()) return std::nullopt;
  return text;
}

std::string plural(std::size_t n, const std::string& one, const std::string& many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

}  // namespace

FieldValue::Kind AppModel::fieldKind(const std::string& field) {
  static const std::set<std::string> numbers{"gap", "start", "rate", "hold", "gain", "trimIn", "trimOut"};
  if (numbers.count(field)) return FieldValue::Kind::number;
  if (field == "approved") return FieldValue::Kind::truth;
  return FieldValue::Kind::text;
}

void AppModel::editProduction(const std::string& field, const FieldValue& value) {
  requireEditable();
  static const std::set<std::string> fields{"title", "character", "voice", "driver", "gap", "span", "description"};
  if (!fields.count(field)) throw Failure::noSuchField(field);
  Recording next = *stored_;
  if (field == "driver" || field == "span" || field == "character" || field == "voice") {
    editVoiceField(next, field, value.display());
  } else if (field == "title") {
    // A production always has a title; cleared, it falls back to its id.
    next.title = value.cleared() ? next.id : value.display();
  } else if (field == "description") {
    next.description = textOrNothing(value);
  } else if (field == "gap") {
    if (value.cleared()) next.gap.reset();
    else {
      const double gap = numberFor("gap", value);
      if (gap < 0) throw Failure::badChoice(value.display(), "gap", "a number of seconds, 0 or more");
      next.gap = gap;
    }
  }
  if (next == *stored_) return;
  remember("edit production.");
  setRecording(std::move(next));
  scheduleDraft();
  note("production " + field + (value.cleared() ? " cleared" : " set to " + value.display()));
}

void AppModel::editItem(const std::string& id, const std::string& field, const FieldValue& value) {
  if (id == "production") return editProduction(field, value);
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found) throw Failure::noSuchItem(id);
  static const std::set<std::string> fields{"text",     "character", "voice",  "start",   "rate", "hold",
                                            "approved", "gain",      "trimIn", "trimOut", "note"};
  if (!fields.count(field)) throw Failure::noSuchField(field);
  Recording next = *stored_;
  TimelineItem& item = *next.item(id);
  auto positive = [&](const char* what) {
    const double v = numberFor(field, value);
    if (v <= 0) throw Failure::badChoice(value.display(), what, "a number above 0");
    return v;
  };
  if (field == "character" || field == "voice") {
    if (item.type != ItemType::line) throw Failure::cannotUse(id + " is not a line, so it has no " + field);
    if (field == "voice") {
      item.voice = textOrNothing(value);
    } else {
      const auto character = textOrNothing(value);
      // The line keeps its pinned voice only where the new character has it.
      TimelineItem inherits = item;
      inherits.character = character;
      inherits.voice.reset();
      const auto plan = voicePlan(inherits, next);
      const auto effective = character ? character : next.voice.character;
      item.voice = VoicePlan::pinned(cast(), driver()->name(), item.voice, effective.value_or(""),
                                     plan.refused() ? std::nullopt : std::optional<std::string>(plan.voice));
      item.character = character;
    }
  } else if (field == "text") {
    if (item.type != ItemType::line && item.type != ItemType::label)
      throw Failure::cannotUse(id + " is " + name(item.type) + ", which has no text");
    item.text = textOrNothing(value);
  } else if (field == "note") {
    item.note = textOrNothing(value);
  } else if (field == "start") {
    if (value.cleared()) item.start.reset();
    else item.start = Schedule::hundredths(std::max(0.0, numberFor(field, value)));
  } else if (field == "rate") {
    if (item.type != ItemType::line) throw Failure::cannotUse(id + " is not a line, so it has no rate");
    if (value.cleared()) item.rate.reset();
    else item.rate = positive("rate");
  } else if (field == "hold") {
    if (item.type != ItemType::line) throw Failure::cannotUse(id + " is not a line, so it holds no time");
    if (value.cleared()) item.hold.reset();
    else item.hold = positive("hold");
  } else if (field == "approved") {
    if (item.type != ItemType::line) throw Failure::cannotUse(id + " is not a line, so it can't be approved");
    if (value.cleared()) item.approved.reset();
    else item.approved = truthFor(field, value);
  } else {  // gain, trimIn, trimOut: a bed's
    if (item.type != ItemType::audio) throw Failure::cannotUse(id + " is not a music bed, so it has no " + field);
    std::optional<double> v;
    if (!value.cleared()) v = numberFor(field, value);
    if (field == "gain") item.gain = v;
    else if (field == "trimIn") item.trimIn = v ? std::optional<double>(std::max(0.0, *v)) : std::nullopt;
    else item.trimOut = v ? std::optional<double>(std::max(0.0, *v)) : std::nullopt;
  }
  if (next == *stored_) return;
  // The undo menu names the step the way a diff of the two would.
  remember(Diff::name(*stored_, next));
  setRecording(std::move(next));
  scheduleDraft();
  note("edit " + id + " " + field + (value.cleared() ? " cleared" : " = " + value.display()));
}

// ---- Clipboard ---------------------------------------------------------------------

std::size_t AppModel::copySelection() {
  if (!stored_) throw Failure::noProduction();
  if (selection_.empty()) throw Failure::nothingSelected();
  Clipboard::Cargo cargo;
  for (const auto& id : selection_) {
    if (const TimelineItem* item = stored_->item(id)) cargo.items.push_back(*item);
    else if (stored_->zooms)
      for (const auto& z : *stored_->zooms)
        if (z.id == id) cargo.zooms.push_back(z);
  }
  const std::size_t n = cargo.items.size() + cargo.zooms.size();
  if (n == 0) throw Failure::nothingSelected();
  pasteboard_.write(Clipboard::pasteboardType, Clipboard::encode(cargo));
  note("copied " + plural(n, "item", "items"));
  return n;
}

std::size_t AppModel::cutSelection() {
  requireEditable();
  const std::size_t n = copySelection();
  deleteItems(selection_);
  return n;
}

std::vector<std::string> AppModel::paste(std::optional<double> at, const std::optional<std::string>& text) {
  requireEditable();
  const auto source = text ? text : pasteboard_.read(Clipboard::pasteboardType);
  const auto cargo = source ? Clipboard::cargo(*source) : std::nullopt;
  if (!cargo || (cargo->items.empty() && cargo->zooms.empty())) throw Failure::nothingToPaste();
  const double where = std::max(0.0, at.value_or(playhead_));

  Recording next = *stored_;
  const auto items = Clipboard::rehome(cargo->items, next, where);
  std::vector<std::string> ids;
  for (const auto& item : items) {
    ids.push_back(item.id);
    next.timeline.push_back(item);
  }
  const auto zooms = Clipboard::rehome(cargo->zooms, next, where);
  if (!zooms.empty()) {
    if (!next.zooms) next.zooms.emplace();
    for (const auto& z : zooms) {
      ids.push_back(z.id);
      next.zooms->push_back(z);
    }
    std::stable_sort(next.zooms->begin(), next.zooms->end(), [](const Zoom& a, const Zoom& b) { return a.from < b.from; });
  }
  if (ids.empty()) throw Failure::cannotZoom("no room for the pasted zooms — zooms sit one at a time");
  remember("the paste");
  setRecording(std::move(next));
  selection_ = ids;
  scheduleDraft();
  note("pasted " + plural(ids.size(), "item", "items"));
  return ids;
}

void AppModel::deleteItems(const std::vector<std::string>& ids) {
  requireEditable();
  if (ids.empty()) throw Failure::nothingSelected();
  Recording next = *stored_;
  std::size_t items = 0, zooms = 0, cuts = 0;
  double picture = 0;
  const auto placed = placedSegments();
  for (const auto& id : ids) {
    // A segment goes as a cut does: what follows slides left over the gap.
    if (std::any_of(placed.begin(), placed.end(), [&](const Cut::Placed& p) { return p.segment.id == id; })) {
      const auto change = Cut::remove(next, id, cutFootage());
      if (!change) throw Failure::cannotCut("that is the only picture there is — remove the take instead");
      picture -= change->delta;
      ++cuts;
      continue;
    }
    auto it = std::find_if(next.timeline.begin(), next.timeline.end(), [&](const TimelineItem& i) { return i.id == id; });
    if (it != next.timeline.end()) {
      next.timeline.erase(it);
      ++items;
      continue;
    }
    bool zoomFound = false;
    if (next.zooms) {
      auto z = std::find_if(next.zooms->begin(), next.zooms->end(), [&](const Zoom& zoom) { return zoom.id == id; });
      if (z != next.zooms->end()) {
        next.zooms->erase(z);
        zoomFound = true;
        ++zooms;
      }
    }
    if (!zoomFound) throw Failure::noSuchItem(id);
  }
  if (next.zooms && next.zooms->empty()) next.zooms.reset();
  remember(items ? "the delete" : cuts ? "the cut" : "the zoom");
  if (cuts) {
    if (auto take = monitorTake(); take && next.segments)
      for (auto& s : *next.segments) s.take = take->id;
  }
  setRecording(std::move(next));
  std::erase_if(selection_, [&](const std::string& id) { return std::find(ids.begin(), ids.end(), id) != ids.end(); });
  scheduleDraft();
  if (items) note("deleted " + plural(items, "item", "items") + " — ⌘Z puts them back");
  if (zooms) note("removed " + plural(zooms, "zoom", "zooms") + " — ⌘Z puts it back");
  if (cuts) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2fs", picture);
    note(std::string(text) + " of picture — ⌘Z puts it back");
  }
}

}  // namespace tavorin

namespace tavorin {

// ---- Labels ------------------------------------------------------------------------

std::string AppModel::addLabel(double at, const std::optional<std::string>& text) {
  requireEditable();
  Recording next = *stored_;
  TimelineItem label(Clipboard::freeId("g1", next.itemIds()), ItemType::label);
  label.start = std::max(0.0, at);
  label.text = text;
  const std::string id = label.id;
  next.timeline.push_back(std::move(label));
  remember("the label");
  setRecording(std::move(next));
  scheduleDraft();
  char when[32];
  std::snprintf(when, sizeof when, "%.2f", std::max(0.0, at));
  note("label " + id + " at " + when);
  return id;
}

void AppModel::renameLabel(const std::string& id, const std::string& text) {
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found) throw Failure::noSuchItem(id);
  if (found->type != ItemType::label) throw Failure::cannotUse(id + " is a " + name(found->type) + ", not a label");
  Recording next = *stored_;
  next.item(id)->text = text;
  if (next == *stored_) return;
  remember("the label");
  setRecording(std::move(next));
  scheduleDraft();
  editingLabel_.reset();
  note("label " + id + " renamed");
}

void AppModel::editLabel(const std::string& id) {
  requireEditable();
  const TimelineItem* found = stored_->item(id);
  if (!found) throw Failure::noSuchItem(id);
  if (found->type != ItemType::label) throw Failure::cannotUse(id + " is a " + name(found->type) + ", not a label");
  editingLabel_ = id;
  selection_ = {id};
  note("editing label " + id);
}

// ---- The side panel ----------------------------------------------------------------

const std::vector<std::string>& AppModel::panelTabs() {
  static const std::vector<std::string> tabs{"voice", "subtitles", "agent", "info", "youtube"};
  return tabs;
}

void AppModel::showPanelTab(const std::string& tab) {
  const auto& tabs = panelTabs();
  if (std::find(tabs.begin(), tabs.end(), tab) == tabs.end())
    throw Failure::badChoice(tab, "panel tab", "voice, subtitles, agent, info, youtube");
  panelTab_ = tab;
  selection_.clear();
  sessionWriter_.write(session_, [tab](const SessionStore& s) { s.rememberPanelTab(tab); });
}

void AppModel::setGroupCollapsed(const std::string& group, std::optional<bool> collapsed) {
  auto it = std::find(collapsed_.begin(), collapsed_.end(), group);
  const bool now = collapsed.value_or(it == collapsed_.end());
  if (now && it == collapsed_.end()) collapsed_.push_back(group);
  if (!now && it != collapsed_.end()) collapsed_.erase(it);
  sessionWriter_.write(session_, [collapsed = collapsed_](const SessionStore& s) { s.rememberCollapsed(collapsed); });
}

void AppModel::loadPanelState() {
  sessionWriter_.flush();
  const SessionMemory memory = session_.read();
  collapsed_ = memory.collapsed.value_or(std::vector<std::string>{});
  if (memory.panelTab) {
    const auto& tabs = panelTabs();
    if (std::find(tabs.begin(), tabs.end(), *memory.panelTab) != tabs.end()) panelTab_ = *memory.panelTab;
  }
}

}  // namespace tavorin
