// The render group (the queue) and the transport group's variant verbs: what a
// line has been rendered as, and which of those it speaks with.
#include <limits>

#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"

namespace tavorin {

namespace {

JSONValue texts(const std::vector<std::string>& list) {
  JSONValue::Array out;
  for (const auto& s : list) out.emplace_back(s);
  return JSONValue(std::move(out));
}

std::string stateWord(RenderQueue::State::Kind kind) {
  switch (kind) {
    case RenderQueue::State::Kind::queued: return "queued";
    case RenderQueue::State::Kind::rendering: return "rendering";
    case RenderQueue::State::Kind::done: return "done";
    case RenderQueue::State::Kind::failed: return "failed";
  }
  return "queued";
}

JSONValue stateReport(const std::optional<RenderQueue::State>& state) {
  if (!state) return JSONValue();
  return JSONValue::object({{"state", stateWord(state->kind)},
                            {"reason", state->kind == RenderQueue::State::Kind::failed ? JSONValue(state->reason)
                                                                                        : JSONValue()}});
}

JSONValue variantReport(const Variant& v, const TimelineItem& line) {
  return JSONValue::object({{"take", static_cast<long long>(v.number)},
                            {"file", v.file},
                            {"text", v.text},
                            {"character", Reports::text(v.character)},
                            {"voice", Reports::text(v.voice)},
                            {"seconds", JSONValue::seconds(v.seconds)},
                            {"offset", v.offset ? JSONValue::seconds(*v.offset) : JSONValue()},
                            {"group", Reports::text(v.group)},
                            {"split", Reports::text(v.split)},
                            {"imported", v.imported.value_or(false)},
                            {"live", v.isLive(line)},
                            {"old", v.isOld(line)}});
}

// A variant number: `take` must be a whole number.
int takeNumber(const OperatorCommand& c, const OperatorArgs& a) {
  const auto take = a.integer("take");
  if (!take) throw AppModelFailure::badValue("take", c.arg("take").value_or(""));
  return static_cast<int>(*take);
}

}  // namespace

JSONValue OperatorService::renderStatusReport() const {
  AppModel& m = model();
  const RenderQueue* q = m.rendersIfMade();
  JSONValue::Object tickets;
  if (q)
    for (const auto& [ticket, state] : q->states()) tickets.emplace(ticket, stateReport(state));
  JSONValue::Array lines;
  std::size_t stale = 0;
  if (m.isOpen()) {
    const Recording& rec = m.recording();
    for (const TimelineItem* line : rec.lines()) {
      const auto reason = rec.staleReason(*line);
      if (reason) ++stale;
      lines.push_back(JSONValue::object({{"id", line->id},
                                         {"audio", Reports::text(line->audio)},
                                         {"duration", Reports::seconds(line->duration)},
                                         {"render", stateReport(q ? q->state(line->id) : std::nullopt)},
                                         {"stale", Reports::text(reason)},
                                         {"approved", line->approved.value_or(false)}}));
    }
  }
  JSONValue::Array pending;
  if (q)
    for (const auto& t : q->pending()) pending.emplace_back(t);
  const std::size_t depth = q ? q->depth() : 0;
  return JSONValue::object(
      {{"idle", !q || !q->busy()},
       {"depth", static_cast<long long>(depth)},
       {"current", q && q->current() ? JSONValue(*q->current()) : JSONValue()},
       {"elapsed", q && q->currentElapsed() ? JSONValue::seconds(*q->currentElapsed()) : JSONValue()},
       {"pending", JSONValue(std::move(pending))},
       {"inFlight", static_cast<long long>(q ? q->inFlight() : 0)},
       {"peakConcurrency", static_cast<long long>(q ? q->peakConcurrency() : 0)},
       {"tickets", JSONValue(std::move(tickets))},
       {"lines", JSONValue(std::move(lines))},
       {"stale", static_cast<long long>(stale)},
       {"samples", static_cast<long long>(m.sampleCount())},
       {"heldBack", texts(m.heldBackApproved())},
       {"lastSplitRefusal", Reports::text(m.lastSplitRefusal())}});
}

OperatorService::Answer OperatorService::renderVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  if (c.verb == "lines") {
    if (!m.isOpen()) throw AppModelFailure::noProduction();
    return OperatorResult::success(linesReport());
  }
  const std::string& v = c.verb;
  if (v == "render") {
    const bool force = a.flag("force").value_or(false);
    std::optional<int> samples;
    if (auto n = a.integer("samples")) samples = static_cast<int>(*n);
    else if (c.arg("samples")) throw AppModelFailure::badSampleCount(*c.arg("samples"));
    std::vector<std::string> queued;
    const auto ids = a.idList("ids");
    if (a.flag("stale").value_or(false)) {
      queued = m.renderStale(a.flag("approved").value_or(false));
    } else if (a.flag("all").value_or(false)) {
      std::vector<std::string> every;
      for (const TimelineItem* line : m.recording().lines()) every.push_back(line->id);
      // Every line, but a generation already spoken as it stands is left alone.
      queued = m.render(every, force, samples, true);
    } else if (!ids.empty()) {
      queued = m.render(ids, force, samples, false);
    } else {
      return OperatorResult::failure("render needs ids=<l1,l2>, all=1 or stale=1");
    }
    JSONValue::Array generations;
    if (const RenderQueue* q = m.rendersIfMade())
      for (const auto& t : q->pending())
        if (VoiceGroups::isGroupTicket(RenderQueue::Ticket::line(t))) generations.emplace_back(t);
    return OperatorResult::success(JSONValue::object({{"queued", texts(queued)},
                                                      {"generations", JSONValue(std::move(generations))},
                                                      {"heldBack", texts(m.heldBackApproved())},
                                                      {"depth", static_cast<long long>(m.renders().depth())}}));
  }
  if (v == "render.status") return OperatorResult::success(renderStatusReport());
  if (v == "render.samples") {
    if (c.arg("n")) {
      const auto n = a.integer("n");
      if (!n || *n < 1 || *n > 8) throw AppModelFailure::badSampleCount(*c.arg("n"));
      m.setSampleCount(static_cast<int>(*n));
      m.note("renders ask for " + std::to_string(*n) + (*n == 1 ? " variant" : " variants"));
    }
    return OperatorResult::success(JSONValue::object({{"n", static_cast<long long>(m.sampleCount())}}));
  }
  if (v == "render.cancel") {
    const auto id = a.text("id");
    const std::size_t before = m.renders().depth();
    m.renders().cancel(id);
    m.note(id ? "cancelled the render of " + *id : "cancelled every render");
    return OperatorResult::success(JSONValue::object(
        {{"cancelled", id ? JSONValue(*id) : JSONValue("all")},
         {"before", static_cast<long long>(before)},
         {"depth", static_cast<long long>(m.renders().pending().size())}}));
  }
  return std::nullopt;
}

