// blocking: the stage script, its cues and what is wrong with it; and the two
// verbs of other groups that read the compiled cues, jog and snapping.
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"

namespace tavorin {

namespace {

JSONValue diagnosticJSON(const BlockingDiagnostic& d) {
  return JSONValue::object({{"line", d.line}, {"message", d.message}, {"source", d.source}});
}

JSONValue cueJSON(const Schedule::Cue& c) {
  return JSONValue::object({{"id", c.id},
                            {"time", JSONValue::seconds(c.time)},
                            {"label", c.label},
                            {"mark", std::string(Blocking::name(c.mark))},
                            {"anchored", c.anchored},
                            {"known", c.known},
                            {"line", c.sourceLine},
                            {"raw", c.raw}});
}

}  // namespace

JSONValue OperatorService::diagnosticsReport() const {
  const AppModel& m = model();
  JSONValue::Array warnings, notes, groups;
  for (const auto& d : m.blockingDiagnostics())
    (d.severity == BlockingDiagnostic::Severity::warning ? warnings : notes).push_back(diagnosticJSON(d));
  for (const auto& g : Blocking::grouped(m.blockingDiagnostics())) {
    JSONValue::Array lines;
    for (int l : g.lines) lines.emplace_back(l);
    groups.push_back(JSONValue::object(
        {{"id", g.id},
         {"severity", g.severity == BlockingDiagnostic::Severity::warning ? "warning" : "note"},
         {"message", g.message},
         {"lines", JSONValue(std::move(lines))}}));
  }
  return JSONValue::object({{"cues", static_cast<long long>(m.cues().size())},
                            {"warnings", JSONValue(std::move(warnings))},
                            {"notes", JSONValue(std::move(notes))},
                            {"groups", JSONValue(std::move(groups))}});
}

void OperatorService::registerBlocking() {
  onBranch(&OperatorService::blockingVerbs, {"cue.move", "blocking", "blocking.set", "blocking.cues",
                                             "blocking.diagnostics", "blocking.drawer", "blocking.save"});
}

OperatorService::Answer OperatorService::blockingVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  AppModel& m = model();
  if (v == "cue.move") {
    const auto id = a.integer("id");
    const auto to = a.number("to");
    m.moveCue(static_cast<int>(*id), *to);
    for (const auto& cue : m.cues())
      if (cue.id == *id) return OperatorResult::success(cueJSON(cue));
    return OperatorResult::success(JSONValue::object({{"id", *id}}));
  }
  if (v == "blocking") {
    m.recording();
    return OperatorResult::success(JSONValue::object(
        {{"text", m.blocking()},
         {"file", m.blockingURL() ? JSONValue(m.blockingURL()->string()) : JSONValue()},
         {"dirty", m.blockingDirty()},
         {"steps", static_cast<long long>(m.blockingSteps().size())},
         {"cues", static_cast<long long>(m.cues().size())},
         {"warnings", static_cast<long long>(std::count_if(
                          m.blockingDiagnostics().begin(), m.blockingDiagnostics().end(),
                          [](const BlockingDiagnostic& d) { return d.severity == BlockingDiagnostic::Severity::warning; }))},
         {"drawer", m.blockingDrawerOpen}}));
  }
  if (v == "blocking.set") {
    m.replaceBlocking(*a.text("text"));
    return OperatorResult::success(diagnosticsReport());
  }
  if (v == "blocking.cues") {
    m.recording();
    JSONValue::Array cues;
    for (const auto& cue : m.cues()) cues.push_back(cueJSON(cue));
    return OperatorResult::success(JSONValue::object({{"cues", JSONValue(std::move(cues))}}));
  }
  if (v == "blocking.diagnostics") {
    m.recording();
    return OperatorResult::success(diagnosticsReport());
  }
  if (v == "blocking.drawer") {
    m.blockingDrawerOpen = a.flag("open").value_or(!m.blockingDrawerOpen);
    return OperatorResult::success(JSONValue::object({{"drawer", m.blockingDrawerOpen}}));
  }
  if (v == "blocking.save") {
    m.requireEditable();
    m.saveBlocking();
    m.note("saved the blocking script");
    return OperatorResult::success(
        JSONValue::object({{"saved", m.blockingURL()->string()}, {"dirty", m.blockingDirty()}}));
  }
  return std::nullopt;
}

void OperatorService::registerTimeline() {
  onBranch(&OperatorService::timelineVerbs, {"snapping"});
}

OperatorService::Answer OperatorService::timelineVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  if (c.verb != "snapping") return std::nullopt;
  AppModel& m = model();
  m.snapping = a.flag("on").value_or(!m.snapping);
  return OperatorResult::success(JSONValue::object(
      {{"snapping", m.snapping}, {"window", Retime::snapWindow(m.pxPerSecond(), AppModel::snapPixels)}}));
}

void OperatorService::registerTransport() {
  onBranch(&OperatorService::transportVerbs, {"jog"});
}

OperatorService::Answer OperatorService::transportVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  if (c.verb != "jog") return std::nullopt;
  const auto to = a.text("to");
  const double playhead = model().stepCue(*to);
  return OperatorResult::success(JSONValue::object({{"playhead", JSONValue::seconds(playhead)}}));
}

}  // namespace tavorin
