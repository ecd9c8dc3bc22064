#include "app/service/OperatorService.hpp"
#include "app/service/Outside.hpp"

#include <sys/stat.h>

#include <asio/async_result.hpp>
#include <asio/use_awaitable.hpp>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <stdexcept>

#include "base/IsoDate.hpp"
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/shoot/PermissionsRitual.hpp"
#include "app/service/WindowSurface.hpp"
#include "app/shoot/Stage.hpp"
#include "kit/RecordingStore.hpp"
#include "operator/BuildStamp.hpp"
#include "operator/OperatorManifest.hpp"

namespace tavorin {

namespace fs = std::filesystem;

OperatorService::OperatorService(AppStore& store, std::function<void()> terminate)
    : store_(store), terminate_(std::move(terminate)) {
  registerStatus();
  registerNav();
  registerLibrary();
  registerProduction();
  registerAgent();
  registerVersions();
  registerEdit();
  registerBlocking();
  registerChrome();
  registerTimeline();
  registerTransport();
  registerApp();
  registerPlayback();
  registerMusic();
  registerCast();
  registerLineEdits();
  registerExport();
  registerRun();
  registerRecord();
  registerSystemReadouts();
  registerTakes();
  registerPicture();
  registerRender();
  registerCasting();
  registerSound();
  registerPermissions();
  registerShootInfo();
  registerRevise();
  registerFetch();
  registerPublish();
}

AppModel& OperatorService::model() const { return store_.production(); }

const std::set<std::string>& OperatorService::handledVerbs() { return OperatorManifest::verbNames(); }

void OperatorService::on(std::string_view verb, Handler handler) {
  if (handlers_.count(verb)) throw std::logic_error("the verb " + std::string(verb) + " is registered twice");
  handlers_.emplace(verb, std::move(handler));
}

void OperatorService::onBranch(Branch branch, std::initializer_list<std::string_view> verbs) {
  for (auto verb : verbs)
    on(verb, [this, branch](const OperatorCommand& c, const OperatorArgs& a) { return answerThrough(branch, c, a); });
}

asio::awaitable<OperatorResult> OperatorService::answerThrough(Branch branch, const OperatorCommand& c,
                                                               const OperatorArgs& a) {
  Answer answer = (this->*branch)(c, a);
  // A verb registered with a branch that has no case for it: the registry test finds these.
  if (!answer) co_return OperatorResult::failure("unhandled verb '" + c.verb + "'");
  co_return std::move(*answer);
}

std::set<std::string> OperatorService::registeredVerbs() const {
  std::set<std::string> verbs;
  for (const auto& [verb, _] : handlers_) verbs.insert(verb);
  return verbs;
}

asio::awaitable<OperatorResult> OperatorService::handle(OperatorCommand command) {
  const VerbSpec* row = OperatorManifest::find(command.verb);
  if (!row) co_return OperatorResult::failure("unknown verb '" + command.verb + "'. Try: tavorinctl verbs");
  const std::string asked = command.verb;
  // A former spelling answers as the verb it spells.
  if (row->aliasOf) {
    command.verb = *row->aliasOf;
    row = OperatorManifest::find(command.verb);
  }
  const auto handler = handlers_.find(command.verb);
  // A verb whose part of the studio this build does not have yet says so.
  if (handler == handlers_.end()) co_return OperatorResult::failure("unhandled verb '" + asked + "'");
  for (const ParamSpec& p : row->params)
    if (p.required && !command.arg(p.name)) co_return OperatorResult::failure(*row->needs);
  try {
    const OperatorArgs args(command);
    co_return co_await handler->second(command, args);
  } catch (const std::exception& e) {
    co_return OperatorResult::failure(e.what());
  }
}

// ---- Report helpers -------------------------------------------------------------

JSONValue Reports::seconds(std::optional<double> t) { return t ? JSONValue::seconds(*t) : JSONValue(); }

JSONValue Reports::text(const std::optional<std::string>& s) { return s ? JSONValue(*s) : JSONValue(); }

double Reports::length(const Recording& rec) {
  double end = 0;
  for (const auto& i : rec.timeline)
    if (i.start) end = std::max(end, *i.start + i.effectiveDuration().value_or(0));
  return end;
}

JSONValue Reports::item(const Recording& rec, const TimelineItem& i) {
  JSONValue o = JSONValue::object({{"id", i.id},
                                   {"type", name(i.type)},
                                   {"start", seconds(i.start)},
                                   {"length", seconds(i.effectiveDuration())}});
  switch (i.type) {
    case ItemType::line:
      o.set("text", text(i.text));
      o.set("character", text(rec.resolvedCharacter(i)));
      o.set("voice", text(rec.resolvedVoice(i)));
      o.set("rendered", i.audio.has_value());
      o.set("approved", i.approved.value_or(false));
      o.set("stale", text(rec.staleReason(i)));
      break;
    case ItemType::label: o.set("text", text(i.text)); break;
    case ItemType::action: o.set("code", text(i.code)); break;
    case ItemType::audio:
      o.set("file", text(i.file));
      o.set("gain", i.gain ? JSONValue(*i.gain) : JSONValue());
      break;
  }
  if (i.note) o.set("note", *i.note);
  return o;
}

// ---- Reports ------------------------------------------------------------------------

JSONValue OperatorService::buildReport() const {
  const fs::path exe = BuildStamp::currentExecutable();
  JSONValue modified;
  struct stat st {};
  if (!exe.empty() && ::stat(exe.c_str(), &st) == 0) modified = JSONValue(IsoDate::format(std::chrono::system_clock::from_time_t(st.st_mtime)));
  const bool bundled = exe.empty() || !BuildStamp::checkoutRoot(exe).has_value();
  return JSONValue::object({{"version", TAVORIN_VERSION}, {"modified", modified}, {"bundled", bundled}});
}

JSONValue OperatorService::productionReport() const {
  const AppModel& m = model();
  if (!m.isOpen()) return JSONValue();
  const Recording& rec = m.recording();
  JSONValue::Array selection;
  for (const auto& id : m.selection()) selection.emplace_back(id);
  const auto shortName = [](const std::optional<std::string>& v) {
    return v ? JSONValue(AppModel::shortVersion(*v)) : JSONValue();
  };
  JSONValue report = JSONValue::object({
      {"title", rec.title},
      {"schema", rec.schema},
      {"lines", static_cast<long long>(rec.lines().size())},
      {"items", static_cast<long long>(rec.timeline.size())},
      {"length", JSONValue::seconds(Reports::length(rec))},
      {"cast", Reports::text(rec.voice.character)},
      {"voice", Reports::text(rec.voice.voice)},
      // Display names come from the voice engines, which this build does not carry.
      {"speaks", Reports::text(rec.voice.voice)},
      {"head", shortName(m.headVersion())},
      {"project", store_.currentProject() ? JSONValue(store_.currentProject()->name()) : JSONValue()},
      {"stale", static_cast<long long>(rec.staleLines().size())},
      {"dirty", m.dirty()},
      {"version", shortName(m.viewingVersion() ? m.viewingVersion() : m.headVersion())},
      {"readOnly", m.isReadOnly()},
      {"selection", JSONValue(std::move(selection))},
      {"dir", m.baseDir() ? JSONValue(m.baseDir()->string()) : JSONValue()},
  });
  if (m.loadError()) report.set("error", *m.loadError());
  return report;
}

JSONValue OperatorService::status() const {
  // Subsystems not in this build carry their honest present value: nothing rolls,
  // nothing plays, no viewer has a take.
  return JSONValue::object({
      {"version", TAVORIN_VERSION},
      {"route", word(store_.route().page)},
      {"surface", JSONValue()},
      {"rolling", stage_ && stage_->shoot().isFilming()},
      {"playing", false},
      {"transport", transportReport()},
      {"playhead", JSONValue::seconds(model().playhead())},
      {"permissionsSheet", ritual_ && ritual_->showing()},
      {"build", buildReport()},
      {"exportSheet", store_.showingExportSheet},
      {"exportSheetArmed", store_.exportSheetArmed},
      {"fetchSheet", store_.showingFetchSheet},
      {"versionMenu", store_.showingVersionMenu},
      {"viewer", viewerReport()},
      {"production", productionReport()},
  });
}

JSONValue OperatorService::toastsReport() const {
  const ToastCenter& center = model().toasts();
  JSONValue::Array list;
  for (const Toast& t : center.toasts()) {
    JSONValue o = JSONValue::object({{"id", t.id},
                                     {"kind", word(t.kind)},
                                     {"text", t.text},
                                     {"secondsLeft", JSONValue::seconds(center.secondsLeft(t))}});
    if (t.hasClock()) o.set("held", t.hovered);
    else o.set("holds", true);
    list.push_back(std::move(o));
  }
  return JSONValue::object({{"toasts", JSONValue(std::move(list))},
                            {"count", static_cast<long long>(center.toasts().size())},
                            {"overflow", static_cast<long long>(center.overflow())}});
}

// ---- status -------------------------------------------------------------------------

void OperatorService::registerStatus() {
  onBranch(&OperatorService::statusVerbs, {"ping", "status", "where", "elements", "events", "toasts"});
  on("snapshot", [this](const OperatorCommand& c, const OperatorArgs& a) { return snapshot(c, a); });
}

namespace {

// Hands the photograph to the window; its answer resumes the verb on the main actor.
struct Photograph {
  WindowSurface* window;
  std::filesystem::path path;
  double settle;

