// system: the keyboard palette and the footer's systems readout.
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Shortcuts.hpp"
#include "platform/X11Performer.hpp"

namespace tavorin {

void OperatorService::registerSystemReadouts() {
  onBranch(&OperatorService::systemReadoutVerbs, {"keys", "systems"});
}

OperatorService::Answer OperatorService::systemReadoutVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  if (c.verb == "keys") {
    if (a.flag("show").value_or(false)) m.keysPaletteOpen = true;
    if (a.flag("hide").value_or(false)) m.keysPaletteOpen = false;
    JSONValue::Array all, useful;
    for (const auto& s : Shortcuts::all()) {
      auto row = JSONValue::object({{"keys", s.keys}, {"act", s.act}, {"verb", s.verb}, {"useful", s.useful}});
      if (s.useful) useful.emplace_back(s.keys);
      all.push_back(std::move(row));
    }
    return OperatorResult::success(JSONValue::object(
        {{"shortcuts", JSONValue(std::move(all))}, {"useful", JSONValue(std::move(useful))},
         {"palette", m.keysPaletteOpen}}));
  }
  if (c.verb == "systems") {
    // Any text but "0" and "false" opens it.
    if (const auto open = a.text("open")) m.systemsOpen = !(*open == "0" || *open == "false");
    const DriverHealth health = m.voiceHealth();
    const bool checking = health.source == DriverHealth::checkingSource;
    const std::string engine = checking ? "checking" : health.present ? "online" : "offline";
    const auto input = X11Performer::inputRefusal();
    const std::string grants = input ? "1 to grant" : "all granted";
    const std::string camera = "unchecked";
    std::string line;
    if (checking) line = "Checking voice engine";
    else if (!health.present) line = "Voice engine not responding";
    else if (input) line = "Synthetic input not granted";
    else line = "Screen capture test not run";
    return OperatorResult::success(JSONValue::object(
        {{"line", line},
         {"open", m.systemsOpen},
         {"rows", JSONValue::array({JSONValue::object({{"title", "Voice engine"}, {"state", engine}}),
                                    JSONValue::object({{"title", "Permissions"}, {"state", grants},
                                                       {"why", JSONValue::optional(input)}}),
                                    JSONValue::object({{"title", "Camera"}, {"state", camera}})})}}));
  }
  return std::nullopt;
}

}  // namespace tavorin
