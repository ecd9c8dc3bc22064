#include "app/model/AppModelFailure.hpp"

namespace tavorin {

using F = AppModelFailure;
using K = AppModelFailure::Kind;

F F::cannotOpen(const std::string& path) {
  return {K::cannotOpen, "no production at " + path + " (expected a manifest.json beside versions/)"};
}
F F::noSuchLine(const std::string& id) { return {K::noSuchLine, "no line " + id + " in the open production"}; }
F F::notRendered(const std::string& id) { return {K::notRendered, "line " + id + " has no rendered audio yet"}; }
F F::noSuchItem(const std::string& id) { return {K::noSuchItem, "no item " + id + " on the timeline"}; }
F F::noSuchField(const std::string& name) {
  return {K::noSuchField, "no field '" + name +
                              "'. Try: text, character, voice, start, rate, hold, approved, gain, trimIn, trimOut, "
                              "note, or for the production title, description, gap, driver, span"};
}
F F::badValue(const std::string& field, const std::string& value) {
  return {K::badValue, "'" + value + "' is not a number for " + field};
}
F F::badChoice(const std::string& value, const std::string& what, const std::string& choices) {
  return {K::badChoice, "'" + value + "' is not a " + what + ". Try: " + choices};
}
F F::noSuchVersion(const std::string& name, const std::vector<std::string>& recent) {
  std::string where;
  for (const auto& r : recent) where += (where.empty() ? "" : ", ") + r;
  return {K::noSuchVersion, "The system found no version named '" + name + "'. Pick a short or full name from " +
                                where + ", or run `versions` to see all saved states."};
}
F F::noSuchTake(const std::string& id) { return {K::noSuchTake, "no take '" + id + "' in this production"}; }
F F::noSuchCue(const std::string& n) { return {K::noSuchCue, "no cue " + n + " in the compiled blocking"}; }
F F::notAnchored(const std::string& n) {
  return {K::notAnchored,
          "cue " + n + " isn't anchored to a line — its time comes from the sequence, so there is no offset to move"};
}
F F::busyRolling(const std::string& act) {
  return {K::busyRolling, "a take is rolling. Wait for it to finish, then " + act};
}
F F::noSuchSample(const std::string& id, const std::string& n) {
  return {K::noSuchSample, "line " + id + " has no variant " + n + ". Try: tavorinctl line.samples id=" + id};
}
F F::badSampleCount(const std::string& n) { return {K::badSampleCount, n + " variants is outside 1 to 8"}; }
F F::cannotRoll(const std::string& text) {
  return {K::cannotRoll, "the camera will not roll on this script — " + text};
}
F F::noSuchZoom(const std::string& id) { return {K::noSuchZoom, "no zoom " + id + ". Try: tavorinctl zoom.list"}; }
F F::noProduction() { return {K::noProduction, "no production is open"}; }
F F::readOnly() { return {K::readOnly, "viewing an older version — set it as head to edit"}; }
F F::nothingToRender() { return {K::nothingToRender, "no lines to render (must have text and exist)"}; }
F F::alreadyRolling() { return {K::alreadyRolling, "a take is already rolling — stop it first"}; }
F F::noAgentStep() {
  return {K::noAgentStep, "this blocking script has no agent step. Add one: agent \"what it should do\""};
}
F F::nothingSelected() { return {K::nothingSelected, "nothing is selected"}; }
F F::nothingToPaste() { return {K::nothingToPaste, "clipboard contains no timeline items"}; }
F F::nothingToUndo() { return {K::nothingToUndo, "nothing to undo — this is as far back as it goes"}; }
F F::nothingToRedo() { return {K::nothingToRedo, "nothing to redo — the last undo is already back in place"}; }
F F::noVersions() { return {K::noVersions, "this production has no versions"}; }
F F::noProjectOpen() { return {K::noProjectOpen, "no project open. Open one in Projects first"}; }
F F::noTakeOnMonitor() { return {K::noTakeOnMonitor, "nothing is on the program monitor"}; }
F F::noFootage() {
  return {K::noFootage, "there is no footage to cut. Roll a take, or import one with ⌘I"};
}

}  // namespace tavorin
