// system: the keyboard palette and the footer's systems readout.
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Shortcuts.hpp"
#include "app/shoot/PermissionsRitual.hpp"

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
    PermissionsRitual& ritual = permissions();
    ritual.refresh();
    JSONValue::Array rows;
    for (const auto& row : SystemsCopy::rows(checking, health.present, ritual))
      rows.push_back(JSONValue::object(
          {{"title", row.title}, {"state", row.state}, {"ok", row.ok}, {"checking", row.checking}}));
    return OperatorResult::success(JSONValue::object({{"line", SystemsCopy::status(checking, health.present, ritual)},
                                                      {"open", m.systemsOpen},
                                                      {"rows", JSONValue(std::move(rows))}}));
  }
  return std::nullopt;
}

}  // namespace tavorin
