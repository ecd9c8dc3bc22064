#include "operator/OperatorManifest.hpp"

#include <stdexcept>

namespace tavorin {

namespace {

std::string member(const JSONValue& value, const char* key, const char* what) {
  const JSONValue* m = value[key];
  if (!m || !m->stringValue())
    throw std::runtime_error(std::string(what) + " needs a text `" + key + "`");
  return *m->stringValue();
}

bool flag(const JSONValue& value, const char* key, const char* what) {
  const JSONValue* m = value[key];
  if (!m || !m->boolValue())
    throw std::runtime_error(std::string(what) + " needs a true or false `" + key + "`");
  return *m->boolValue();
}

// The rows in the order `tavorinctl verbs` prints them. Groups are not contiguous
// on purpose: a verb stands where it reads best, and former spellings (`modes`,
// `takes`, `render.flow`) keep rows of their own so that old scripts go on running.
std::vector<VerbSpec> makeTable() {
  return {
    {"ping", "status",
     "Is the operator server responding?",
     {},
     false},
    {"status", "status",
     "App version, the open production, line count, length, and what is playing.",
     {},
     false},
    {"where", "status",
     "The page the window shows: script, edit or library.",
     {},
     false},
    {"elements", "status",
     "All onscreen controls: id, role, label, enabled — organized by the page's panels, each with its "
     "`frame`. Overlap can be measured, not photographed.",
     {},
     false},
    {"events", "status",
     "The event feed of this launch, oldest first: every act of weight, one line each, the last 500 of "
     "them. Nothing here outlives the launch.",
     {},
     false},
    {"toasts", "status",
     "The toasts standing at the top right of the window, newest first, with the seconds each has left. A "
     "toast under the pointer holds its clock, which `held` reports. Dismissing one is the same act as its "
     "x, or a middle click anywhere on it. A failure toast has no clock at all and stands until it is "
     "dismissed. `holds` reports that one, and its seconds read 0. Five cards stand at a time; `overflow` "
     "counts the ones behind the '+N more' card.",
     {
      {"dismiss", false,
       "Toast id, `overflow` for the ones behind the counter, or `all` to clear the stack."}},
     true},
    {"snapshot", "status",
     "Photograph the window to a PNG without quitting the app. The picture comes from the window server, "
     "so video on the program monitor is in it. A CPU render leaves that black. Needs a display to capture "
     "and says so by name without one. Answers with the file's real `pixels`. Names its own failure: no "
     "picture, or no answer inside four seconds.",
     {
      {"path", true,
       "Destination path for the PNG."},
      {"settle", false,
       "Delay in seconds before motion ends (default 0.3)."}},
     false},
    {"nav", "nav",
     "Open a page or a flow over it.",
     {
      {"route", true,
       "script · edit · library[:project]. `shoot` and `export` raise their sheets over the page you are "
       "on rather than moving you; the former names (render, projects, dailies[:project], editor[:mode]) "
       "still work."}},
     true},
    {"pages", "nav",
     "The pages of the window in order, and which one is showing. With the script page turned off it is "
     "left out.",
     {},
     false},
    {"modes", "nav",
     "Deprecated alias for `pages`; kept so older scripts still run.",
     {},
     false},
    {"shoot", "nav",
     "Raise the Shoot slate over the current page — the Script pane's `Run and record` button.",
     {},
     true},
    {"export.flow", "nav",
     "Raise the Export sheet over the page you are on — the top bar's `Export` button. Export is an act, "
     "not a place, so this never moves you.",
     {},
     true},
    {"export.youtube", "nav",
     "Raise the Export sheet with its destination set to YouTube — the same sheet `export.flow` opens, "
     "on the segment a hand would pick. Armed, the sheet asks once: the export runs, the upload follows "
     "it, and the link lands in the same sheet.",
     {},
     true},
    {"export.dismiss", "nav",
     "Lower the Export sheet without exporting — the sheet's close button. The page beneath does not "
     "move.",
     {},
     true},
    {"render.flow", "nav",
     "Former spelling of `export.flow`; retained for script compatibility.",
     {},
     true},
    {"flow.end", "nav",
     "Close whatever is open over the page — the Export sheet or the slate.",
     {},
     true},
    {"project.list", "library",
     "The projects in the productions folder (~/Tavorin, or TAVORIN_ROOT when set), with the one the "
     "Library shows.",
     {},
     false},
    {"project.create", "library",
     "Make a new, empty project and show it in the Library — the Library's New project button. Refused "
     "when a project of that name already exists.",
     {
      {"name", true,
       "Display name; the folder's name derives from it."}},
     true},
    {"project.open", "library",
     "Show a project in the Library: its recordings and its trash. Nothing opens in the editor.",
     {
      {"name", true,
       "Project slug or name."}},
     true},
    {"project.duplicate", "library",
     "Clone the open project. The copy sits beside it as <name>_cloned_<timestamp> and holds every "
     "recording, version, take and wav it holds. Nothing opens: the clone joins Projects and you stay "
     "where you are.",
     {},
     true},
    {"project.trash", "library",
     "Move a project and every recording in it to the desktop's Trash, where a file manager can put it back. Refused "
     "while a recording from it is open in the editor.",
     {
      {"name", true,
       "Project slug or name."}},
     true},
    {"recording.list", "library",
     "The recordings of the project the Library shows: slug, title, length, lines, stale lines, versions, "
     "takes, head and when each was last touched.",
     {},
     false},
    {"recording.open", "library",
     "Open a recording of the current project in the editor, as a click on its card in the Library does.",
     {
      {"slug", true,
       "Recording slug."}},
     true},
    {"recording.duplicate", "library",
     "Copy a recording within its project under a fresh slug. The copy's title ends in ' copy', it starts "
     "from a new version, and unsaved work stays behind. Refused while a take is rolling.",
     {
      {"slug", true,
       "Recording slug."}},
     true},
    {"recording.trash", "library",
     "Move a recording to the project's trash. Reversible; nothing is deleted.",
     {
      {"slug", true,
       "Recording slug."}},
     true},
    {"recording.restore", "library",
     "Bring a recording back from the project's trash. It gets its slug back, with a number added when "
     "another recording has taken it since.",
     {
      {"entry", true,
       "Trash entry name; see `recording.trashed`."}},
     true},
    {"recording.trashed", "library",
     "What lies in the current project's trash: each entry's name, the slug it had and its title. "
     "`recording.restore` takes the entry.",
     {},
     false},
    {"open", "production",
     "Open a production folder in the editor, as File → Open… does. Unsaved work of the production "
     "that was open stays on disk as its draft. A folder without a manifest.json is refused by name.",
     {
      {"dir", true,
       "Path to a production folder."}},
     true},
    {"lines", "production",
     "Shows line properties including id, text, start time, duration, speech rate, approval status, and "
     "stale reasons. Includes the generation, the slice offset, the rule that placed the slice, and "
     "whether the generation remains unbroken on the timeline.",
     {},
     false},
    {"lines.glue", "production",
     "Close a line's generation back up: its slices return to their true offsets inside the one rendered "
     "audio, and the lines after them move to make room. A line that was not rendered as part of a "
     "generation has nothing to glue.",
     {
      {"id", true,
       "Line id, e.g. l1; its whole generation moves."}},
     true},
    {"line.split", "production",
     "Split a line in two at a character, as the caret does in the script. The second half becomes a new, "
     "unapproved line placed after the first, and the rendered length is shared by how long each half "
     "takes to say. A split at either end of the text is refused.",
     {
      {"id", true,
       "Line id, e.g. l1."},
      {"at", true,
       "Characters from the start of the text; the second half begins there."}},
     true},
    {"lines.merge", "production",
     "Merge neighbouring lines into the first of them: the texts join with a space, the lengths add up, "
     "and the merged line goes back to unapproved. Refused unless the lines form one unbroken run.",
     {
      {"ids", true,
       "Two or more line ids, comma-separated, e.g. l2,l3."}},
     true},
    {"lines.together", "production",
     "Pin neighbouring lines so that they always render as one generation, whatever the production's span. "
     "The pin is named after the first line. Refused unless the lines form one unbroken run of two or "
     "more.",
     {
      {"ids", true,
       "Comma-separated line ids, e.g. l2,l3,l4."}},
     true},
    {"lines.alone", "production",
     "Take the pin off lines, so that each renders by the production's span again. The answer names the "
     "lines that were unpinned; a line without a pin is passed over.",
     {
      {"ids", true,
       "Comma-separated line ids."}},
     true},
    {"drop", "production",
     "What dropping a path on the studio does. A production opens, a project scopes the Library, video, audio "
     "and stills go through the import router, and anything else is named back to you.",
     {
      {"path", true,
       "A folder or a file."}},
     true},
    {"recent", "production",
     "Productions opened before, newest first — the File → Open Recent list. Anything no longer on "
     "disk is already gone from it. `open dir=` is how you reopen one.",
     {},
     false},
    {"recent.clear", "production",
     "Empty the list of recent productions — File → Open Recent → Clear Menu. Nothing on disk is "
     "touched.",
     {},
     true},
    {"run", "run",
     "Run the blocking script. Dry by default; it touches nothing.",
     {
      {"dry", false,
       "dry=1 (default): plan only, no contact."},
      {"rehearse", false,
       "rehearse=1: perform live, record nothing. An `agent` step is shown and held — only a rolling take "
       "spawns one."}},
     true},
    {"run.plan", "run",
     "The blocking compiled to timed events, with nothing run: each step's id, time, kind, label and "
     "script line, the plan's length, and the steps the runner would skip.",
     {},
     false},
    {"run.status", "run",
     "Running, elapsed, what's next, how far it got. `agentStep` is the `agent` step driving the screen "
     "right now (prompt, timeout, elapsed) or null; `heldAgents` are the prompts a rehearsal showed and "
     "did not spawn.",
     {},
     false},
    {"run.abort", "run",
     "Stop a run or a rehearsal where it stands. An `agent` step it started is told to stop too, and "
     "`run.status` says how far it got.",
     {},
     true},
    {"agent.policy", "run",
     "Read or set what every `agent` step in this production is allowed to do: the rules text added to its "
     "system prompt, the model it runs on, and the fences. Full access is the default and no fence is up "
     "until you put one up. These live in the version file, beside the lines.",
     {
      {"rules", false,
       "What the agent must not do. Blank clears it."},
      {"model", false,
       "sonnet, opus, haiku or fable."},
      {"deny", false,
       "Comma-separated fences: fileEdits, shell. `deny=` takes them all down."},
      {"pace", false,
       "Seconds the runner keeps between two steps it performs back to back, 0 to 2. Default 0.15. A `wait` "
       "or `hold` of your own switches it off for that pair. `pace=` restores the default."}},
     true},
    {"agent.command", "run",
     "The exact command line one `agent` step would spawn, argument by argument, with the model, the "
     "effort, the rules and the fences already resolved. Nothing runs. The environment is not printed and "
     "is stripped of `ANTHROPIC_API_KEY` and every `TAVORIN_*` before a child sees it.",
     {
      {"id", false,
       "Cue ordinal of the step; omit for the first one."}},
     false},
    {"record", "record",
     "Roll a take: camera check, slate pad, run blocking, tail pad, cut. Footage saves in takes/ with its "
     "version and schedule. The check comes first and nothing is written until it passes, so a held system "
     "confirmation fails this verb in about three seconds instead of filming a black take.",
     {},
     true},
    {"camera", "record",
     "Point ScreenCaptureKit at Tavorin's own window and wait three seconds for one frame. `proven` means "
     "the camera works right now. `blocked` means the system is holding its periodic screen-capture "
     "confirmation and a person has to answer it; every `record` refuses until they do. This is the same "
     "check the permissions sheet runs and the same one a roll runs first.",
     {},
     true},
    {"record.stop", "record",
     "Cut the take that is rolling. During the countdown the take never comes to exist; once filming, what "
     "was shot is kept as an aborted take with a playable film.",
     {},
     true},
    {"record.status", "record",
     "Rolling status, current phase (slate, performing, tail, finalizing), elapsed time, take id, and "
     "remaining time: `planned`, `total`, `remaining`. `planned` is the performance's own length — the "
     "schedule's while nothing rolls, the length locked in at Roll while one does — and `total` adds the "
     "count and both pads. `remaining` is zero at rest. Also `clock`, the exact string shown in the menu "
     "bar (null if empty) — it counts up while `agentStep` is running, because the schedule stops "
     "knowing when the take ends.",
     {},
     false},
    {"take.list", "record",
     "All takes, newest first: id, length, status, source (shot or imported), film presence on disk, and "
     "which take the program monitor displays.",
     {},
     false},
    {"takes", "record",
     "Former spelling of `take.list`; retained for script compatibility.",
     {},
     false},
    {"take.select", "record",
     "Put a take on the program monitor; the edit and the export follow it. A cut that covers the whole "
     "take grows or shrinks with the new one.",
     {
      {"id", true,
       "Take id; see `take.list`."}},
     true},
    {"import", "record",
     "Give the app a file; the router routes it: video turns into a take on the monitor, audio becomes a "
     "bed at the playhead, an image replaces the picture, other types are rejected by name. Use the same "
     "path as the window drop and File → Import… take.",
     {
      {"path", true,
       "Path to a file."},
      {"at", false,
       "Seconds for audio; default is the playhead."}},
     true},
    {"viewer.info", "record",
     "Program monitor display: empty, still, take, missing; shows the take's id, film, picture location in "
     "the file, and running status.",
     {},
     false},
    {"shoot.info", "record",
     "What the Shoot slate shows before a roll: whether the camera may roll and, when not, why; the "
     "warnings about skipped steps, stale lines and lines with no audio; the planned length; and what the "
     "take will film.",
     {},
     false},
    {"take.remove", "record",
     "Take the film off the program monitor and leave it empty. Nothing is deleted: the take stays in "
     "takes/ and `take.select` puts it back. Refused while a take is rolling.",
     {},
     true},
    {"take.replace", "record",
     "Put another film on the monitor in place of the take there: the file is copied into takes/ as a new "
     "imported take, and the cut follows it. The old take stays on disk.",
     {
      {"path", true,
       "Path to a video file."}},
     true},
    {"take.reveal", "record",
     "Show a take's folder, with its film and its take.json, in the file manager.",
     {
      {"id", true,
       "Take id; see `takes`."}},
     true},
    {"take.dismiss", "record",
     "Put away the report of a finished take and go back to the slate, ready for the next roll. The take "
     "itself stays.",
     {},
     true},
    {"capture", "record",
     "What a take records: the app it films, the frame rate, and whether the computer's own sound goes in. "
     "Sound is muted unless you say otherwise, which is what every take before this recorded. Unmuted, the "
     "next take carries an audio track and the export mixes it under the voice.",
     {
      {"audio", false,
       "audio=1 records the computer's sound; audio=0 mutes it."},
      {"app", false,
       "app=<name> films that app's largest window; any running app with a window."}},
     true},
    {"viewer.caption", "record",
     "Show or hide the caption on the program monitor: the words of the line under the playhead, drawn the "
     "way the export burns them. Only the monitor changes; the export burns what `subtitles` says.",
     {
      {"show", false,
       "show=1 draws it, show=0 hides it; omit to flip."}},
     true},
    {"keys", "system",
     "All keyboard shortcuts the app binds, and which of them the palette calls most useful. The palette "
     "is a floating window raised by the keyboard button on the footer bar, or by `?`.",
     {
      {"show", false,
       "show=1 raises the palette."},
      {"hide", false,
       "hide=1 puts it away."}},
     true},
    {"systems", "system",
     "The footer's systems readout: the engine, the grants and the camera in one line, with the three rows "
     "the popover draws. `open` drives the popover.",
     {
      {"open", false,
       "open=1 raises the popover, open=0 puts it away."}},
     true},
    {"permissions", "system",
     "Live view of the full ritual: screen capture of the display, input through XTest, the browser's "
     "DevTools connection and its JavaScript. Every row carries the line and the button the sheet draws. "
     "`identity` names the copy of Tavorin the checks are made for, with its pid and the two quiet lines the "
     "sheet prints under the rows.",
     {},
     false},
    {"permissions.open", "system",
     "Open the system's settings where a grant is given — a row's settings button on the permissions "
     "sheet. Tavorin cannot flip the switch itself; after some grants it has to be relaunched.",
     {
      {"which", true,
       "screenRecording · accessibility · automation · chrome."}},
     true},
    {"permissions.show", "system",
     "Raise the permissions sheet over the page you are on — Tavorin → Permissions… in the menu. It "
     "stays until dismissed.",
     {},
     true},
    {"permissions.dismiss", "system",
     "Dismiss the sheet; it remains hidden until next launch, an explicit request, or the slate's refusal.",
     {},
     true},
    {"fonts", "system",
     "Check if the design's faces (Archivo, IBM Plex Mono) registered; if not, note the failure. The app "
     "falls back to system faces, allowing this check.",
     {},
     false},
    {"origin", "agent",
     "Origin of this production: verbatim prompt, agent, session, timestamp. Displays clearly when no "
     "record exists.",
     {},
     false},
    {"recording.new", "agent",
     "Seed a production from a sentence and open it. The sentence is kept verbatim. With a title and no "
     "prompt it makes a blank recording, as the Library's New recording button does.",
     {
      {"prompt", false,
       "What the production should be — kept byte-for-byte."},
      {"title", false,
       "Show title; the slug derives from it."}},
     true},
    {"revise", "agent",
     "Request an agent to modify the production. The reply creates a NEW version; head stays unchanged, "
     "allowing review and rejection.",
     {
      {"instruction", true,
       "What should change."}},
     true},
    {"revise.status", "agent",
     "Where a revision got to: idle, thinking, landed or failed, with the version it landed as, or the "
     "reason it failed in claude's own last words.",
     {},
     false},
    {"diff", "versions",
     "Differences between two versions, expressed by the timeline. Defaults to version before head versus "
     "head.",
     {
      {"from", false,
       "Version, e.g. v0001."},
      {"to", false,
       "Version, e.g. v0002."}},
     false},
    {"diff.raw", "versions",
     "The two version files compared line by line, with a few lines of context around each change: the "
     "JSON behind what `diff` reports.",
     {
      {"from", false,
       "Version, e.g. v0001. Defaults to the one before head."},
      {"to", false,
       "Version, e.g. v0002. Defaults to head."}},
     false},
    {"save", "versions",
     "Create a new version, advance head, and clear the draft.",
     {},
     true},
    {"versions", "versions",
     "Every saved version, oldest first, with the head marked, the one being viewed if any, and whether "
     "unsaved work waits on disk as a draft.",
     {},
     false},
    {"version.open", "versions",
     "Open a version read-only; head opens normally.",
     {
      {"name", true,
       "Short name like v0004 or full file name from `versions`."}},
     true},
    {"version.menu", "versions",
     "Open or close the list of saved versions under the version chip in the top bar, where a version is "
     "viewed or made head.",
     {
      {"close", false,
       "close=1 puts it away; left out, it opens."}},
     true},
    {"version.head", "versions",
     "Set head to a version; it becomes the base for the next save.",
     {
      {"name", true,
       "Short name like v0004 or full file name from `versions`."}},
     true},
    {"draft", "versions",
     "Report unsaved work on disk and its base version.",
     {},
     false},
    {"revert", "versions",
     "Drop the draft and reload the head.",
     {},
     true},
    {"copy", "edit",
     "Put the selection on the pasteboard as readable JSON.",
     {},
     false},
    {"cut", "edit",
     "Put the selection on the pasteboard and take it off the timeline. A segment of picture cut this way "
     "takes its time with it, so what follows slides left. `undo` puts it back.",
     {},
     true},
    {"paste", "edit",
     "Paste timeline items at the playhead. New ids are minted. Pasted lines stay unrendered as they are "
     "new.",
     {
      {"at", false,
       "Seconds; default is the playhead."},
      {"text", false,
       "JSON to paste; default is the system pasteboard."}},
     true},
    {"delete", "edit",
     "Remove items from the timeline: lines, labels, beds, zooms or segments of picture. Their files stay "
     "on disk and `undo` puts them back. The last segment of picture is refused.",
     {
      {"ids", false,
       "Comma-separated item ids; default is the selection."}},
     true},
    {"undo", "edit",
     "Step the production back one edit. The stack holds a hundred steps and covers every change, "
     "including the script a cue drag rewrites.",
     {},
     true},
    {"redo", "edit",
     "Put back the edit that the last `undo` took away. Any new edit after an undo ends the way forward.",
     {},
     true},
    {"history", "edit",
     "The undo and redo stacks, newest first, each step named as the Edit menu names it.",
     {},
     false},
    {"label.add", "edit",
     "Pin a note to the label lane at a time. Nothing else reads a label: it is there for whoever edits "
     "the film.",
     {
      {"at", true,
       "Seconds."},
      {"text", false,
       "The words; leave out to write them later."}},
     true},
    {"label.rename", "edit",
     "Change the words of a label.",
     {
      {"id", true,
       "Label id, e.g. g1."},
      {"text", true,
       "The new words."}},
     true},
    {"label.edit", "edit",
     "Open a label for writing on the timeline, as a double-click does. Nothing changes until the words "
     "are committed.",
     {
      {"id", false,
       "Label id; default is the selected label."}},
     true},
    {"item.move", "edit",
     "Move a timeline item to a new start. It obeys the dock's snapping toggle: on, the start lands on a "
     "neighbour or a whole second; off, it lands where it was asked to. Anchored cues stay attached to "
     "their line.",
     {
      {"id", true,
       "Item id."},
      {"to", true,
       "New start, seconds."},
      {"snap", false,
       "snap=0 lands the item exactly, snap=1 snaps it, for this one move. Left out, the toggle decides."}},
     true},
    {"item.duplicate", "edit",
     "Copy a timeline item under a new id. A copied line carries no audio and stays unrendered until it is "
     "rendered.",
     {
      {"id", true,
       "Item id."},
      {"at", false,
       "Start of the copy, seconds; default is the playhead."}},
     true},
    {"snap", "edit",
     "Where a drag of an item would land, without moving it: the start it would take and the neighbour or "
     "whole second it would snap to. It is the guide line the timeline draws while dragging.",
     {
      {"id", true,
       "Item id."},
      {"to", true,
       "Seconds the drag aims at."}},
     false},
    {"panel", "edit",
     "The panel: an icon tab rail (voice, subtitles, agent, info, youtube) and, when something is "
     "selected, that item's editor with a close button. With no arguments it reports the tabs, the open "
     "editor, and the info groups' collapsed state.",
     {
      {"tab", false,
       "A tab id, with or without the `panel.tab.` prefix. Showing a tab closes the editor and clears the "
       "selection."},
      {"group", false,
       "A group id, with or without the `panel.group.` prefix."},
      {"collapsed", false,
       "collapsed=0|1. Left out, the group flips."}},
     true},
    {"select", "edit",
     "Select timeline items.",
     {
      {"ids", false,
       "Item ids separated by commas, e.g. l1,l3."},
      {"all", false,
       "all=1 selects everything."},
      {"none", false,
       "none=1 empties the selection."},
      {"extend", false,
       "extend=1 adds instead of replacing."}},
     true},
    {"selection", "edit",
     "The selected items in the order they were picked, each with its type, start and length.",
     {},
     false},
    {"inspect", "edit",
     "What the inspector shows for an item: each field its editor offers, the value in force and, for an "
     "inherited one, where it comes from. Nothing changes.",
     {
      {"id", false,
       "Item id; default is the first selected item."}},
     false},
    {"hover", "edit",
     "What resting the pointer on a timeline item shows, without moving the pointer: the item's hover "
     "card, with its words and times.",
     {
      {"id", true,
       "Item id."}},
     false},
    {"edit", "edit",
     "Edit a single field. Leaving it empty resets it to inherited.",
     {
      {"id", true,
       "Item id, or the word 'production' for the production itself."},
      {"field", true,
       "text · character · voice · start · rate · hold · approved · gain · trimIn · trimOut · note "
       "(production: title · character · voice · driver · gap · span · description). `driver` is the "
       "voice engine: kokoro · local · corvane (corvane only where it is released). `span` is the "
       "generation span: line · chars:300 · chars:600 · chars:1000 · cue. The production's voice is what "
       "every line that pins none speaks with."},
      {"value", false,
       "New value; omit or leave blank to clear."}},
     true},
    {"music.add", "music",
     "Lay an audio file on the music lane as a bed, at -18 dB, the same as dropping it on the timeline. "
     "The file is copied into music/ inside the production, so the bed outlives the original.",
     {
      {"file", true,
       "Path to an audio file, such as a wav or an mp3."},
      {"at", false,
       "Seconds; default is the playhead."}},
     true},
    {"music.trim", "music",
     "Trim a bed. Length is limited to the file's actual size; you cannot extend beyond existing audio.",
     {
      {"id", true,
       "Music item id."},
      {"in", true,
       "Seconds into the file."},
      {"out", true,
       "Seconds into the file."}},
     true},
    {"music.gain", "music",
     "Set a bed's level in dB, ranging from -60 to +6.",
     {
      {"id", true,
       "Music item id."},
      {"db", true,
       "Decibels."}},
     true},
    {"music.fetch", "music",
     "Fetch audio from a URL with yt-dlp and place it on the music lane. Specify a range to retrieve only "
     "the desired slice.",
     {
      {"url", true,
       "YouTube (or any yt-dlp-supported) URL."},
      {"start", false,
       "Seconds from the start of the source."},
      {"end", false,
       "Seconds into the source."},
      {"at", false,
       "Position on the timeline; defaults to playhead."}},
     true},
    {"music.fetch.status", "music",
     "Where a fetch got to: idle, fetching, done or failed, with progress from 0 to 1, the file it wrote, "
     "and why it failed.",
     {},
     false},
    {"music.fetch.open", "music",
     "Raise the Fetch audio sheet — File → Fetch audio… — where a URL and a range are typed in.",
     {
      {"close", false,
       "close=1 puts it away."}},
     true},
    {"music.edit", "music",
     "Open a bed's editor in the panel: its trim, its level and where it came from, as a double-click on "
     "the bed does.",
     {
      {"id", true,
       "Music item id."},
      {"close", false,
       "close=1 closes the editor."}},
     true},
    {"music.preview", "music",
     "Play the trimmed part of a bed, which is the part the export carries. It stops on its own at the "
     "trim out. The panel's play button does the same.",
     {
      {"id", false,
       "Music item id; default is the picked bed, or the only bed there is."},
      {"stop", false,
       "stop=1 ends it."}},
     true},
    {"music.remove", "music",
     "Take a bed off the music lane. The file stays in music/ and `undo` puts the bed back.",
     {
      {"id", false,
       "Music item id; default is the picked bed."}},
     true},
    {"music.list", "music",
     "Every bed on the music lane: id, file, start, length on the timeline, trim in and out, gain, and the "
     "URL it was fetched from.",
     {},
     false},
    {"cue.move", "blocking",
     "Move a compiled blocking cue, rewriting only the `offset N` token in the script. The timeline and "
     "editor share the same program.",
     {
      {"id", true,
       "Cue ordinal; see `blocking.cues`."},
      {"to", true,
       "New time, seconds."}},
     true},
    {"blocking", "blocking",
     "The blocking script as it stands in the editor, and whether it differs from blocking.stage on disk.",
     {},
     false},
    {"blocking.set", "blocking",
     "Swap in a new script. Recompile runs at once and prints its output: the cue count, then the "
     "warnings, the notes, and the rows they group into.",
     {
      {"text", true,
       "The whole script."}},
     true},
    {"blocking.cues", "blocking",
     "The compiled cues: each step's ordinal, time, label and script line, and whether it is anchored to a "
     "line. The ordinal is what `cue.move` takes.",
     {},
     false},
    {"blocking.diagnostics", "blocking",
     "What will go wrong on the stage, in the footer's words: the warnings and notes about the script, "
     "folded into groups with the lines each names.",
     {},
     false},
    {"blocking.drawer", "blocking",
     "Open or close the blocking drawer, where the script is written beside the timeline.",
     {
      {"open", false,
       "open=1 opens, open=0 closes; omit to flip."}},
     true},
    {"blocking.save", "blocking",
     "Write the script to blocking.stage now, without making a version. `save` does the same before it "
     "writes one.",
     {},
     true},
    {"export", "export",
     "Mux a take with the line audio into export/<production>.mp4. By default it uses the newest complete "
     "take of the current cut. The file lands in export/ and stays there; a destination copy is the "
     "sheet's own act, so no save panel is raised here.",
     {
      {"take", false,
       "Take ID; omit to use the newest complete one."},
      {"subtitles", false,
       "subtitles=1|0 for this run only. Left out, the production's own setting decides — see `subtitles`."},
      {"height", false,
       "Target height in pixels, for this run only. Nothing is written to the production. The film's own "
       "height is the ceiling."},
      {"fps", false,
       "Target frame rate, for this run only. The film's own rate is the ceiling."},
      {"quality", false,
       "studio · balanced · web · small, for this run only."},
      {"format", false,
       "mp4 · gif, for this run only. GIF writes export/<production>.gif and carries no sound."}},
     true},
    {"subtitles", "export",
     "Read or set how the burned subtitles look: whether they burn at all, the face, the size and where "
     "they sit. The place is an anchor, x and y as fractions of the picture, naming the middle of the "
     "text. Size is a share of the picture height, so both hold at any resolution. These live in the "
     "version file, and the monitor draws them live.",
     {
      {"burn", false,
       "burn=0|1."},
      {"font", false,
       "A family from `subtitles.fonts`. Blank goes back to the house face."},
      {"preview", false,
       "Draw a family on the monitor without writing it, the way resting on a face button does. Blank puts "
       "the chosen face back."},
      {"size", false,
       "Percent of the picture height, 2 to 14."},
      {"x", false,
       "Across the picture, 0 to 1. 0.5 is the middle."},
      {"y", false,
       "Down the picture, 0 to 1. 0 is the top edge."},
      {"position", false,
       "bottom | center | top, a shorthand that writes the anchor those presets describe."}},
     true},
    {"look", "export",
     "Read or set what the picture sits on: the room around it, the corner, the shadow, and the background "
     "behind. Padding and corner are fractions, so one look holds at any resolution. Absent, or off, and "
     "the picture fills the frame exactly as it did before this existed. The monitor composites it live "
     "and the export composites it the same way.",
     {
      {"on", false,
       "on=0|1. Turning it on for the first time brings the whole default look with it."},
      {"padding", false,
       "What each side gives up, 0 to 0.25. 0.06 leaves the picture at 88 percent."},
      {"radius", false,
       "The corner, 0 to 0.12 of the picture's shorter side."},
      {"shadow", false,
       "shadow=0|1."},
      {"preset", false,
       "An id from `look.presets`."},
      {"color", false,
       "A flat colour, #RRGGBB. It wins over a preset."},
      {"image", false,
       "A path to an image. It copies into look/ inside the production and wins over a colour."}},
     true},
    {"look.presets", "export",
     "The backgrounds a look can sit on, each with the id `look preset=` takes and the title the sheet "
     "shows.",
     {},
     false},
    {"subtitles.fonts", "export",
     "The font families subtitles can be burned in, the house faces first. `subtitles font=` takes any of "
     "them.",
     {
      {"filter", false,
       "Only families whose name holds this text, in any case."}},
     false},
    {"export.take", "export",
     "Choose the take the film is exported from — the take row of the Export sheet. With no id it goes "
     "back to the newest complete take.",
     {
      {"id", false,
       "Take id; see `take.list`."}},
     true},
    {"export.format", "export",
     "The container the file comes out in, kept with the production. MP4 carries the narration and is what "
     "YouTube takes. GIF is silent, stops at 1280 pixels across and 15 frames a second, and moves the "
     "destination back to File. With no arguments it reports both formats and the one in force.",
     {
      {"format", false,
       "mp4 · gif."}},
     true},
    {"export.size", "export",
     "The lines of picture the file comes out at, kept with the production. A size only ever takes height "
     "away, so one above the film is refused by name. The answer carries the real output pixels, which "
     "follow the film's own aspect rather than the segment's name.",
     {
      {"size", false,
       "720 · 1080 · 2160 · native."},
      {"height", false,
       "A height in pixels, for a size the four segments do not name."},
      {"native", false,
       "Go back to the film's own picture."}},
     true},
    {"export.quality", "export",
     "How hard x264 works on each frame, kept with the production. Studio is CRF 16, Balanced 20, Web 23, "
     "Small 28. Balanced is what every export before this wrote. The answer carries every level, its CRF, "
     "and the sentence the sheet shows under the row.",
     {
      {"quality", false,
       "studio · balanced · web · small."}},
     true},
    {"export.rate", "export",
     "The frame rate the file comes out at, kept with the production. Only rates at or under the film's "
     "own are offered, because nothing here invents frames. GIF holds 15 a second whatever is asked for.",
     {
      {"rate", false,
       "native · 30 · 24, as `export.rate` with no arguments lists them."},
      {"fps", false,
       "A rate in frames per second."},
      {"native", false,
       "Go back to the film's own clock."}},
     true},
    {"export.destination", "export",
     "Who receives the finished file, kept with the production. `export/` inside the production always "
     "holds the original; a destination receives a copy. File names a folder in a save panel, Clipboard "
     "puts the file on the pasteboard, YouTube uploads it. A verb-driven `export` writes to `export/` and "
     "raises no panel.",
     {
      {"to", false,
       "file · clipboard · youtube."}},
     true},
    {"export.status", "export",
     "Shows phase, progress (0–1 from ffmpeg), output path, any skipped sections, the size the next run "
     "would write, what the next run is estimated to cost in seconds and in bytes, and the exact ffmpeg "
     "command the last run was given. A GIF is two commands, and `passes` holds both. `estimate.learned` "
     "says whether the clock is this computer's measured speed at this height or the conservative constant it "
     "starts from.",
     {},
     false},
    {"export.cancel", "export",
     "Stop the export that is running: ffmpeg is ended, its partial file removed, and the sheet goes back "
     "to idle.",
     {},
     true},
    {"exports", "export",
     "The films in export/ inside the production, newest first, with their size and when each was written.",
     {},
     false},
    {"publish.youtube", "export",
     "Send the exported mp4 to YouTube. Privacy is private unless you say otherwise. The same act the top "
     "bar's `Export to YouTube` button performs.",
     {
      {"title", false,
       "Defaults to the production's."},
      {"description", false,
       "Defaults to the production's own, plus a provenance line."},
      {"tags", false,
       "Comma-separated."},
      {"privacy", false,
       "private, unlisted or public."},
      {"file", false,
       "An mp4. Defaults to the last export."}},
     true},
    {"youtube", "export",
     "The YouTube account on this computer: whether a client file and a token are here, the channel the token "
     "speaks for, the scopes it asks for, and what a new upload defaults to. An account is not a "
     "permission, so it never appears in the permissions ritual's rows.",
     {},
     false},
    {"youtube.connect", "export",
     "Sign in to YouTube — the Connect button in the panel's YouTube tab and in the launch ritual. The "
     "browser opens once and comes back on its own. Connected already, this runs consent again, which is "
     "Reconnect.",
     {
      {"consent", false,
       "consent=1 asks Google again even when a token is here. What was granted is not reported; only a "
       "Reconnect can widen it."}},
     true},
    {"youtube.disconnect", "export",
     "Move the token aside. The file is renamed rather than shredded, and the answer names where it went. "
     "Google keeps Tavorin listed in your account until you remove it there.",
     {},
     true},
    {"youtube.privacy", "export",
     "Set who can watch a new upload unless you say otherwise — the privacy row of the panel's YouTube "
     "tab. Kept for you, across productions.",
     {
      {"privacy", true,
       "private, unlisted or public."}},
     true},
    {"publish.status", "export",
     "Where an upload got to: idle, needsCredentials, connecting, uploading, done or failed, with progress "
     "and the link once there is one. `button` is the Upload to YouTube button as drawn: state, label, "
     "note and whether it takes a click.",
     {},
     false},
    {"palette", "chrome",
     "Open or close the Palette Lab, the floating panel that tunes the timeline's colours live. No "
     "argument flips it.",
     {
      {"open", false,
       "open=1 opens, open=0 closes."}},
     true},
    {"voice", "cast",
     "What the voice engines can do on this computer: both of them, which one this production uses, the rung "
     "this app is standing on, how the cast was read, and whether renders are offered at all.",
     {},
     false},
    {"voice.check", "cast",
     "Ask every voice engine again, forgetting what each said before, and report the answers. Use it after "
     "starting a speech server or installing models.",
     {},
     true},
    {"voice.local", "cast",
     "The `local` engine as Tavorin sees it: the server's address, whether a key is set, whether it "
     "answers, and the voices it lists.",
     {},
     false},
    {"voice.local.set", "cast",
     "Point the `local` engine at a TTS server that speaks the OpenAI v1 audio API (audio.cpp and others). "
     "App-wide, not stored in the production.",
     {
      {"url", false,
       "host:port or a full base URL, without /v1."},
      {"key", false,
       "Bearer token; blank clears it."}},
     true},
    {"voice.groups", "cast",
     "Shows how the production packs lines into generations under the current voice.span setting. Output "
     "lists each group hash, ticket, audio file, contained lines, slice offsets, placement rules, and "
     "whether the slices still sit against each other on the timeline. Under the default per-line setting, "
     "each line forms its own group.",
     {},
     false},
    {"line.audio", "cast",
     "Give a line an audio file of your own in place of a render. It is copied into audio/, joins the "
     "line's variants, and what follows moves to fit its length. Anything but audio is refused by name.",
     {
      {"id", true,
       "Line id, e.g. l1."},
      {"path", true,
       "Path to an audio file."}},
     true},
    {"cast", "cast",
     "The characters the production's engine offers, each with its voices, and which of them the "
     "production and its lines are cast with.",
     {
      {"filter", false,
       "Only characters and voices whose id or name holds this text."}},
     false},
    {"cast.audition", "cast",
     "Hear a voice before casting it: its own clip when it has one, otherwise a short line rendered in it. "
     "Nothing in the production changes.",
     {
      {"character", true,
       "Character id."},
      {"voice", false,
       "Voice id; default is the character's first."}},
     true},
    {"casting", "cast",
     "Open the voice picker over the page you are on, seeded with a character, a voice and who the pick "
     "lands on.",
     {
      {"character", false,
       "Character id; omit for the production's cast."},
      {"voice", false,
       "Voice id."},
      {"line", false,
       "Line the pick lands on; omit for the production."},
      {"tab", false,
       "voices · past."}},
     true},
    {"casting.dismiss", "cast",
     "Close the voice picker; whatever it is playing stops.",
     {},
     true},
    {"casting.cast", "cast",
     "What the voice picker lists: the characters with their voices, the pick in force, and how many "
     "auditions each voice has kept.",
     {
      {"character", false,
       "Character id; omit for the whole cast."}},
     false},
    {"casting.audition", "cast",
     "Have a voice say words of your own in the voice picker. The clip is kept with the voice, not with "
     "the production, and plays as soon as it is ready.",
     {
      {"character", true,
       "Character id."},
      {"voice", false,
       "Voice id; default is the one the picker is on."},
      {"prompt", false,
       "The words to say; omit to use what is typed in the picker."}},
     true},
    {"casting.history", "cast",
     "The auditions kept for a character's voices, newest first: the words, the date and the length of "
     "each.",
     {
      {"character", true,
       "Character id."},
      {"voice", false,
       "Voice id; omit for all of the character's voices."}},
     false},
    {"casting.use", "cast",
     "Cast the voice on the line the picker was opened for, or on the production — the picker's Use "
     "button. Lines that inherit the voice go stale. Refused when the picker is shut.",
     {
      {"voice", true,
       "Voice id."},
      {"character", false,
       "Character id; default is the one the picker is on."}},
     true},
    {"voice.preview", "cast",
     "Hear the voice a line speaks with, or the production's: its own clip, or a short line rendered in "
     "it.",
     {
      {"line", false,
       "Line id; omit for the production's voice."}},
     true},
    {"cast.use", "cast",
     "Cast a character and a voice on one line or on the whole production without opening the voice "
     "picker. Lines that inherit the change go stale.",
     {
      {"character", true,
       "Character id."},
      {"voice", false,
       "Voice id; default is the character's first."},
      {"line", false,
       "Line id; omit for the production."}},
     true},
    {"sound", "cast",
     "Show the cue set: each sound, its timing, notes, direction, and mute status.",
     {
      {"muted", false,
       "muted=1 silences the whole set; omit to read it."},
      {"play", false,
       "Play now: done · failed · exported · rolling · cut."}},
     true},
    {"render", "render",
     "Enqueue lines for rendering. Corvane processes them one by one. With a generation span set, a named "
     "line brings its whole group and the answer lists the generations that were queued.",
     {
      {"ids", false,
       "Comma-separated line ids."},
      {"stale", false,
       "stale=1 renders every stale line; it holds back approved lines and reports them as `heldBack`."},
      {"approved", false,
       "approved=1 allows stale=1 to include approved lines."},
      {"all", false,
       "Render every line in the production. Unchanged generations stay as they are unless you pass force=1."},
      {"force", false,
       "force=1 forces a fresh take even when nothing changed."},
      {"samples", false,
       "How many variants of each named line to render, 1 to 8. Every variant is kept; the first lands and "
       "line.sample.use picks another. Works with ids= only."}},
     true},
    {"render.status", "render",
     "The render queue: whether it is busy, what renders now and what waits, each line's state with the "
     "reason a render failed, the lines that just finished, and how many variants a render asks for.",
     {},
     false},
    {"render.samples", "render",
     "Read or set how many variants a render of a named line asks for. This is the inspector's own "
     "stepper, so a button and a verb ask for the same thing. One is the default and is what this app has "
     "always done.",
     {
      {"n", false,
       "1 to 8; omit to read it."}},
     true},
    {"render.cancel", "render",
     "Stop renders. Waiting tickets leave the queue; the one rendering runs out, and its result is thrown "
     "away.",
     {
      {"id", false,
       "Line id or ticket; omit to cancel them all."}},
     true},
    {"timeline.info", "timeline",
     "The timeline as the window draws it: the lanes with their heights and titles, pixels per second, "
     "length, playhead, hidden and muted lanes, the take and its footage, the segments, and the ruler's "
     "steps.",
     {},
     false},
    {"timeline.items", "timeline",
     "Every item the timeline draws, with its lane, start and length, its x and width in pixels, and what "
     "its lane shows of it.",
     {},
     false},
    {"peaks", "timeline",
     "The waveform of an item's audio, as the lane draws it: the loudest sample of each slice of the span "
     "the item covers.",
     {
      {"id", true,
       "Item id of a line or a bed."}},
     false},
    {"segment.list", "timeline",
     "The cut: every segment of the take, in order, with the footage it shows (from/to), its speed, and "
     "where it sits on the timeline. With nothing cut there is one segment covering the whole take.",
     {},
     false},
    {"segment.split", "timeline",
     "Split the picture into two segments at a time, as cutting at the playhead does. Nothing on the "
     "timeline moves. A point within 0.05 seconds of a seam is refused.",
     {
      {"at", false,
       "Seconds on the film's timeline; default is the playhead."}},
     true},
    {"segment.remove", "timeline",
     "Cut a segment out. What follows slides left, the lines after it move with it, and labels and music "
     "stay where they were put. Ctrl+Z puts it back. This is what the `X` key does.",
     {
      {"id", false,
       "Segment id — see segment.list. With none, the picked segment goes, or the one under the playhead."}},
     true},
    {"segment.trim", "timeline",
     "Trim a segment's head or tail, in footage seconds, within what the take holds. What follows slides "
     "to close the gap or make room, and `undo` puts it back.",
     {
      {"id", true,
       "Segment id — see segment.list."},
      {"from", false,
       "Head, seconds into the take."},
      {"to", false,
       "Tail, seconds into the take."}},
     true},
    {"segment.set", "timeline",
     "Set where a segment starts and ends in the take, in footage seconds. Unlike `segment.trim` it can "
     "also give a segment back the film it is not showing, which is the repair when a cut was written "
     "against a shorter take. What follows slides. Ctrl+Z puts it back.",
     {
      {"id", true,
       "Segment id — see segment.list."},
      {"from", false,
       "Head, seconds into the take."},
      {"to", false,
       "Tail, seconds into the take."}},
     true},
    {"segment.rate", "timeline",
     "Set how fast a segment's picture runs, 0.1 to 8. The export scales the picture; the mix does not "
     "stretch, so the lines after it simply arrive earlier.",
     {
      {"id", true,
       "Segment id."},
      {"rate", true,
       "1 is normal."}},
     true},
    {"zoom.list", "timeline",
     "Every zoom on the picture, in order: the span it covers, how close it goes, the spot it aims at, the "
     "style and how long the move takes. `now` is the frame under the playhead, and `now.monitor` is what "
     "the picture layer really carries, with the shift it applies. `filter` is the exact ffmpeg the export "
     "runs, so what will be cropped can be read before anything is muxed.",
     {},
     false},
    {"zoom.add", "timeline",
     "Close the picture in on one spot for a span. Zooms sit one at a time, so a span is clamped to the "
     "room the lane has and refused when there is none.",
     {
      {"at", false,
       "Seconds; default is the playhead."},
      {"length", false,
       "Seconds; default is 2."},
      {"scale", false,
       "How close, 1.1 to 5. Default 2."},
      {"x", false,
       "Across the picture, 0 to 1. 0.5 is the middle."},
      {"y", false,
       "Down the picture, 0 to 1. 0 is the top edge."},
      {"style", false,
       "smooth | spring."}},
     true},
    {"zoom.set", "timeline",
     "Change a zoom: where it starts and ends, how close it goes, the spot it aims at, the style, and the "
     "length of the move at each end. Ctrl+Z steps back.",
     {
      {"id", true,
       "Zoom id — see zoom.list."},
      {"from", false,
       "New start, seconds."},
      {"to", false,
       "New end, seconds."},
      {"at", false,
       "Slide the whole zoom so it starts here, keeping its length."},
      {"scale", false,
       "1.1 to 5."},
      {"x", false,
       "Across the picture, 0 to 1."},
      {"y", false,
       "Down the picture, 0 to 1."},
      {"style", false,
       "smooth | spring."},
      {"ramp", false,
       "Seconds the move takes at each end. Blank goes back to the style's own."}},
     true},
    {"zoom.remove", "timeline",
     "Take a zoom off the picture; `undo` puts it back.",
     {
      {"id", false,
       "Zoom id — see zoom.list. With none, the selected zoom goes."}},
     true},
    {"lane.hide", "timeline",
     "Hide or show a timeline lane, or list the hidden ones: the lane name's right-click menu in the "
     "timeline's left rail, and the 'N hidden' menu above it. The choice holds across productions and "
     "launches. The ruler never hides.",
     {
      {"lane", false,
       "screen | zooms | actions | voice | music | labels"},
      {"on", false,
       "on=0|1; omit to switch."},
      {"all", false,
       "all=1 shows every lane again."}},
     true},
    {"lane.mute", "timeline",
     "Silence a lane or list silenced lanes—the speaker icons in the timeline's left rail. Voice and "
     "Music are the lanes that make a sound; the others carry no speaker and are refused.",
     {
      {"lane", false,
       "voice | music"},
      {"on", false,
       "on=0|1; omit to switch."}},
     true},
    {"waveforms", "timeline",
     "Draw or hide the waveforms on the voice and music lanes.",
     {
      {"show", false,
       "show=1 draws them, show=0 hides them; omit to flip."}},
     true},
    {"snapping", "timeline",
     "Turn the dock's snapping toggle on or off. On, a moved item lands on a neighbour or a whole second "
     "within seven pixels; off, it lands where it is dropped.",
     {
      {"on", false,
       "on=0|1; omit to switch."}},
     true},
    {"timeline.zoom", "timeline",
     "Set the zoom, or fit the production.",
     {
      {"px", false,
       "Pixels per second (1-400)."},
      {"fit", false,
       "fit=1 to size the production to the window, up to a minute of it. A longer film keeps its scroll; px "
       "still zooms out past the minute."}},
     true},
    {"jog", "transport",
     "Move the playhead to the previous or next cue using ◀◀ / ▶▶. If no blocking script, it jumps "
     "to line starts.",
     {
      {"to", true,
       "prev | next | start | end"}},
     true},
    {"timecode", "transport",
     "Set how the playhead readout and the ruler count time: as film timecode or in seconds.",
     {
      {"format", false,
       "film | seconds."}},
     true},
    {"play", "transport",
     "Play the production: every rendered line and bed at its place. Lines with no audio stay silent, and "
     "the answer counts them.",
     {
      {"from", false,
       "Seconds; default is the playhead."}},
     true},
    {"pause", "transport",
     "Pause where the playhead stands; `play` goes on from there.",
     {},
     true},
    {"stop", "transport",
     "Stop playing and put the playhead back where the play began.",
     {},
     true},
    {"seek", "transport",
     "Move the playhead.",
     {
      {"to", true,
       "Seconds."}},
     true},
    {"transport", "transport",
     "The transport: whether it plays, the playhead, the line playing on its own, and the lines that play "
     "silent for want of audio.",
     {},
     false},
    {"line.play", "transport",
     "Hear one line on its own, at its rate, from its own audio. Refused when the line has not been "
     "rendered.",
     {
      {"id", true,
       "Line id, e.g. l1."}},
     true},
    {"line.stop", "transport",
     "Stop a line that plays on its own.",
     {},
     true},
    {"line.samples", "transport",
     "Every variant of a line: number, words, voice, length, when it was made, whether it is the one in "
     "use, and whether it was made from older words.",
     {
      {"id", true,
       "Line id, e.g. l1."}},
     false},
    {"line.sample.play", "transport",
     "Hear one variant of a line on its own without using it. A second play stops the first.",
     {
      {"id", true,
       "Line id, e.g. l1."},
      {"take", true,
       "Variant number from line.samples."}},
     true},
    {"line.sample.use", "transport",
     "Make a variant the line's audio. What follows moves to fit its length, a variant of older words "
     "leaves the line stale, and `undo` steps back.",
     {
      {"id", true,
       "Line id, e.g. l1."},
      {"take", true,
       "Variant number from line.samples."}},
     true},
    {"line.sample.remove", "transport",
     "Take a variant off the line's list; the wav stays in audio/. Removing the one in use moves the line "
     "to its newest variant of the current words, or leaves it silent holding its length when there is "
     "none.",
     {
      {"id", true,
       "Line id, e.g. l1."},
      {"take", true,
       "Variant number from line.samples."}},
     true},
    {"line.approve", "transport",
     "Mark a line as reviewed or remove the mark. The sidebar check and context menus use the same action.",
     {
      {"id", true,
       "Line id, e.g. l1."},
      {"on", false,
       "on=1 approves, on=0 takes it back. Left out, it flips — which is what every control in the UI "
       "does."}},
     true},
    {"quit", "app",
     "Close Tavorin like Ctrl+Q - control file removed, no orphan.",
     {},
     true},
  };
}

}  // namespace

JSONValue ParamSpec::toJSON() const {
  return JSONValue::object({{"name", name}, {"required", required}, {"description", description}});
}

ParamSpec ParamSpec::fromJSON(const JSONValue& value) {
  return ParamSpec{member(value, "name", "a parameter"), flag(value, "required", "a parameter"),
                   member(value, "description", "a parameter")};
}

JSONValue VerbSpec::toJSON() const {
  JSONValue::Array list;
  list.reserve(params.size());
  for (const auto& p : params) list.push_back(p.toJSON());
  return JSONValue::object({{"name", name},
                            {"group", group},
                            {"summary", summary},
                            {"params", JSONValue(std::move(list))},
                            {"mutating", mutating}});
}

VerbSpec VerbSpec::fromJSON(const JSONValue& value) {
  VerbSpec verb;
  verb.name = member(value, "name", "a verb");
  verb.group = member(value, "group", "a verb");
  verb.summary = member(value, "summary", "a verb");
  verb.mutating = flag(value, "mutating", "a verb");
  const JSONValue* params = value["params"];
  if (!params || !params->arrayValue()) throw std::runtime_error("a verb needs a list of `params`");
  for (const auto& p : *params->arrayValue()) verb.params.push_back(ParamSpec::fromJSON(p));
  return verb;
}

const std::vector<VerbSpec>& OperatorManifest::verbs() {
  static const std::vector<VerbSpec> table = makeTable();
  return table;
}

const std::set<std::string>& OperatorManifest::verbNames() {
  static const std::set<std::string> names = [] {
    std::set<std::string> s;
    for (const auto& v : verbs()) s.insert(v.name);
    return s;
  }();
  return names;
}

const VerbSpec* OperatorManifest::find(std::string_view name) {
  for (const auto& v : verbs())
    if (v.name == name) return &v;
  return nullptr;
}

const std::vector<std::string>& OperatorManifest::groups() {
  static const std::vector<std::string> list = [] {
    std::vector<std::string> out;
    std::set<std::string> seen;
    for (const auto& v : verbs())
      if (seen.insert(v.group).second) out.push_back(v.group);
    return out;
  }();
  return list;
}

JSONValue OperatorManifest::toJSON() {
  JSONValue::Array list;
  list.reserve(verbs().size());
  for (const auto& v : verbs()) list.push_back(v.toJSON());
  return JSONValue(std::move(list));
}

}  // namespace tavorin
