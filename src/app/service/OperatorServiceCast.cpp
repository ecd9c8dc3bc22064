// The cast group's verbs (voice engines, the local server, generations, a line's
// own audio) and the production group's line edits.
#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>
#include <chrono>

#include "app/model/AppModel.hpp"
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "voice/VoiceLadder.hpp"
#include "voice/local/LocalDriver.hpp"

namespace tavorin {

namespace {

JSONValue count(std::size_t n) { return JSONValue(static_cast<long long>(n)); }

JSONValue texts(const std::vector<std::string>& list) {
  JSONValue::Array out;
  for (const auto& each : list) out.push_back(each);
  return JSONValue(std::move(out));
}

JSONValue healthReport(const std::string& name, const DriverHealth& h) {
  return JSONValue::object({{"name", name},
                            {"present", h.present},
                            {"clones", h.clones},
                            {"location", h.location ? JSONValue(tavorin::name(*h.location)) : JSONValue()},
                            {"characters", static_cast<long long>(h.characters)},
                            {"voices", static_cast<long long>(h.voices)},
                            {"source", h.source},
                            {"note", Reports::text(h.note)}});
}

JSONValue castReport(const std::vector<DriverCharacter>& cast) {
  JSONValue::Array out;
  for (const auto& c : cast) {
    JSONValue::Array voices;
    for (const auto& v : c.voices) voices.push_back(v.id);
    out.push_back(JSONValue::object({{"id", c.id},
                                     {"name", c.name},
                                     {"defaultVoice", Reports::text(c.defaultVoiceId())},
                                     {"voices", JSONValue(std::move(voices))}}));
  }
  return JSONValue(std::move(out));
}

}  // namespace

JSONValue OperatorService::voiceReport() const {
  AppModel& m = model();
  JSONValue::Array engines;
  for (const auto& driver : m.engines().all()) engines.push_back(healthReport(driver->name(), m.health(*driver)));
  const DriverHealth health = m.voiceHealth();
  const bool nativeReady = m.health(*m.engines().kokoro()).present;
  const VoiceRung rung = VoiceLadder::rung(health, m.production() ? &*m.production() : nullptr, nativeReady);
  return JSONValue::object({{"engines", JSONValue(std::move(engines))},
                            {"driver", m.driver()->name()},
                            {"model", m.voiceModel()},
                            {"modelTitle", m.voiceModelTitle()},
                            {"rung", name(rung)},
                            {"says", m.rungSays()},
                            {"renders", rendersVoice(rung)},
                            {"health", healthReport(m.driver()->name(), health)},
                            {"cast", castReport(m.cast())},
                            {"character", m.production() ? Reports::text(m.production()->voice.character) : JSONValue()},
                            {"voice", Reports::text(m.productionVoiceName())},
                            {"refusal", Reports::text(m.productionVoiceRefusal())}});
}

JSONValue OperatorService::localServerReport() const {
  AppModel& m = model();
  const auto& local = m.engines().local();
  const LocalServer server = local->server();
  return JSONValue::object({{"url", server.url},
                            {"key", server.key.has_value()},  // whether there is one; never the key itself
                            {"file", local->file().string()},
                            {"revision", static_cast<long long>(m.localServerRevision())},
                            {"inUse", m.usesLocalServer()},
                            {"health", healthReport("local", m.health(*local))}});
}

JSONValue OperatorService::voiceGroupsReport() const {
  AppModel& m = model();
  const Recording& rec = m.recording();
  JSONValue::Array groups;
  for (const auto& g : m.voiceGroups()) {
    JSONValue::Array slices;
    bool landedTogether = !g.isAlone();
    for (const auto& id : g.lineIds) {
      const TimelineItem* line = rec.item(id);
      const auto& receipt = line ? line->renderedFrom : std::nullopt;
      if (!receipt || receipt->group != g.hash) landedTogether = false;
      slices.push_back(JSONValue::object({{"id", id},
                                          {"start", Reports::seconds(line ? line->start : std::nullopt)},
                                          {"offset", receipt && receipt->group == g.hash
                                                         ? JSONValue::seconds(receipt->startsAt())
                                                         : JSONValue()}}));
    }
    const TimelineItem* first = rec.item(g.lineIds.front());
    groups.push_back(JSONValue::object(
        {{"hash", g.hash},
         {"ticket", g.ticket()},
         {"file", "audio/" + g.file()},
         {"lines", texts(g.lineIds)},
         {"text", g.text},
         {"character", Reports::text(g.character)},
         {"voice", Reports::text(g.voice)},
         {"alone", g.isAlone()},
         {"pinned", Reports::text(first ? first->together : std::nullopt)},
         {"slices", JSONValue(std::move(slices))},
         {"landed", landedTogether},
         {"contiguous", landedTogether ? JSONValue(m.isContiguous(g.hash)) : JSONValue()}}));
  }
  const VoiceSpan span = m.voiceSpan();
  return JSONValue::object({{"span", span.raw() ? JSONValue(*span.raw()) : JSONValue("line")},
                            {"spanTitle", span.title()},
                            {"packLimit", static_cast<long long>(VoiceGroups::packLimit)},
                            {"count", count(groups.size())},
                            {"groups", JSONValue(std::move(groups))}});
}

asio::awaitable<OperatorResult> OperatorService::voiceCheck() {
  AppModel& m = model();
  m.refreshDriver();
  // The engines are asked on the worker pool; this verb waits for their answers on
  // a timer, so the main actor serves everything else meanwhile.
  asio::steady_timer timer(co_await asio::this_coro::executor);
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  auto allAnswered = [&] {
    for (const auto& driver : m.engines().all())
      if (m.health(*driver).source == DriverHealth::checkingSource) return false;
    return m.voiceHealth().source != DriverHealth::checkingSource;
  };
  while (!allAnswered() && std::chrono::steady_clock::now() < until) {
    timer.expires_after(std::chrono::milliseconds(20));
    co_await timer.async_wait(asio::use_awaitable);
  }
  co_return OperatorResult::success(voiceReport());
}

OperatorService::Answer OperatorService::castVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "voice") return OperatorResult::success(voiceReport());
  if (v == "voice.local") return OperatorResult::success(localServerReport());
  if (v == "voice.local.set") {
    // A key given blank clears it, so its presence counts, not its value.
    const bool hasURL = c.args.count("url") > 0, hasKey = c.args.count("key") > 0;
    if (!hasURL && !hasKey) return OperatorResult::failure("voice.local.set needs url=<host:port> or key=<api key>");
    model().useLocalServer(hasURL ? std::optional<std::string>(c.args.at("url")) : std::nullopt,
                           hasKey ? std::optional<std::string>(c.args.at("key")) : std::nullopt);
    return OperatorResult::success(localServerReport());
  }
  if (v == "voice.groups") return OperatorResult::success(voiceGroupsReport());
  if (v == "line.audio") {
    const auto id = a.text("id");
    const auto path = a.path("path");
    if (!id || !path) return OperatorResult::failure("line.audio needs id=<line id> path=<audio file>");
    const double seconds = model().importVoice(*path, *id);
    const TimelineItem& line = *model().recording().item(*id);
    return OperatorResult::success(JSONValue::object(
        {{"id", *id}, {"audio", Reports::text(line.audio)}, {"duration", JSONValue::seconds(seconds)}}));
  }
  return std::nullopt;
}