OperatorService::Answer OperatorService::variantVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  const std::string& v = c.verb;
  const auto id = a.text("id");
  if (!id) return OperatorResult::failure(v + " needs id=<line id>");
  const Recording& rec = m.recording();
  const TimelineItem* line = rec.item(*id);
  if (!line || line->type != ItemType::line) throw AppModelFailure::noSuchLine(*id);
  if (v == "line.approve") {
    const bool on = m.approveLine(*id, a.flag("on"));
    return OperatorResult::success(JSONValue::object({{"id", *id}, {"approved", on}}));
  }
  if (v == "line.samples") {
    JSONValue::Array list;
    for (const auto& each : m.variants(*id)) list.push_back(variantReport(each, *line));
    JSONValue live;
    if (const auto found = m.liveVariant(*id)) live = JSONValue(static_cast<long long>(found->number));
    return OperatorResult::success(JSONValue::object(
        {{"id", *id},
         {"count", static_cast<long long>(list.size())},
         {"live", std::move(live)},
         {"stale", Reports::text(rec.staleReason(*line))},
         {"samples", JSONValue(std::move(list))}}));
  }
  const int take = takeNumber(c, a);
  if (v == "line.sample.use") m.useVariant(*id, take);
  else if (v == "line.sample.remove") m.removeVariant(*id, take);
  else if (v == "line.sample.play") m.playVariant(*id, take);
  else return std::nullopt;
  const TimelineItem* now = m.recording().item(*id);
  return OperatorResult::success(JSONValue::object({{"id", *id},
                                                    {"take", static_cast<long long>(take)},
                                                    {"audio", Reports::text(now->audio)},
                                                    {"duration", Reports::seconds(now->duration)},
                                                    {"start", Reports::seconds(now->start)}}));
}

