// versions: saving, viewing, comparing and choosing the head.
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Diff.hpp"
#include "kit/RecordingStore.hpp"
#include "kit/TextDiff.hpp"

namespace tavorin {

namespace {

const char* kindWord(Diff::Change::Kind k) {
  using K = Diff::Change::Kind;
  switch (k) {
    case K::retimed: return "retimed";
    case K::revoiced: return "revoiced";
    case K::rerated: return "rerated";
    case K::regained: return "regained";
    case K::added: return "added";
    case K::removed: return "removed";
    case K::retexted: return "retexted";
    case K::retrimmed: return "retrimmed";
    case K::rendered: return "rendered";
    case K::unrendered: return "unrendered";
  }
  return "changed";
}

JSONValue changeJSON(const Diff::Change& ch) {
  using K = Diff::Change::Kind;
  JSONValue o = JSONValue::object({{"kind", kindWord(ch.kind)}});
  if (ch.kind == K::retimed) {
    o.set("from", JSONValue::seconds(ch.from));
    o.set("to", JSONValue::seconds(ch.to));
  } else if (ch.kind == K::rerated || ch.kind == K::regained) {
    o.set("from", ch.from);
    o.set("to", ch.to);
  } else if (ch.kind == K::revoiced) {
    o.set("from", Reports::text(ch.fromVoice));
    o.set("to", Reports::text(ch.toVoice));
  }
  return o;
}

}  // namespace

JSONValue OperatorService::versionsReport() const {
  const AppModel& m = model();
  JSONValue::Array list;
  for (const auto& name : m.versions()) {
    list.push_back(JSONValue::object({{"name", name},
                                      {"short", AppModel::shortVersion(name)},
                                      {"head", m.headVersion() == name},
                                      {"viewing", m.viewingVersion() == name}}));
  }
  const bool draft = m.baseDir() && RecordingStore(*m.baseDir()).hasDraft();
  return JSONValue::object({{"versions", JSONValue(std::move(list))},
                            {"head", Reports::text(m.headVersion())},
                            {"viewing", Reports::text(m.viewingVersion())},
                            {"draft", draft},
                            {"dirty", m.dirty()}});
}

void OperatorService::registerVersions() {
  onBranch(&OperatorService::versionsVerbs, {"diff", "diff.raw", "save", "versions", "version.open", "version.menu",
                                             "version.head", "draft", "revert"});
}

OperatorService::Answer OperatorService::versionsVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  AppModel& m = model();

  // The two versions a comparison is between: the one before head and head, unless named.
  auto pair = [&]() -> std::pair<std::string, std::string> {
    m.recording();
    const auto& versions = m.versions();
    if (versions.empty()) throw AppModel::Failure::noVersions();
    const std::string head = m.headVersion().value_or(versions.back());
    std::string to = a.text("to") ? m.resolveVersion(*a.text("to")) : head;
    std::string from;
    if (a.text("from")) from = m.resolveVersion(*a.text("from"));
    else {
      auto it = std::find(versions.begin(), versions.end(), to);
      if (it == versions.begin() || it == versions.end())
        throw AppModel::Failure::cannotUse(AppModel::shortVersion(to) +
                                           " has no version before it to compare with. Name one: from=<version>");
      from = *(it - 1);
    }
    return {from, to};
  };

  if (v == "diff") {
    const auto [from, to] = pair();
    const RecordingStore store(*m.baseDir());
    const Recording before = store.load(from), after = store.load(to);
    // Each version names its script; the two differ when the texts they name do.
    const auto script = [&](const Recording& rec) {
      try {
        return RecordingStore::readText(*m.baseDir() / rec.blocking.value_or("blocking.stage"));
      } catch (const std::exception&) {
        return std::string();  // no script file reads as an empty script, as the model loads it
      }
    };
    const Diff::Result result = Diff::between(before, after, script(before) != script(after));
    JSONValue::Array items;
    for (const auto& item : result.items) {
      JSONValue::Array changes;
      for (const auto& ch : item.changes) changes.push_back(changeJSON(ch));
      items.push_back(
          JSONValue::object({{"id", item.id}, {"type", name(item.type)}, {"changes", JSONValue(std::move(changes))}}));
    }
    JSONValue::Array production;
    for (const auto& line : result.production) production.emplace_back(line);
    return OperatorResult::success(JSONValue::object({{"from", AppModel::shortVersion(from)},
                                                      {"to", AppModel::shortVersion(to)},
                                                      {"summary", result.summary()},
                                                      {"items", JSONValue(std::move(items))},
                                                      {"production", JSONValue(std::move(production))},
                                                      {"blockingChanged", result.blockingChanged}}));
  }
  if (v == "diff.raw") {
    const auto [from, to] = pair();
    const std::filesystem::path dir = *m.baseDir() / "versions";
    const auto lines = TextDiff::condensed(
        TextDiff::between(RecordingStore::readText(dir / from), RecordingStore::readText(dir / to)), 3);
    JSONValue::Array out;
    for (const auto& l : lines) {
      const char* mark = l.kind == TextDiff::Line::Kind::added ? "+ " : l.kind == TextDiff::Line::Kind::removed ? "- " : "  ";
      out.emplace_back(mark + l.text);
    }
    return OperatorResult::success(JSONValue::object(
        {{"from", AppModel::shortVersion(from)}, {"to", AppModel::shortVersion(to)}, {"lines", JSONValue(std::move(out))}}));
  }
  if (v == "save") {
    m.save();
    store_.refresh();
    return OperatorResult::success(JSONValue::object(
        {{"saved", Reports::text(m.headVersion())}, {"version", AppModel::shortVersion(*m.headVersion())}}));
  }
  if (v == "versions") {
    m.recording();
    return OperatorResult::success(versionsReport());
  }
  if (v == "version.open") {
    const auto name = a.text("name");
    m.openVersion(*name);
    store_.dismissVersionMenu();
    return OperatorResult::success(versionsReport());
  }
  if (v == "version.menu") {
    m.recording();
    if (a.flag("close").value_or(false)) store_.dismissVersionMenu();
    else store_.openVersionMenu();
    return OperatorResult::success(JSONValue::object({{"versionMenu", store_.showingVersionMenu}}));
  }
  if (v == "version.head") {
    const auto name = a.text("name");
    m.makeHead(*name);
    store_.dismissVersionMenu();
    return OperatorResult::success(versionsReport());
  }
  if (v == "draft") {
    m.recording();
    // What is reported is what is on disk.
    m.flushDraft();
    const auto draft = RecordingStore(*m.baseDir()).readDraft();
    if (!draft) return OperatorResult::success(JSONValue::object({{"draft", false}}));
    return OperatorResult::success(JSONValue::object({{"draft", true},
                                                      {"basedOn", draft->basedOn},
                                                      {"savedAt", draft->savedAt},
                                                      {"head", Reports::text(m.headVersion())},
                                                      {"conflict", m.headVersion() != draft->basedOn}}));
  }
  if (v == "revert") {
    m.revert();
    return OperatorResult::success(productionReport());
  }
  return std::nullopt;
}

}  // namespace tavorin