  template <class Handler>
  void operator()(Handler handler) {
    auto resume = std::make_shared<Handler>(std::move(handler));
    window->photograph(path, settle, [resume](std::exception_ptr failure, JSONValue report) {
      std::move(*resume)(failure, std::move(report));
    });
  }
};

// Not a coroutine itself, for the same reason as offloaded().
asio::awaitable<JSONValue> photographed(WindowSurface* window, std::filesystem::path path, double settle) {
  return asio::async_initiate<const asio::use_awaitable_t<>, void(std::exception_ptr, JSONValue)>(
      Photograph{window, std::move(path), settle}, asio::use_awaitable);
}

}  // namespace

asio::awaitable<OperatorResult> OperatorService::snapshot(const OperatorCommand&, const OperatorArgs& a) {
  if (!window_) co_return OperatorResult::failure("no window available for snapshot");
  const auto path = a.path("path");
  if (!path) co_return OperatorResult::failure("snapshot needs path=<a .png file>");
  const double settle = a.number("settle").value_or(0.3);
  if (settle < 0 || settle > 3) co_return OperatorResult::failure("settle is between 0 and 3 seconds");
  co_return OperatorResult::success(co_await photographed(window_, *path, settle));
}

OperatorService::Answer OperatorService::statusVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "ping") return OperatorResult::success(JSONValue::object({{"pong", true}}));
  if (v == "status") return OperatorResult::success(status());
  if (v == "where") return OperatorResult::success(JSONValue::object({{"where", word(store_.route().page)}}));
  if (v == "elements") {
    if (window_) return OperatorResult::success(window_->elements());
    // A headless studio draws nothing: no panels to list.
    return OperatorResult::success(JSONValue::object(
        {{"window", JSONValue()}, {"page", word(store_.route().page)}, {"panels", JSONValue::array({})}}));
  }
  if (v == "events") {
    JSONValue::Array events;
    for (const auto& e : model().events()) events.emplace_back(e);
    return OperatorResult::success(JSONValue::object({{"events", JSONValue(std::move(events))}}));
  }
  if (v == "toasts") {
    if (auto dismiss = a.text("dismiss")) {
      ToastCenter& center = model().toasts();
      if (*dismiss == "all") center.dismissAll();
      else if (*dismiss == "overflow") center.dismissOverflow();
      else if (!center.dismiss(*dismiss))
        return OperatorResult::failure("no toast '" + *dismiss + "' is up. Try: tavorinctl toasts");
    }
    return OperatorResult::success(toastsReport());
  }
  return std::nullopt;
}

// ---- chrome and app ---------------------------------------------------------------------

void OperatorService::registerChrome() { onBranch(&OperatorService::chromeVerbs, {"palette"}); }

void OperatorService::registerApp() { onBranch(&OperatorService::appVerbs, {"quit"}); }

OperatorService::Answer OperatorService::chromeVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  if (c.verb != "palette") return std::nullopt;
  AppModel& m = model();
  m.paletteOpen = a.flag("open").value_or(!m.paletteOpen);
  m.note(m.paletteOpen ? "palette lab open" : "palette lab closed");
  return OperatorResult::success(JSONValue::object({{"palette", m.paletteOpen}}));
}

OperatorService::Answer OperatorService::appVerbs(const OperatorCommand& c, const OperatorArgs&) {
  if (c.verb != "quit") return std::nullopt;
  model().note("quit requested by the operator");
  // The answer goes out first; the process ends a moment later.
  terminate_();
  return OperatorResult::success(JSONValue::object({{"quitting", true}}));
}

}  // namespace tavorin