OperatorService::Answer OperatorService::lineEditVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  if (v == "lines.glue") {
    const auto id = a.text("id");
    if (!id) return OperatorResult::failure("lines.glue needs id=<line id>");
    const auto glue = model().glueLines(*id);
    return OperatorResult::success(JSONValue::object({{"group", glue.group},
                                                      {"closed", texts(glue.closed)},
                                                      {"delta", JSONValue::seconds(glue.delta)},
                                                      {"moved", texts(glue.moved)}}));
  }
  if (v == "line.split") {
    const auto id = a.text("id");
    const auto at = a.text("at") ? a.integer("at") : std::nullopt;
    if (!id || !a.text("at")) return OperatorResult::failure("line.split needs id=<line id> and at=<characters>");
    if (!at) throw AppModel::Failure::badValue("at", *a.text("at"));
    const auto split = model().splitLine(*id, static_cast<int>(*at));
    return OperatorResult::success(
        JSONValue::object({{"head", split.head}, {"tail", split.tail}, {"moved", texts(split.moved)}}));
  }
  if (v == "lines.merge") {
    const auto ids = a.idList("ids");
    if (ids.empty()) return OperatorResult::failure("lines.merge needs ids=<line id,line id>");
    const auto merge = model().mergeLines(ids);
    return OperatorResult::success(
        JSONValue::object({{"kept", merge.kept}, {"gone", texts(merge.gone)}, {"moved", texts(merge.moved)}}));
  }
  if (v == "lines.together") {
    const auto ids = a.idList("ids");
    if (ids.empty()) return OperatorResult::failure("lines.together needs ids=<line id,line id>");
    const auto pin = model().generateTogether(ids);
    return OperatorResult::success(JSONValue::object({{"name", pin.name}, {"ids", texts(pin.ids)}}));
  }
  if (v == "lines.alone") {
    const auto ids = a.idList("ids");
    if (ids.empty()) return OperatorResult::failure("lines.alone needs ids=<line id,line id>");
    return OperatorResult::success(JSONValue::object({{"unpinned", texts(model().generateAlone(ids))}}));
  }
  return std::nullopt;
}

void OperatorService::registerCast() {
  onBranch(&OperatorService::castVerbs, {"voice", "voice.local", "voice.local.set", "voice.groups", "line.audio"});
  // Waits for every engine's answer without holding up the main actor.
  on("voice.check", [this](const OperatorCommand&, const OperatorArgs&) { return voiceCheck(); });
}

void OperatorService::registerLineEdits() {
  onBranch(&OperatorService::lineEditVerbs,
           {"lines.glue", "line.split", "lines.merge", "lines.together", "lines.alone"});
}

}  // namespace tavorin