JSONValue OperatorService::linesReport() const {
  AppModel& m = model();
  const Recording& rec = m.recording();
  const auto take = m.monitorTake();
  // Lines that begin after the picture ends play over black; only a take has an end.
  const double picture = take ? Cut::length(rec, take->footage()) : std::numeric_limits<double>::infinity();
  JSONValue::Array out;
  for (const TimelineItem* line : rec.lines()) {
    const VoicePlan plan = m.voicePlan(*line, rec);
    const auto reason = rec.staleReason(*line);
    const bool approved = line->approved.value_or(false);
    // Approved, then changed: the approval no longer vouches for what would be heard.
    const bool drifted = approved && reason.has_value();
    const auto group = m.voiceGroup(line->id);
    const auto& from = line->renderedFrom;
    const std::optional<std::string> generation = from ? from->group : std::nullopt;
    // Built member by member: one long initializer list of conditional values is more
    // than the compiler's flow analysis follows without false warnings.
    JSONValue row;
    row.set("id", line->id);
    row.set("text", Reports::text(line->text));
    row.set("start", Reports::seconds(line->start));
    row.set("duration", Reports::seconds(line->duration));
    row.set("effective", Reports::seconds(line->effectiveDuration()));
    row.set("rate", line->rate.value_or(1.0));
    if (plan.refused()) {
      row.set("character", Reports::text(line->character ? line->character : rec.voice.character));
      row.set("speaks", JSONValue());
    } else {
      row.set("character", plan.character);
      row.set("speaks", plan.voice);
    }
    row.set("voice", Reports::text(line->voice));
    row.set("approved", approved);
    row.set("approveMark", approved ? (drifted ? "✓ changed since" : "✓") : "");
    row.set("drifted", drifted);
    row.set("rendered", line->audio.has_value());
    row.set("stale", reason.has_value());
    row.set("staleReason", Reports::text(reason));
    row.set("samples", static_cast<long long>(m.variants(line->id).size()));
    row.set("pastEnd", line->start.value_or(0) >= picture - 0.001);
    row.set("group", group && !group->isAlone() ? JSONValue(group->hash) : JSONValue());
    row.set("generation", Reports::text(generation));
    row.set("offset", Reports::seconds(from ? from->offset : std::nullopt));
    row.set("split", Reports::text(from ? from->split : std::nullopt));
    row.set("contiguous", generation ? JSONValue(m.isContiguous(*generation)) : JSONValue());
    row.set("together", Reports::text(line->together));
    out.push_back(std::move(row));
  }
  return JSONValue::object({{"lines", JSONValue(std::move(out))}});
}

void OperatorService::registerRender() {
  onBranch(&OperatorService::renderVerbs, {"lines", "render", "render.status", "render.samples", "render.cancel"});
  onBranch(&OperatorService::variantVerbs,
           {"line.samples", "line.sample.play", "line.sample.use", "line.sample.remove", "line.approve"});
}

}  // namespace tavorin
