#include "kit/Shortcuts.hpp"

namespace tavorin {

namespace Shortcuts {

const std::vector<Shortcut>& all() {
  static const std::vector<Shortcut> table{
      {"space", "Play or pause from the playhead", "transport.toggle", true},
      {"ctrl+s", "Save a new version", "save", true},
      {"ctrl+z", "Undo", "undo", true},
      {"ctrl+shift+z", "Redo", "redo", true},
      {"ctrl+c", "Copy the selection", "copy", false},
      {"ctrl+x", "Cut the selection", "cut", false},
      {"ctrl+v", "Paste at the playhead", "paste", false},
      {"ctrl+a", "Select everything on the timeline", "select.all", false},
      {"delete", "Delete the selection", "delete", true},
      {"left", "Jog to the previous cue", "jog to=prev", true},
      {"right", "Jog to the next cue", "jog to=next", true},
      {"home", "Jog to the start", "jog to=start", false},
      {"end", "Jog to the end", "jog to=end", false},
      {"ctrl+1", "Show the Script page", "nav route=script", false},
      {"ctrl+2", "Show the Edit page", "nav route=edit", false},
      {"ctrl+3", "Show the Library", "nav route=library", false},
      {"ctrl+r", "Rehearse the blocking", "run rehearse=1", true},
      {"ctrl+period", "Stop a run or a rehearsal", "run.abort", true},
      {"shift+slash", "Raise or put away this palette", "keys", true},
      {"escape", "Close what is open over the page", "flow.end", false},
  };
  return table;
}

}  // namespace Shortcuts

}  // namespace tavorin
