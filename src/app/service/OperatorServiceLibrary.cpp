// library, production and agent: projects, recordings, paths and seeding.
#include <chrono>

#include "app/model/AppStore.hpp"
#include "base/IsoDate.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/RecordingStore.hpp"

namespace tavorin {

namespace {

JSONValue summaryJSON(const RecordingSummary& s) {
  return JSONValue::object({{"slug", s.slug},
                            {"title", s.title},
                            {"length", JSONValue::seconds(s.length)},
                            {"lines", s.lines},
                            {"stale", s.stale},
                            {"versions", s.versions},
                            {"takes", s.takes},
                            {"agent", Reports::text(s.agent)},
                            {"sessionId", Reports::text(s.sessionId)},
                            {"head", s.head},
                            {"touched", IsoDate::format(s.touched)},
                            {"dir", s.dir.string()}});
}

}  // namespace

void OperatorService::registerLibrary() {
  onBranch(&OperatorService::libraryVerbs, {"project.list", "project.create", "project.open", "project.duplicate",
                                            "project.trash", "recording.list", "recording.open",
                                            "recording.duplicate", "recording.trash", "recording.restore",
                                            "recording.trashed"});
}

OperatorService::Answer OperatorService::libraryVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  auto currentName = [&] {
    return store_.currentProject() ? JSONValue(store_.currentProject()->name()) : JSONValue();
  };
  if (v == "project.list") {
    store_.refresh();
    JSONValue::Array projects;
    for (const auto& p : store_.projects()) {
      projects.push_back(JSONValue::object({{"name", p.name()},
                                            {"title", p.info().name},
                                            {"dir", p.dir.string()},
                                            {"current", store_.currentProject() && *store_.currentProject() == p}}));
    }
    return OperatorResult::success(JSONValue::object({{"projects", JSONValue(std::move(projects))},
                                                      {"current", currentName()},
                                                      {"root", store_.library().root.string()}}));
  }
  if (v == "project.create") {
    const auto name = a.text("name");
    const Project p = store_.createProject(*name);
    return OperatorResult::success(JSONValue::object({{"project", p.name()}, {"dir", p.dir.string()}}));
  }
  if (v == "project.open") {
    const auto name = a.text("name");
    const Project p = store_.openProject(*name);
    JSONValue::Array recordings;
    for (const auto& s : store_.summaries()) recordings.push_back(summaryJSON(s));
    return OperatorResult::success(
        JSONValue::object({{"project", p.name()}, {"recordings", JSONValue(std::move(recordings))}}));
  }
  if (v == "project.duplicate") {
    const Project copy = store_.duplicateCurrentProject();
    return OperatorResult::success(JSONValue::object({{"project", copy.name()}, {"dir", copy.dir.string()}}));
  }
  if (v == "project.trash") {
    const auto name = a.text("name");
    const auto where = store_.trashProject(*name);
    return OperatorResult::success(JSONValue::object({{"trashed", *name}, {"trash", where.string()}}));
  }
  if (v == "recording.list") {
    if (!store_.currentProject()) throw AppModel::Failure::noProjectOpen();
    store_.refresh();
    JSONValue::Array recordings;
    for (const auto& s : store_.summaries()) recordings.push_back(summaryJSON(s));
    return OperatorResult::success(
        JSONValue::object({{"project", currentName()}, {"recordings", JSONValue(std::move(recordings))}}));
  }
  if (v == "recording.open") {
    const auto slug = a.text("slug");
    store_.openRecording(*slug);
    return OperatorResult::success(productionReport());
  }
  if (v == "recording.duplicate") {
    const auto slug = a.text("slug");
    return OperatorResult::success(JSONValue::object({{"slug", store_.duplicateRecording(*slug)}}));
  }
  if (v == "recording.trash") {
    const auto slug = a.text("slug");
    return OperatorResult::success(JSONValue::object({{"entry", store_.trashRecording(*slug)}}));
  }
  if (v == "recording.restore") {
    const auto entry = a.text("entry");
    return OperatorResult::success(JSONValue::object({{"slug", store_.restoreRecording(*entry)}}));
  }
  if (v == "recording.trashed") {
    if (!store_.currentProject()) throw AppModel::Failure::noProjectOpen();
    store_.refresh();
    JSONValue::Array trashed;
    for (const auto& t : store_.trashed())
      trashed.push_back(JSONValue::object({{"entry", t.entry}, {"slug", t.slug}, {"title", t.title}}));
    return OperatorResult::success(
        JSONValue::object({{"project", currentName()}, {"trashed", JSONValue(std::move(trashed))}}));
  }
  return std::nullopt;
}

void OperatorService::registerProduction() {
  onBranch(&OperatorService::productionVerbs, {"open", "drop", "recent", "recent.clear"});
}

OperatorService::Answer OperatorService::productionVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "open") {
    const auto dir = a.path("dir");
    if (!SessionStore::isProduction(*dir)) throw AppModel::Failure::cannotOpen(dir->string());
    store_.openProduction(*dir);
    store_.go(Route::of(Page::edit));
    return OperatorResult::success(productionReport());
  }
  if (v == "drop") {
    const auto path = a.path("path");
    const AppStore::Landing landing = store_.accept(*path);
    return OperatorResult::success(JSONValue::object({{"accepted", landing.accepted},
                                                      {"refusal", landing.refusal},
                                                      {"route", word(store_.route().page)},
                                                      {"path", landing.target.url.string()},
                                                      {"kind", landing.target.word()}}));
  }
  if (v == "recent") {
    JSONValue::Array recent;
    for (const auto& r : store_.recentProductions())
      recent.push_back(
          JSONValue::object({{"dir", r.dir.string()}, {"title", r.title}, {"project", Reports::text(r.project)}}));
    return OperatorResult::success(JSONValue::object({{"recent", JSONValue(std::move(recent))}}));
  }
  if (v == "recent.clear") {
    store_.clearRecents();
    return OperatorResult::success(JSONValue::object({{"recent", JSONValue::array({})}}));
  }
  return std::nullopt;
}

void OperatorService::registerAgent() {
  onBranch(&OperatorService::agentVerbs, {"origin", "recording.new"});
}

OperatorService::Answer OperatorService::agentVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "origin") {
    const Recording& rec = model().recording();
    if (!rec.origin)
      return OperatorResult::failure("this production predates provenance — there is no record of what asked for it");
    return OperatorResult::success(JSONValue::object({{"prompt", Reports::text(rec.origin->prompt)},
                                                      {"agent", Reports::text(rec.origin->agent)},
                                                      {"sessionId", Reports::text(rec.origin->sessionId)},
                                                      {"createdAt", Reports::text(rec.origin->createdAt)}}));
  }
  if (v == "recording.new") {
    const auto prompt = a.text("prompt");
    const auto title = a.text("title");
    if (!prompt && !title)
      return OperatorResult::failure(
          "recording.new needs prompt=<what the production should be> [title=], or title= alone for a blank "
          "recording");
    const Seed::Result result = prompt ? store_.newRecording(title, *prompt) : store_.newBlankRecording(*title);
    JSONValue report = JSONValue::object({{"slug", result.slug},
                                          {"dir", result.dir.string()},
                                          {"version", result.version},
                                          {"route", word(store_.route().page)}});
    if (prompt) report.set("handoff", Seed::handoff(result.dir, *prompt));
    return OperatorResult::success(report);
  }
  return std::nullopt;
}

}  // namespace tavorin
