#pragma once
#include <cstdint>
#include <mutex>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model/AppModelFailure.hpp"
#include "app/model/FieldValue.hpp"
#include "app/model/MainActor.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/Offloader.hpp"
#include "app/model/ToastCenter.hpp"
#include "base/LifetimeToken.hpp"
#include "kit/Blocking.hpp"
#include "kit/BlockingDiagnostic.hpp"
#include "kit/History.hpp"
#include "kit/Retime.hpp"
#include "kit/Schedule.hpp"
#include "kit/Recording.hpp"
#include "kit/SessionStore.hpp"
#include "app/model/SessionWriter.hpp"
#include "kit/VariantsStore.hpp"

namespace tavorin {

class Pasteboard;
class RecordingStore;

// The open production and everything about it. One instance for the life of the
// process, reopened in place. Every change of the document passes through
// `setRecording` (and of the script through `setBlocking`), so undo, the draft on
// disk, the dirty mark and the caches are kept by one mechanism whatever the act.
class AppModel {
 public:
  using Failure = AppModelFailure;
  static constexpr std::size_t eventCap = 500;
  static constexpr double draftDelay = 0.8;

  // Disk writes of the session go through `offloader`; the model never waits on a disk.
  AppModel(MainActor& actor, Offloader& offloader, SessionStore session, Pasteboard& pasteboard);
  // For tests and tools: the manual actor runs offloaded work itself, when drained.
  AppModel(ManualMainActor& actor, SessionStore session, Pasteboard& pasteboard);
  ~AppModel();
  AppModel(const AppModel&) = delete;
  AppModel& operator=(const AppModel&) = delete;

  MainActor& actor() { return actor_; }
  ToastCenter& toasts() { return toasts_; }
  const SessionStore& session() const { return session_; }
  // Every change of session.json goes through here, in order, off the main actor.
  SessionWriter& sessionWriter() { return sessionWriter_; }
  Pasteboard& pasteboard() { return pasteboard_; }

  // ---- The production ----------------------------------------------------
  const std::optional<Recording>& production() const { return stored_; }
  bool isOpen() const { return stored_.has_value(); }
  // The open document; refuses with noProduction.
  const Recording& recording() const;
  // The one door for a change of the document.
  void setRecording(Recording next);
  const std::string& blocking() const { return storedBlocking_; }
  // The one door for a change of the script.
  void setBlocking(std::string text);
  const std::optional<std::filesystem::path>& baseDir() const { return baseDir_; }
  // blocking.stage, or the name the document gives.
  std::optional<std::filesystem::path> blockingURL() const;

  const std::optional<std::string>& loadError() const { return loadError_; }
  const std::optional<std::string>& headVersion() const { return headVersion_; }
  const std::optional<std::string>& viewingVersion() const { return viewingVersion_; }
  const std::vector<std::string>& versions() const { return versions_; }
  bool restoredDraft() const { return restoredDraft_; }
  bool dirty() const { return dirty_; }
  bool blockingDirty() const { return blockingDirty_; }
  bool isReadOnly() const { return viewingVersion_.has_value(); }
  const VariantsStore::Index& variantIndex() const { return variantIndex_; }

  // Refusals every edit makes first: noProduction, then readOnly.
  void requireEditable() const;

  // ---- Life of a production ------------------------------------------------
  Recording open(const std::filesystem::path& dir);
  void save();
  void revert();
  void openVersion(const std::string& name);
  void makeHead(const std::string& name);
  void settle();
  void markClean();
  void scheduleDraft();
  // Writes a waiting draft now; runs before any act that leaves the production.
  void flushDraft();
  // Writes blocking.stage atomically when the script differs from the file.
  void saveBlocking();

  static std::string shortVersion(const std::string& name);
  // A full name, a short one, or a prefix; refuses with noSuchVersion.
  std::string resolveVersion(const std::string& name) const;

  // ---- Undo --------------------------------------------------------------
  const History& history() const { return history_; }
  // Names the next undo step; with `merging`, a change under the same name as the
  // top step joins it (a slider's run of moves is one step).
  void remember(std::string name, bool merging = false);
  void closeTurn();
  void land(const HistoryStep& step);
  // The ids that came back.
  std::vector<std::string> undo();
  std::vector<std::string> redo();

  // ---- Selection and clipboard -------------------------------------------
  const std::vector<std::string>& selection() const { return selection_; }
  void select(const std::vector<std::string>& ids, bool extend = false);
  void selectAll();
  void clearSelection() { selection_.clear(); }
  const std::optional<std::string>& hovered() const { return hovered_; }
  void hover(std::optional<std::string> id) { hovered_ = std::move(id); }
  // How many items and zooms went to the pasteboard.
  std::size_t copySelection();
  std::size_t cutSelection();
  // The ids of the pasted items and zooms.
  std::vector<std::string> paste(std::optional<double> at = std::nullopt,
                                 const std::optional<std::string>& text = std::nullopt);
  // Removes items and zooms by id, as one undo step.
  void deleteItems(const std::vector<std::string>& ids);

  // ---- Edits ---------------------------------------------------------------
  // What kind of value a field of an item or of the production takes; text for a
  // field the model does not know, which the edit itself then refuses by name.
  static FieldValue::Kind fieldKind(const std::string& field);
  // The production's own fields; a cleared value falls back to the inherited default.
  void editProduction(const std::string& field, const FieldValue& value);
  // One field of one item; a cleared value removes it where the field may be missing.
  void editItem(const std::string& id, const std::string& field, const FieldValue& value);

