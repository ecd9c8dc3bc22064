#include "app/model/AppModel.hpp"

#include <algorithm>
#include <set>

#include "kit/Diff.hpp"
#include "kit/Pasteboard.hpp"

namespace tavorin {

AppModel::AppModel(ManualMainActor& actor, SessionStore session, Pasteboard& pasteboard)
    : AppModel(actor, actor, std::move(session), pasteboard) {}

AppModel::AppModel(MainActor& actor, Offloader& offloader, SessionStore session, Pasteboard& pasteboard)
    : actor_(actor),
      offloader_(offloader),
      session_(std::move(session)),
      pasteboard_(pasteboard),
      toasts_(actor),
      sessionWriter_(offloader, alive_.guard([this](const std::string& why) {
                       // The session file is a convenience: the feed says why, nothing stops.
                       note("session not written: " + why);
                     })) {}

AppModel::~AppModel() {
  cancelDraft();
  // Leaving: where the user was must be on disk for the next launch, even if no
  // worker ran the change yet.
  sessionWriter_.flush();
}

const Recording& AppModel::recording() const {
  if (!stored_) throw Failure::noProduction();
  return *stored_;
}

void AppModel::requireEditable() const {
  if (!stored_) throw Failure::noProduction();
  if (isReadOnly()) throw Failure::readOnly();
}

void AppModel::setRecording(Recording next) {
  actor_.checkOnActor();
  std::optional<Recording> before = std::move(stored_);
  stored_ = std::move(next);
  if (before) noteChange(*before, storedBlocking_);
  // A held change (a load, a restore, a landing) compiles once when it is complete.
  if (held_ == 0) compileBlocking();
  settle();
}

void AppModel::setBlocking(std::string text) {
  if (text == storedBlocking_) return;
  std::string before = std::move(storedBlocking_);
  storedBlocking_ = std::move(text);
  if (stored_) noteChange(*stored_, before);
  if (held_ == 0) compileBlocking();
  settle();
}

void AppModel::storeUnrecorded(Recording rec) {
  Hold hold(*this);
  setRecording(std::move(rec));
}

void AppModel::note(std::string line) {
  actor_.checkOnActor();
  events_.push_back(std::move(line));
  while (events_.size() > eventCap) events_.pop_front();
}

void AppModel::settle() {
  const bool recordingDiffers = stored_ != savedRec_;
  const bool next = recordingDiffers || storedBlocking_ != savedBlocking_;
  blockingDirty_ = storedBlocking_ != savedBlocking_;
  if (next != dirty_) dirty_ = next;
}

void AppModel::markClean() {
  savedRec_ = stored_;
  savedBlocking_ = storedBlocking_;
  dirty_ = false;
  blockingDirty_ = false;
}

// ---- Turns and undo ----------------------------------------------------------

void AppModel::remember(std::string name, bool merging) {
  pendingName_ = std::move(name);
  pendingMerge_ = merging;
  openTurn();
}

void AppModel::noteChange(const Recording& before, const std::string& blockingBefore) {
  if (held_ > 0) return;
  if (pushedThisTurn_) {
    // Every change of one turn is one step.
    if (pendingName_) {
      history_.name(*pendingName_);
      pendingName_.reset();
    }
    return;
  }
  if (pendingMerge_ && pendingName_ && !history_.past.empty() && history_.past.back().what == *pendingName_) {
    pendingName_.reset();
    pendingMerge_ = false;
    return;
  }
  history_.push(HistoryStep{pendingName_.value_or(""), before, blockingBefore});
  pushedThisTurn_ = true;
  if (!turnOpen_) openTurn();
}

void AppModel::openTurn() {
  if (turnOpen_) return;
  turnOpen_ = true;
  // The turn ends when the actor comes round again, after the current handler.
  actor_.post(alive_.guard([this] { closeTurn(); }));
}

void AppModel::closeTurn() {
  turnOpen_ = false;
  pendingName_.reset();
  pendingMerge_ = false;
  if (pushedThisTurn_ && !history_.past.empty() && history_.past.back().what.empty() && stored_) {
    history_.name(Diff::name(history_.past.back().rec, *stored_));
  }
  pushedThisTurn_ = false;
}

void AppModel::land(const HistoryStep& step) {
  {
    Hold hold(*this);
    storedBlocking_ = step.blocking;
    settle();
    setRecording(step.rec);
    settle();
  }
  compileBlocking();
  scheduleDraft();
}

namespace {
std::set<std::string> idsOf(const Recording& r) {
  auto ids = r.itemIds();
  if (r.zooms)
    for (const auto& z : *r.zooms) ids.insert(z.id);
  return ids;
}

std::string depthNote(std::size_t left) {
  if (left == 0) return " (nothing further back)";
  return " (" + std::to_string(left) + (left == 1 ? " step" : " steps") + " further back)";
}
}  // namespace

// Takes one step of history back (or forward) and lands it; the ids that arrived.
std::vector<std::string> AppModel::walkHistory(bool back) {
  if (isReadOnly()) throw Failure::readOnly();
  if (!stored_) throw Failure::noProduction();
  const HistoryStep current{"", *stored_, storedBlocking_};
  auto step = back ? history_.stepBack(current) : history_.stepForward(current);
  if (!step) throw back ? Failure::nothingToUndo() : Failure::nothingToRedo();
  const auto before = idsOf(*stored_);
  std::vector<std::string> arrived;
  for (const auto& id : idsOf(step->rec))
    if (!before.count(id)) arrived.push_back(id);
  land(*step);
  const auto now = idsOf(*stored_);
  if (back && !arrived.empty()) {
    selection_ = arrived;  // what came back is what the user sees selected
  } else if (back) {
    std::erase_if(selection_, [&](const std::string& id) { return !now.count(id); });
  } else if (now != before) {
    selection_.clear();
  }
  const std::string what = step->what.empty() ? std::string("the edit") : step->what;
  note(back ? "undid " + what + depthNote(history_.past.size()) : what + " again");
  return arrived;
}

std::vector<std::string> AppModel::undo() { return walkHistory(true); }

std::vector<std::string> AppModel::redo() { return walkHistory(false); }

// ---- Selection -----------------------------------------------------------------

void AppModel::select(const std::vector<std::string>& ids, bool extend) {
  if (!extend) selection_.clear();
  for (const auto& id : ids)
    if (std::find(selection_.begin(), selection_.end(), id) == selection_.end()) selection_.push_back(id);
}

void AppModel::selectAll() {
  selection_.clear();
  if (!stored_) return;
  // Action items are the script's shadow and are not picked by hand.
  for (const auto& i : stored_->timeline)
    if (i.type != ItemType::action) selection_.push_back(i.id);
  if (stored_->zooms)
    for (const auto& z : *stored_->zooms) selection_.push_back(z.id);
}

}  // namespace tavorin
