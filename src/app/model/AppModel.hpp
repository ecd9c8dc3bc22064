#pragma once
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model/AppModelFailure.hpp"
#include "app/model/Auditions.hpp"
#include "app/model/FieldValue.hpp"
#include "app/model/FilmExporter.hpp"
#include "app/model/MainActor.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/RenderQueue.hpp"
#include "app/model/Offloader.hpp"
#include "app/model/ToastCenter.hpp"
#include "base/LifetimeToken.hpp"
#include "kit/AgentPolicy.hpp"
#include "kit/Blocking.hpp"
#include "kit/Cut.hpp"
#include "kit/Export.hpp"
#include "kit/ExportTarget.hpp"
#include "kit/Subtitles.hpp"
#include "kit/Take.hpp"
#include "kit/TimelineGeometry.hpp"
#include "kit/Zoom.hpp"
#include "platform/Footage.hpp"
#include "kit/BlockingDiagnostic.hpp"
#include "kit/History.hpp"
#include "kit/LineEdits.hpp"
#include "kit/Retime.hpp"
#include "kit/Schedule.hpp"
#include "kit/SoundCue.hpp"
#include "kit/Recording.hpp"
#include "kit/SessionStore.hpp"
#include "app/model/SessionWriter.hpp"
#include "kit/VariantsStore.hpp"
#include "platform/Footage.hpp"
#include "platform/Transport.hpp"
#include "kit/VoiceGroups.hpp"
#include "kit/VoiceSpan.hpp"
#include "kit/VoiceSplit.hpp"
#include "voice/EngineAnswers.hpp"
#include "voice/VoiceEngines.hpp"
#include "voice/VoicePlan.hpp"

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
  // Where a verb sends its blocking part (a copy, a decode) before it acts on the model.
  Offloader& offloader() const { return offloader_; }
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

  // ---- Line edits: each one undo step, each refusing before it changes anything ----
  // Splits a line's text before character `at`; the new line follows at the gap.
  LineEdits::Split splitLine(const std::string& id, int at);
  LineEdits::Merge mergeLines(const std::vector<std::string>& ids);
  // Pins a run of neighbouring lines to render as one generation.
  LineEdits::Pin generateTogether(const std::vector<std::string>& ids);
  // The ids that were unpinned.
  std::vector<std::string> generateAlone(const std::vector<std::string>& ids);
  // Closes the generation the line landed in back onto its true offsets.
  Schedule::Glue glueLines(const std::string& id);

  // ---- Voice engines ------------------------------------------------------------
  // The engines, and how their questions run off this thread. Until given, the
  // model has the standard set and asks on this thread's next turn.
  void useVoiceEngines(std::shared_ptr<VoiceEngines> engines, EngineAnswers::Offload offload);
  const VoiceEngines& engines();
  // The production's engine.
  std::shared_ptr<VoiceDriver> driver();
  bool usesLocalServer() { return driver()->name() == "local"; }
  // Served from what the engines last said; "checking" until they answer.
  DriverHealth voiceHealth();
  DriverHealth health(const VoiceDriver& of);
  std::vector<DriverCharacter> cast();
  std::string rungSays();
  // Forgets every answer and asks again, noting the current engine's new line.
  void refreshDriver();
  std::string voiceModel() const;
  std::string voiceModelTitle();
  std::string namedVoice(const std::string& character, const std::optional<std::string>& voice);
  VoicePlan voicePlan(const TimelineItem& item, const Recording& in);
  std::optional<std::string> productionVoiceName();
  std::optional<std::string> productionVoiceRefusal();
  // Points the local engine at another server or key; app-wide, not in the production.
  void useLocalServer(const std::optional<std::string>& url, const std::optional<std::string>& key);
  int localServerRevision() const { return localServerRevision_; }

  // ---- Generations ---------------------------------------------------------------
  VoiceSpan voiceSpan() const;
  std::vector<VoiceGroups::Group> voiceGroups() const;
  std::optional<VoiceGroups::Group> voiceGroup(const std::string& id) const;
  bool isContiguous(const std::string& group) const;
  // Line id to the label of the last cue at or before its start.
  VoiceGroups::CueTags cueTags() const;
  // Gives a line an audio file of the user's own, copied into audio/; what follows
  // moves to fit its length. Answers the line's new length.
  double importVoice(const std::filesystem::path& file, const std::string& id);

  // ---- Renders ------------------------------------------------------------------
  // The words behind a file until it lands.
  struct Spoken {
    std::vector<std::pair<std::string, std::string>> lines;  // id, text
    std::string character;
    std::string voice;
  };
  // Made at first use; it lives as long as the model.
  RenderQueue& renders();
  const RenderQueue* rendersIfMade() const { return renders_.get(); }
  // Queues lines (widened to their generations); answers the ids queued.
  std::vector<std::string> render(const std::vector<std::string>& ids, bool force = false,
                                  std::optional<int> samples = std::nullopt, bool keepingLanded = false);
  std::vector<std::string> renderGroups(const std::vector<std::string>& ids, bool force, int samples,
                                        bool keepingLanded);
  std::vector<std::string> renderStale(bool includingApproved);
  // Every line not approved, afresh.
  void regenerateAllVoices();
  bool hasLanded(const VoiceGroups::Group& group) const;
  // What the queue asks: what a ticket is to speak, and where.
  RenderQueue::Plan renderJob(const std::string& ticket);
  RenderQueue::Plan groupJob(const std::string& ticket);
  // Where a finished ticket's audio goes.
  void applyRender(const std::string& ticket, const RenderResult& result);
  // A generation's audio cut at its pauses onto its lines, and what follows moved;
  // a refused cut is sent again once (with `retrying`), then spoken line by line.
  void landSlices(const VoiceGroups::Group& group, const RenderResult& result, const std::vector<VoiceSplit::Pause>& pauses,
                  bool retrying);
  int sampleCount() const { return sampleCount_; }
  // Held to 1...8.
  void setSampleCount(int n);
  const std::vector<std::string>& heldBackApproved() const { return heldBackApproved_; }
  const std::optional<std::string>& lastSplitRefusal() const { return lastSplitRefusal_; }
  const std::map<std::string, Spoken>& spoken() const { return spoken_; }
  const std::set<std::string>& fellBack() const { return fellBack_; }
  // Marks a line reviewed, or takes the mark back; without `on` it flips. Answers the new mark.
  bool approveLine(const std::string& id, std::optional<bool> on);

  // ---- Variants: every audio a line has had -------------------------------------
  // The line's list, with its live audio at the end when the index lacks it.
  std::vector<Variant> variants(const std::string& id) const;
  std::optional<Variant> liveVariant(const std::string& id) const;
  // Numbers a new variant (or replaces the entry for the same file and slice) and stores it.
  void keepVariant(Variant variant, const std::string& id);
  // Refuses noSuchSample.
  Variant variant(const std::string& id, int number) const;
  // Refuses cannotVoice when the file has gone.
  std::filesystem::path variantOnDisk(const std::string& id, int number) const;
  // Makes a variant the line's audio; for a slice of a generation, all its members move.
  void useVariant(const std::string& id, int number);
  // Takes a variant off the list; its file stays.
  void removeVariant(const std::string& id, int number);
  // Plays one variant alone through the attached output.
  void playVariant(const std::string& id, int number);
  const std::optional<int>& playingVariant() const { return playingVariant_; }
  // Where the casting room and the sound cues meet the queue; unset, auditions are refused.
  std::function<RenderQueue::Plan(const std::string&)> auditionJob;
  std::function<void(const std::string&, const RenderResult&)> auditionFinished;
  std::function<void(bool failed)> renderDrained;

  // ---- The sound cues ------------------------------------------------------------------
  // Sounds the cue through `cuePlayer` unless the set is muted or held; true when it sounded.
  bool sound(SoundCue cue);
  bool soundMuted() const;
  // Kept in the user's defaults, so a muted studio stays muted.
  void setSoundMuted(bool muted);
  // A harness (TAVORIN_SILENT, TAVORIN_SNAPSHOT) holds every cue silent, whatever the mute.
  bool soundHeld() const { return soundHeld_; }
  void holdSounds(bool held) { soundHeld_ = held; }
  std::function<void(SoundCue)> cuePlayer;
  // Opening another production clears the stage: a rehearsal of the last one stops.
  std::function<void()> clearStage;

  // ---- The casting room: hear a voice before casting it ---------------------------
  struct CastingCall {
    std::string character;
    std::optional<std::string> voice;
    std::optional<std::string> line;  // who the pick lands on; none for the production
    std::string tab = "voices";      // voices · past
  };
  static constexpr std::string_view castingPrompt =
      "Say you are marketing an app, and you want real people making videos about it.";
  // Made at first use, in the support folder.
  Auditions& auditions();
  const Auditions* auditionsIfMade() const { return auditions_.get(); }
  const std::optional<CastingCall>& castingCall() const { return castingCall_; }
  void openCasting(const std::optional<std::string>& character, const std::optional<std::string>& voice,
                   const std::optional<std::string>& line, const std::optional<std::string>& tab = std::nullopt);
  void closeCasting();
  // Moves the room onto a character and voice.
  void castingPick(const std::string& character, const std::optional<std::string>& voice);
  // Turns the room to its voices or to the auditions kept before ("voices" · "past").
  void castingTab(const std::string& tab);
  // Queues the words in the voice; answers the ticket.
  std::string audition(const std::string& character, const std::optional<std::string>& voice, const std::string& prompt);
  std::string auditionFromRoom(const std::optional<std::string>& character, const std::optional<std::string>& voice,
                               const std::optional<std::string>& prompt);
  // The voice's own clip when it has one, else a short line rendered in it; answers what happened.
  std::string hear(const std::string& character, const std::optional<std::string>& voice);
  std::string hearVoice(const std::optional<std::string>& line);
  // Casts on the room's line or the production; the room stays open.
  void castingUse(const std::optional<std::string>& character, const std::string& voice);
  // Casts a character and voice on a line or the production, without the room.
  void castOn(const std::optional<std::string>& line, const std::string& character, const std::optional<std::string>& voice);

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

  // ---- Agent steps: the production's policy, and what one step would spawn ----
  // Absent while the production has no policy of its own.
  std::optional<AgentPolicy> agentPolicy() const;
  struct AgentStepRef {
    int id = 0;  // the step's cue ordinal
    Blocking::AgentCall call;
    int sourceLine = 0;
  };
  std::vector<AgentStepRef> agentSteps() const;
  struct AgentCommand {
    AgentStepRef step;
    std::string cue;                 // the cue's label
    std::vector<std::string> argv;   // the program's path first
  };
  // The named step, or the first one; refuses noAgentStep. Nothing runs.
  AgentCommand agentCommand(std::optional<int> id, const std::string& program) const;
  // Each one undo step; an empty policy is stored as absent.
  void setAgentRules(std::optional<std::string> rules);
  void setAgentModel(std::optional<std::string> model);
  // Held between 0 and 2; nothing restores the default.
  void setAgentPace(std::optional<double> pace);
  void setAgentFences(const std::vector<std::string>& up);
  // The keyboard palette and the systems popover of the footer.
  bool keysPaletteOpen = false;
  bool systemsOpen = false;
  // The caption on the program monitor: the words under the playhead, as burned.
  bool monitorCaption = false;

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

  // ---- Takes, the cut and zooms ------------------------------------------------
  // Every take that reads, newest first; none with nothing open.
  std::vector<Take> takes() const;
  // The take the program monitor shows: the one picked, else the newest with film.
  std::optional<Take> monitorTake() const;
  // Picks the take the monitor shows and keeps a whole-take cut attached to it.
  void selectTake(const std::string& id);
  // What the next take films: `audio` given sets the sound, `app` given sets (or, blank,
  // clears) the app; an empty setting leaves no capture key at all.
  void setCapture(std::optional<bool> audio, std::optional<std::optional<std::string>> app);
  // Seconds of film of the monitor's take between its pads; refuses with noFootage.
  double cutFootage() const;
  // The cut in force, placed on the timeline (against no footage when there is no take).
  std::vector<Cut::Placed> placedSegments() const;
  // The new segment's id; the default place is the playhead.
  std::string splitPicture(std::optional<double> at = std::nullopt);
  // The seconds taken out.
  double removeSegment(const std::string& id);
  void setSegment(const std::string& id, std::optional<double> from, std::optional<double> to);
  void trimSegment(const std::string& id, std::optional<double> from, std::optional<double> to);
  void setSegmentRate(const std::string& id, double rate);
  // The new zoom's id; `at` defaults to the playhead.
  std::string addZoom(std::optional<double> at, std::optional<double> length, std::optional<double> scale,
                      std::optional<double> x, std::optional<double> y, std::optional<std::string> style);
  void removeZoom(const std::string& id);
  // Every change `zoom.set` can make, applied together as one step; each given field
  // is checked before any is written.
  struct ZoomChange {
    std::optional<double> from, to, at, scale, x, y;
    std::optional<std::string> style;
    // Present with no value: back to the style's own ramp.
    std::optional<std::optional<double>> ramp;
  };
  void changeZoom(const std::string& id, const ZoomChange& change);
  // The copy's id; `at` defaults to right after the original.
  std::string duplicateZoom(const std::string& id, std::optional<double> at = std::nullopt);
  std::vector<Zoom> zooms() const;
  // The zooms whose ids are picked, in time order.
  std::vector<Zoom> selectedZooms() const;
  // The segment a ripple delete takes: the first picked one, else the one under the playhead.
  std::optional<std::string> rippleTarget() const;
  // The id taken out; refuses when nothing is under the playhead.
  std::string rippleDelete();
  std::vector<Cut::Placed> selectedSegments() const;

  // ---- Footage coming in, and the program monitor ----------------------------
  // What the program monitor shows: nothing, a still, a take, or a take whose film is gone.
  enum class Viewer { empty, still, take, missing };
  Viewer viewer() const;
  const std::optional<std::filesystem::path>& monitorStill() const { return monitorStill_; }
  // Routes a file as a drop does: a film becomes a take on the monitor, a sound a bed at
  // `at` (or the playhead), a picture the still on the monitor; anything else is refused
  // by name. Copying and probing run on the offloader; `done` runs on the actor with the
  // failure, if any, once the file has landed.
  using Done = std::function<void(std::exception_ptr)>;
  void importFile(const std::filesystem::path& file, std::optional<double> at, Done done);
  // The take or the bed the last import or replacement made.
  const std::optional<std::string>& lastImported() const { return lastImported_; }
  // A film in place of the take on the monitor: a new imported take the cut follows.
  void replaceTake(const std::filesystem::path& file, Done done);
  // Leaves the monitor empty; the take stays in takes/.
  std::optional<std::string> clearMonitor();
  // Opens the take's folder in the file manager; the launcher runs off the actor.
  void revealTake(const std::string& id, Done done);
  // What the film of a take says of itself, probed off the actor once and kept.
  void probeTake(const Take& take, std::function<void(const Footage::Answer&)> done);
  std::optional<Footage::Answer> probed(const Take& take) const;

  // ---- Lanes of the timeline ---------------------------------------------------
  // Hidden lanes are the user's, kept in the defaults across productions and launches.
  std::set<TimelineGeometry::Lane> hiddenLanes() const;
  void setLaneHidden(TimelineGeometry::Lane lane, bool hidden);
  void showAllLanes();
  std::vector<TimelineGeometry::Lane> visibleLanes() const;
  const std::set<TimelineGeometry::Lane>& mutedLanes() const { return mutedLanes_; }
  // Voice and music only: the other lanes make no sound.
  void setLaneMuted(TimelineGeometry::Lane lane, bool muted);
  bool showWaveforms = true;
  // Whether the last zoom was a fit of the production to the window.
  bool fitted() const { return fitted_; }
  void zoomTimeline(double px);
  // Sizes up to a minute of the production to `width` pixels; the new pixels a second.
  double fitTimeline(double width);
  TimelineGeometry geometry() const;

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

  // ---- Transport ---------------------------------------------------------------
  double playhead() const { return playhead_; }
  void setPlayhead(double seconds) { playhead_ = seconds < 0 ? 0 : seconds; }
  // The sound device. The process attaches the desktop's output; tests attach an
  // offline one. Without one, playing is refused. Decoding goes through the offloader.
  void attachAudio(AudioOutput& output);
  // Null until audio is attached.
  const Transport* transport() const { return transport_.get(); }
  // Plays from `from`, or the playhead. Lines without audio stay silent; see skippedLines.
  void playTransport(std::optional<double> from = std::nullopt);
  void pauseTransport();
  // Stops and returns the playhead to where the play began.
  void stopTransport();
  void togglePlay();
  // Held to 0 and the film's length; playing, it plays on from there.
  void seek(double to);
  // The surface's timer: the playhead from what the output reports; the end stops it.
  void tickTransport();
  bool isPlaying() const;
  const std::vector<std::string>& skippedLines() const;
  // One line alone, at its rate, from its slice; refuses notRendered.
  void playLine(const std::string& id);
  void stopLine();
  // "film" or "seconds": how the readout and the ruler count time.
  const std::string& timecodeFormat() const { return timecodeFormat_; }
  void setTimecodeFormat(const std::string& format);
  // The playhead in the readout's format.
  std::string timecode(double seconds) const;

  // ---- Music beds ------------------------------------------------------------------
  // Lays a file already copied into music/ (as `name`, `seconds` long) on the lane at
  // `at`, or the playhead. The copy is blocking work the caller did off the actor.
  std::string addMusic(const std::string& name, double seconds, std::optional<double> at = std::nullopt);
  void trimMusic(const std::string& id, double in, double out);
  // A drag of a bed's edge to a time on the timeline: the left edge trims the head
  // and moves the start with it, the right edge trims the tail.
  enum class MusicEdge { left, right };
  void trimMusicByEdge(const std::string& id, MusicEdge edge, double toTimelineTime);
  // Where a fetched bed came from.
  void setMusicSource(const std::string& id, const std::string& url);
  void setMusicGain(const std::string& id, double db);
  void removeMusic(const std::string& id);
  // Plays the trimmed part alone; stops on its own at the trim out.
  void previewMusic(const std::string& id);
  // The bed a verb means: the id given, else the picked bed, else the only one.
  std::string musicTarget(const std::optional<std::string>& id) const;
  // The bed whose editor is open in the panel.
  const std::optional<std::string>& editingMusic() const { return editingMusic_; }
  void editMusic(const std::optional<std::string>& id);
  double pxPerSecond() const { return pxPerSecond_; }
  void setPxPerSecond(double px) { pxPerSecond_ = px; }

  // ---- Export ------------------------------------------------------------------------
  // The film-making machine; the process gives one that runs ffmpeg. Without one,
  // exporting is refused.
  void useExporter(std::unique_ptr<FilmExporter> exporter);
  FilmExporter* exporter() const { return exporter_.get(); }
  // Where a finished export goes when its destination is YouTube: the upload.
  std::function<void(const std::filesystem::path&)> onExportDelivered;
  // Another production opened, or the finished export was put aside: what the last
  // upload came to is no longer this film's news.
  std::function<void()> onPublishForgotten;
  // Hands a finished film to the export's destination: YouTube uploads it, Clipboard
  // puts it on the pasteboard, File copies it into the chosen folder. export/ keeps
  // the original whatever happens to the copy.
  void deliver(const std::filesystem::path& film);
  // The folder the sheet's save panel chose for File; without one the film stays in
  // export/ only, as a verb-driven export leaves it.
  void chooseDeliveryFolder(std::optional<std::filesystem::path> folder);
  const std::optional<std::filesystem::path>& deliveryFolder() const { return deliveryFolder_; }
  // The save panel: asked off the actor with the folder to start in, it answers the
  // folder chosen or nothing when the person cancelled, and throws its sentence when
  // it cannot be shown. The process gives the desktop's; without one the sheet's
  // File export keeps the film in export/ only.
  std::function<std::optional<std::filesystem::path>(const std::filesystem::path& start)> folderChooser;
  // The sheet's act: File asks the save panel first and exports once a folder is
  // chosen; every other destination exports at once.
  void exportFromSheet();
  // The save panel is up; the sheet's export waits on it.
  bool choosingDeliveryFolder() const { return choosingFolder_; }
  // The pasteboard type a delivered film travels under, as file managers paste it.
  static constexpr std::string_view filmPasteboardType = "text/uri-list";
  bool exportRunning() const;
  // A done or failed export goes back to idle, as when its sheet closes.
  void forgetFinishedExport();
  // The take an export uses: the one chosen for export, else the monitor's when it is
  // complete, else the newest complete take with film.
  std::optional<Take> exportTake() const;
  // The export sheet's take row; nothing goes back to the automatic choice.
  void chooseExportTake(const std::optional<std::string>& id);
  const std::optional<std::string>& chosenExportTake() const { return exportTakeId_; }
  // Why there is no film to export, or nothing.
  std::optional<std::string> missingFootage() const;
  // Why an export cannot start now, or nothing.
  std::optional<std::string> canExport() const;
  // One run's choices over the stored target; nothing is written to the production.
  struct ExportRequest {
    std::optional<std::string> take;
    std::optional<bool> subtitles;
    std::optional<int> height;
    std::optional<int> fps;
    std::optional<ExportQuality> quality;
    std::optional<ExportFormat> format;
  };
  // Starts the film and answers where it will land, in export/.
  std::filesystem::path exportFilm(const ExportRequest& request = {});
  void cancelExport();
  // The stored target, or an empty one.
  ExportTarget exportTarget() const;
  // What the export take's film is: its size, rate and sound, asked once per file.
  Footage::Answer exportFootage() const;
  // What the stored target means for the film in hand; nothing without a film.
  std::optional<ExportSize> exportSize() const;
  std::optional<long long> exportSizeBytes() const;
  // Seconds and bytes the next run should cost; `learned` says whether the clock is a
  // measured one of this machine at this height.
  struct ExportEstimate {
    double seconds = 0;
    std::optional<long long> bytes;
    bool learned = false;
  };
  std::optional<ExportEstimate> exportEstimate() const;
  void setExportTarget(ExportTarget target);
  void setExportFormat(ExportFormat format);
  // Nothing goes back to the film's own height; a height above it is refused.
  void setExportHeight(std::optional<int> height);
  void setExportQuality(ExportQuality quality);
  // Nothing goes back to the film's own rate.
  void setExportFps(std::optional<int> fps);
  void setExportDestination(ExportDestination destination);
  // A film in export/.
  struct ExportedFilm {
    std::filesystem::path path;
    std::uintmax_t bytes = 0;
    std::filesystem::file_time_type written;
  };
  // Newest first.
  std::vector<ExportedFilm> exportedFilms() const;

  // ---- The look: what the picture sits on ---------------------------------------------
  // Nothing flips it; turning on a production with no look brings the fresh one.
  void toggleLook(std::optional<bool> on = std::nullopt);
  void setLookPadding(double padding);
  void setLookRadius(double radius);
  void setLookShadow(bool shadow);
  void setLookPreset(const std::string& id);
  void setLookColor(const std::string& color);
  // Copies the image into look/ and keeps the copy's relative path.
  void setLookImage(const std::filesystem::path& from);

  // ---- Subtitles -------------------------------------------------------------------------
  // Nothing flips it.
  void toggleSubtitles(std::optional<bool> burn = std::nullopt);
  // Blank goes back to the house face.
  void setSubtitleFont(const std::string& family);
  // A face drawn on the monitor without being written; blank puts the chosen one back.
  void previewSubtitleFont(const std::string& family);
  const std::optional<std::string>& previewFont() const { return previewFont_; }
  void setSubtitleSize(double percent);
  void setSubtitleAnchor(double x, double y);
  void setSubtitlePosition(Subtitles::Position position);

  // ---- Events --------------------------------------------------------------
  // The feed, oldest first; every state change of weight adds a line.
  const std::deque<std::string>& events() const { return events_; }
  void note(std::string line);

  // A revision of the production in `dir` lands as a new version file while the head
  // stays where it was, so nothing on screen moves; answers the version's name. Throws
  // "revision could not be written: ..." when the store refuses.
  std::string landRevision(const std::filesystem::path& dir, const Recording& revised);

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
  std::optional<std::string> pickedTake_;
  // The monitor was emptied by hand; no take shows until one is picked.
  bool monitorCleared_ = false;
  std::optional<std::filesystem::path> monitorStill_;
  std::optional<std::string> lastImported_;
  std::map<std::filesystem::path, Footage::Answer> probes_;
  std::set<TimelineGeometry::Lane> mutedLanes_;
  mutable std::optional<std::set<TimelineGeometry::Lane>> hiddenLanes_;
  mutable std::optional<bool> soundMuted_;
  // Writes one key of the user's defaults off the actor; a failure is noted with `failureWords`.
  void saveDefault(const std::string& key, bool value, const std::string& failureWords);
  bool soundHeld_ = SoundCues::heldByHarness(std::getenv("TAVORIN_SILENT"), std::getenv("TAVORIN_SNAPSHOT"));
  bool fitted_ = false;
  void landTake(const Take& take, const std::string& summary);
  void importFilm(const std::filesystem::path& file, std::optional<std::string> replacing, Done done);
  // The production as the transport should sound it: muted lanes carry no audio.
  Recording audible() const;
  void commitZoom(Recording next, const std::string& summary);
  // The film's cut edits end here: the segments take the monitor's take, then the draft.
  void commitCut(Recording next, const std::string& summary);
  const Cut::Placed& oneSegment(const std::vector<Cut::Placed>& placed, const std::string& id) const;
  std::string panelTab_ = "voice";
  std::vector<std::string> collapsed_;
  double playhead_ = 0;
  double pxPerSecond_ = 100;
  std::unique_ptr<Transport> transport_;
  std::shared_ptr<MainActor::Timer> transportTick_;
  void scheduleTick();
  void requireTransport();
  std::string timecodeFormat_ = "seconds";
  std::optional<std::string> editingMusic_;
  void askDriversOnce(bool announce);
  void editVoiceField(Recording& next, const std::string& field, const std::string& value);
  std::shared_ptr<VoiceEngines> engines_;
  std::unique_ptr<EngineAnswers> answers_;
  int localServerRevision_ = 0;
  // Renders and variants.
  void landLine(const std::string& id, const std::string& file, const RenderResult& result, const Spoken* said);
  void landGroup(const std::string& ticket, const RenderResult& result, const std::string& file, std::optional<Spoken> said);
  void keepSlices(const std::string& hash, const RenderResult& result, const std::string& file,
                  const std::optional<Spoken>& said, const std::vector<VoiceSplit::Pause>& pauses);
  void splitRefused(const VoiceGroups::Group& group, const std::string& why);
  void drainedRenders(bool failed);
  std::optional<Variant> unkeptLive(const std::string& id, const std::vector<Variant>& among) const;
  void keepLive(const std::string& id);
  void storeVariants(std::vector<Variant> list, const std::string& id, const std::optional<Variant>& restoring = {},
                     const std::optional<Variant>& removing = {});
  void useGroupVariant(const VoiceGroups::Group& group, const Variant& chosen);
  std::optional<VoiceGroups::Group> sampledGroup(const std::string& id) const;
  void silenceLine(const std::string& id);
  void writeVariants(const std::string& id);
  // While held, the index is written once when the hold ends: a generation's slices land as one write.
  int variantWritesHeld_ = 0;
  std::optional<std::string> heldVariantWrite_;
  class VariantWrites {
   public:
    explicit VariantWrites(AppModel& m) : m_(m) { ++m_.variantWritesHeld_; }
    ~VariantWrites() {
      if (--m_.variantWritesHeld_ == 0 && m_.heldVariantWrite_) {
        const std::string id = *m_.heldVariantWrite_;
        m_.heldVariantWrite_.reset();
        m_.writeVariants(id);
      }
    }
    VariantWrites(const VariantWrites&) = delete;
    VariantWrites& operator=(const VariantWrites&) = delete;

   private:
    AppModel& m_;
  };
  std::unique_ptr<RenderQueue> renders_;
  std::unique_ptr<Auditions> auditions_;
  std::optional<CastingCall> castingCall_;
  std::map<std::string, Spoken> spoken_;
  std::map<std::string, double> sampleDurations_;
  std::set<std::string> fellBack_;
  std::set<std::string> retriedGroups_;
  std::optional<std::string> lastSplitRefusal_;
  int sampleCount_ = 1;
  std::vector<std::string> heldBackApproved_;
  std::optional<int> playingVariant_;
  std::shared_ptr<MainActor::Timer> variantEnd_;
  // Guards posted work against a model that is gone.
  LifetimeToken alive_;
  std::unique_ptr<FilmExporter> exporter_;
  std::optional<std::string> exportTakeId_;
  std::optional<std::filesystem::path> deliveryFolder_;
  bool choosingFolder_ = false;
  std::optional<std::string> previewFont_;
  // The take's id and the clock when the running export started, for its speed.
  std::optional<std::pair<std::string, MainActor::Clock::time_point>> exportStarted_;
  double exportFilmSeconds_ = 0;
  std::string exportSpeedKey_;
  mutable std::optional<std::map<std::string, double>> exportSpeeds_;
  mutable std::map<std::string, Footage::Answer> footageAnswers_;
  void exportEnded(FilmExporter::Phase phase);
  void commitExportTarget(ExportTarget target, const std::string& event);
  void commitLook(Look look, const std::string& step, const std::string& event, bool merging = false);
  void commitSubtitles(SubtitleStyle style, const std::string& event, bool merging = false);
  // After `alive_`: its failures reach the feed through a guard.
  SessionWriter sessionWriter_;
};

}  // namespace tavorin