  // ---- The stage script -----------------------------------------------------
  const std::vector<Blocking::Step>& blockingSteps() const { return blockingSteps_; }
  const std::vector<Schedule::Cue>& cues() const { return cues_; }
  const std::vector<BlockingDiagnostic>& blockingDiagnostics() const { return blockingDiagnostics_; }
  // Swaps in a new script as one undo step; the cues and diagnostics follow at once.
  void replaceBlocking(std::string text);
  // Moves a cue by rewriting only the offset of its block. Refuses a cue the compiled
  // script lacks, and one whose time comes from the sequence rather than an anchor.
  void moveCue(int ordinal, double to);
  bool blockingDrawerOpen = false;

  // ---- Timing edits ------------------------------------------------------------
  // The dock's snapping toggle, which a move obeys unless told otherwise.
  bool snapping = true;
  static constexpr double snapPixels = 7;
  double snapWindow(std::optional<bool> snap) const;
  // Where a drag of `id` to `to` would land, and what it snapped to; changes nothing.
  Retime::Snap snapPreview(const std::string& id, double to, std::optional<bool> snap = std::nullopt) const;
  Retime::Snap moveItem(const std::string& id, double to, std::optional<bool> snap = std::nullopt);
  // The copy's id.
  std::string duplicateItem(const std::string& id, std::optional<double> at = std::nullopt);
  // The jog: "prev", "next", "start" or "end". Returns the new playhead.
  double stepCue(const std::string& to);

  // ---- Labels: notes on the timeline that nothing else reads ------------------
  // The new label's id.
  std::string addLabel(double at, const std::optional<std::string>& text);
  void renameLabel(const std::string& id, const std::string& text);
  // Opens a label for writing; nothing changes until the words are committed.
  void editLabel(const std::string& id);
  const std::optional<std::string>& editingLabel() const { return editingLabel_; }

  // ---- The side panel --------------------------------------------------------
  static const std::vector<std::string>& panelTabs();
  const std::string& panelTab() const { return panelTab_; }
  // Showing a tab closes the item editor, which means clearing the selection.
  void showPanelTab(const std::string& tab);
  const std::vector<std::string>& collapsedGroups() const { return collapsed_; }
  // Collapses or opens a group of the info tab; nothing flips it.
  void setGroupCollapsed(const std::string& group, std::optional<bool> collapsed);
  // Reads the panel's tab and collapsed groups from the session.
  void loadPanelState();
  bool paletteOpen = false;

  // ---- Transport, as far as this build has one ------------------------------
  double playhead() const { return playhead_; }
  void setPlayhead(double seconds) { playhead_ = seconds < 0 ? 0 : seconds; }
  double pxPerSecond() const { return pxPerSecond_; }
  void setPxPerSecond(double px) { pxPerSecond_ = px; }

  // ---- Events --------------------------------------------------------------
  // The feed, oldest first; every state change of weight adds a line.
  const std::deque<std::string>& events() const { return events_; }
  void note(std::string line);

 private:
  // While held, changes are not recorded: loading, restoring and undoing are not edits.
  class Hold {
   public:
    explicit Hold(AppModel& m) : m_(m) { ++m_.held_; }
    ~Hold() { --m_.held_; }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    AppModel& m_;
  };
  void noteChange(const Recording& before, const std::string& blockingBefore);
  std::vector<std::string> walkHistory(bool back);
  void openTurn();
  void loadBlocking(const std::filesystem::path& dir, const Recording& rec);
  void loadVariants(const std::filesystem::path& dir, const Recording& rec);
  VariantsStore::Index seededVariants(const std::filesystem::path& dir, const Recording& rec) const;
  void restoreDraftIfAny(const RecordingStore& store);
  void writeDraftNow();
  void writeDraftInPlace();
  void cancelDraft();
  void readManifest(const RecordingStore& store);
  void storeUnrecorded(Recording rec);

  MainActor& actor_;
  Offloader& offloader_;
  SessionStore session_;
  Pasteboard& pasteboard_;
  ToastCenter toasts_;

  std::optional<Recording> stored_;
  std::optional<std::filesystem::path> baseDir_;
  std::optional<std::string> loadError_;
  std::optional<std::string> headVersion_;
  std::optional<std::string> viewingVersion_;
  std::vector<std::string> versions_;
  bool restoredDraft_ = false;
  bool dirty_ = false;
  std::optional<Recording> savedRec_;
  std::string savedBlocking_;
  std::string storedBlocking_;
  bool blockingDirty_ = false;

  std::vector<std::string> selection_;
  std::optional<std::string> hovered_;

  History history_;
  int held_ = 0;
  bool turnOpen_ = false;
  bool pushedThisTurn_ = false;
  std::optional<std::string> pendingName_;
  bool pendingMerge_ = false;

  std::shared_ptr<MainActor::Timer> draftWork_;
  // Shared with draft writes running on a worker: a save or a discard bumps the
  // generation, under the lock, so a write taken before it never lands after it.
  struct DraftLane {
    std::mutex lock;
    std::uint64_t generation = 0;
  };
  std::shared_ptr<DraftLane> draftLane_ = std::make_shared<DraftLane>();
  std::deque<std::string> events_;

  void compileBlocking();
  std::vector<Blocking::Step> blockingSteps_;
  std::vector<Schedule::Cue> cues_;
  std::vector<BlockingDiagnostic> blockingDiagnostics_;
  VariantsStore::Index variantIndex_;
  std::optional<std::string> editingLabel_;
  std::string panelTab_ = "voice";
  std::vector<std::string> collapsed_;
  double playhead_ = 0;
  double pxPerSecond_ = 100;
  // Guards posted work against a model that is gone.
  LifetimeToken alive_;
  // After `alive_`: its failures reach the feed through a guard.
  SessionWriter sessionWriter_;
};

}  // namespace tavorin
