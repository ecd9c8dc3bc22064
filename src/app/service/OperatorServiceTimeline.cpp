// The timeline group: the geometry the canvas draws, the cut, the zooms and the lanes.
#include <array>
#include <cmath>

#include "app/model/AppStore.hpp"
#include "app/model/Scope.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/service/TimelineReport.hpp"
#include "kit/Schedule.hpp"
#include "kit/Zooms.hpp"

namespace tavorin {

using Lane = TimelineGeometry::Lane;

namespace {

// The left rail that carries the lanes' names and speakers.
constexpr double railWidth = 120;
// The canvas a fit sizes the production to: the default window less the rail.
constexpr double canvasWidth = 1440 - railWidth;


// What one block of a lane is called, for the rail's counts.
const char* unit(Lane lane) {
  switch (lane) {
    case Lane::ruler: return "seconds";
    case Lane::screen: return "segments";
    case Lane::zooms: return "zooms";
    case Lane::actions: return "cues";
    case Lane::voice: return "lines";
    case Lane::music: return "beds";
    case Lane::labels: return "labels";
  }
  return "";
}

// The ruler's steps: the finest that keeps ticks 8 pixels apart and labels 64.
double rulerStep(double px, double least) {
  static constexpr std::array steps{0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0, 15.0, 30.0, 60.0, 120.0, 300.0, 600.0};
  for (double s : steps)
    if (s * px >= least) return s;
  return steps.back();
}

JSONValue laneNames(const auto& lanes) {
  JSONValue::Array out;
  for (Lane l : lanes) out.emplace_back(TimelineGeometry::name(l));
  return JSONValue(std::move(out));
}

std::string laneChoices(const std::vector<Lane>& lanes) {
  std::string out;
  for (Lane l : lanes) out += (out.empty() ? "" : ", ") + TimelineGeometry::name(l);
  return out;
}

JSONValue segmentReport(const Cut::Placed& p) {
  const Segment& s = p.segment;
  return JSONValue::object({{"id", s.id},
                            {"take", Reports::text(s.take)},
                            {"from", JSONValue::seconds(s.from)},
                            {"to", JSONValue::seconds(s.to)},
                            {"rate", Cut::rate(s)},
                            {"start", JSONValue::seconds(p.start)},
                            {"length", JSONValue::seconds(Cut::length(s))},
                            {"end", JSONValue::seconds(p.end())}});
}

// Left out changes nothing; given blank, it goes back to the style's own ramp.
std::optional<std::optional<double>> ramp(const OperatorCommand& c, const OperatorArgs& a) {
  const auto given = c.args.find("ramp");
  if (given == c.args.end()) return std::nullopt;
  if (given->second.empty()) return std::optional<double>();
  return a.number("ramp");
}

}  // namespace

JSONValue OperatorService::segmentsReport() const {
  const AppModel& m = model();
  const auto take = m.monitorTake();
  const double footage = take ? take->footage() : 0;
  JSONValue::Array list;
  for (const auto& p : m.placedSegments()) list.push_back(segmentReport(p));
  return JSONValue::object({{"segments", JSONValue(std::move(list))},
                            {"take", take ? JSONValue(take->id) : JSONValue()},
                            {"footage", take ? JSONValue::seconds(footage) : JSONValue()},
                            {"cut", Cut::isCut(m.recording(), footage)},
                            {"length", JSONValue::seconds(Cut::length(m.recording(), footage))}});
}

JSONValue OperatorService::zoomReport(const Zoom& z) const {
  const Zoom::Anchor aim = z.anchor.value_or(Zoom::Anchor{});
  return JSONValue::object({{"id", z.id},
                            {"from", JSONValue::seconds(z.from)},
                            {"to", JSONValue::seconds(z.to)},
                            {"length", JSONValue::seconds(z.to - z.from)},
                            {"scale", Zooms::clampScale(z.scale)},
                            {"x", Zooms::clamped01(aim.x)},
                            {"y", Zooms::clamped01(aim.y)},
                            {"style", Zooms::name(Zooms::style(z))},
                            {"ramp", JSONValue::seconds(Zooms::ramp(z))},
                            {"rampSet", z.ramp ? JSONValue::seconds(*z.ramp) : JSONValue()},
                            {"summary", Zooms::summary(z)}});
}

JSONValue OperatorService::timelineInfo() const {
  const AppModel& m = model();
  const Recording& rec = m.recording();
  const TimelineGeometry g = m.geometry();
  JSONValue::Object heights, titles, units;
  for (Lane l : g.lanes) {
    heights.emplace(TimelineGeometry::name(l), TimelineGeometry::blockHeight(l));
    titles.emplace(TimelineGeometry::name(l), TimelineGeometry::title(l));
    units.emplace(TimelineGeometry::name(l), unit(l));
  }
  const auto take = m.monitorTake();
  const double footage = take ? take->footage() : 0;
  const double picture = Cut::length(rec, footage);
  // Lines that start after the picture has ended play over black.
  JSONValue::Array pastEnd;
  if (take)
    for (const auto& span : Schedule::lineSpans(rec))
      if (span.start >= picture - 0.001) pastEnd.emplace_back(span.id);
  return JSONValue::object({{"lanes", laneNames(g.lanes)},
                            {"pxPerSecond", g.pxPerSecond},
                            {"fitted", m.fitted()},
                            {"length", JSONValue::seconds(g.total)},
                            {"contentWidth", std::ceil(g.total * g.pxPerSecond)},
                            {"height", g.height()},
                            {"playhead", JSONValue::seconds(m.playhead())},
                            {"laneHeights", JSONValue(std::move(heights))},
                            {"laneTitles", JSONValue(std::move(titles))},
                            {"laneUnits", JSONValue(std::move(units))},
                            {"railWidth", railWidth},
                            {"mutedLanes", laneNames(m.mutedLanes())},
                            {"hiddenLanes", laneNames(m.hiddenLanes())},
                            {"waveforms", m.showWaveforms},
                            {"take", take ? JSONValue(take->id) : JSONValue()},
                            {"footage", take ? JSONValue::seconds(footage) : JSONValue()},
                            {"picture", take ? JSONValue::seconds(picture) : JSONValue()},
                            {"segments", static_cast<long long>(m.placedSegments().size())},
                            {"pastEnd", JSONValue(std::move(pastEnd))},
                            {"labelStep", rulerStep(g.pxPerSecond, 64)},
                            {"tickStep", rulerStep(g.pxPerSecond, 8)},
                            {"lines", static_cast<long long>(rec.lines().size())},
                            {"cues", static_cast<long long>(m.cues().size())}});
}

asio::awaitable<OperatorResult> OperatorService::zoomListVerb(const OperatorCommand&, const OperatorArgs&) {
  AppModel& m = model();
  const Recording& rec = m.recording();
  // The filter is sized by the film on the monitor, which is asked off the main actor.
  std::optional<Footage::Answer> film;
  if (const auto take = m.monitorTake()) {
    auto answer = std::make_shared<Footage::Answer>();
    const Start start = [&](auto done) {
      m.probeTake(*take, [answer, done](const Footage::Answer& a) {
        *answer = a;
        done(nullptr);
      });
    };
    co_await landed(start);
    film = *answer;
  }
  JSONValue::Array list;
  const auto zooms = m.zooms();
  for (const auto& z : zooms) list.push_back(zoomReport(z));
  const double t = m.playhead();
  const Zooms::Frame frame = Zooms::frame(t, m.recording());
  const Zoom* active = Zooms::active(t, rec);
  // The picture layer is scaled about its middle and shifted to bring the aim there.
  JSONValue monitor = JSONValue::object({{"scale", frame.scale},
                                         {"shiftX", (0.5 - frame.x) * frame.scale},
                                         {"shiftY", (0.5 - frame.y) * frame.scale}});
  JSONValue now = JSONValue::object({{"time", JSONValue::seconds(t)},
                                     {"zoom", active ? JSONValue(active->id) : JSONValue()},
                                     {"scale", frame.scale},
                                     {"x", frame.x},
                                     {"y", frame.y},
                                     {"monitor", monitor}});
  JSONValue filter, picture;
  if (film && film->size) {
    const double fps = film->rate.value_or(30);
    picture = JSONValue::object({{"width", film->size->width}, {"height", film->size->height}, {"fps", fps}});
    if (auto text = Zooms::filter(zooms, film->size->width, film->size->height, fps, "in_time")) filter = *text;
  }
  co_return OperatorResult::success(JSONValue::object({{"zooms", JSONValue(std::move(list))},
                                                       {"now", now},
                                                       {"picture", picture},
                                                       {"filter", filter}}));
}

OperatorService::Answer OperatorService::pictureVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  const std::string& v = c.verb;
  if (v == "timeline.info") return OperatorResult::success(timelineInfo());
  if (v == "timeline.items") {
    const TimelineGeometry g = m.geometry();
    return OperatorResult::success(JSONValue::object({{"items", TimelineReport::items(g, m.recording())},
                                                      {"pxPerSecond", g.pxPerSecond},
                                                      {"length", JSONValue::seconds(g.total)}}));
  }
  if (v == "segment.list") return OperatorResult::success(segmentsReport());
  if (v == "segment.split") {
    const std::string id = m.splitPicture(a.number("at"));
    JSONValue report = segmentsReport();
    report.set("id", id);
    return OperatorResult::success(report);
  }
  if (v == "segment.remove") {
    std::string id;
    double out = 0;
    if (auto given = a.text("id")) {
      out = m.removeSegment(*given);
      id = *given;
    } else {
      if (!m.rippleTarget()) {
        m.requireEditable();
        return OperatorResult::failure("segment.remove needs id=<segment>. Try: tavorinctl segment.list");
      }
      const double before = Cut::length(m.recording(), m.cutFootage());
      id = m.rippleDelete();
      out = before - Cut::length(m.recording(), m.cutFootage());
    }
    JSONValue report = segmentsReport();
    report.set("removed", id);
    report.set("seconds", JSONValue::seconds(out));
    return OperatorResult::success(report);
  }
  if (v == "segment.trim" || v == "segment.set") {
    const auto from = a.number("from"), to = a.number("to");
    if (!from && !to) return OperatorResult::failure(v + " needs from=<seconds> or to=<seconds>");
    const std::string id = *a.text("id");
    if (v == "segment.trim") m.trimSegment(id, from, to);
    else m.setSegment(id, from, to);
    return OperatorResult::success(segmentsReport());
  }
  if (v == "segment.rate") {
    m.setSegmentRate(*a.text("id"), *a.number("rate"));
    return OperatorResult::success(segmentsReport());
  }
  if (v == "zoom.add") {
    const std::string id =
        m.addZoom(a.number("at"), a.number("length"), a.number("scale"), a.number("x"), a.number("y"), a.text("style"));
    return OperatorResult::success(zoomReport(*Zooms::zoom(id, m.recording())));
  }
  if (v == "zoom.set") {
    const std::string id = *a.text("id");
    AppModel::ZoomChange change;
    change.from = a.number("from");
    change.to = a.number("to");
    change.at = a.number("at");
    change.scale = a.number("scale");
    change.x = a.number("x");
    change.y = a.number("y");
    change.style = a.text("style");
    change.ramp = ramp(c, a);
    m.changeZoom(id, change);
    return OperatorResult::success(zoomReport(*Zooms::zoom(id, m.recording())));
  }
  if (v == "zoom.remove") {
    std::string id;
    if (auto given = a.text("id")) id = *given;
    else if (auto picked = m.selectedZooms(); !picked.empty()) id = picked.front().id;
    else if (const Zoom* under = m.isOpen() ? Zooms::active(m.playhead(), m.recording()) : nullptr) id = under->id;
    else {
      m.requireEditable();
      return OperatorResult::failure("zoom.remove needs id=<zoom>. Try: tavorinctl zoom.list");
    }
    m.removeZoom(id);
    return OperatorResult::success(JSONValue::object({{"removed", id}}));
  }
  return std::nullopt;
}

OperatorService::Answer OperatorService::laneVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  const std::string& v = c.verb;
  if (v == "lane.hide") {
    const auto hideable = TimelineGeometry::hideable(Scope::scripting());
    if (a.flag("all").value_or(false)) {
      m.showAllLanes();
    } else if (auto name = a.text("lane")) {
      const auto lane = TimelineGeometry::parseLane(*name);
      if (!lane || std::find(hideable.begin(), hideable.end(), *lane) == hideable.end())
        return OperatorResult::failure("no lane '" + *name + "' to hide. Try: " + laneChoices(hideable));
      m.setLaneHidden(*lane, a.flag("on").value_or(!m.hiddenLanes().count(*lane)));
    }
    return OperatorResult::success(
        JSONValue::object({{"hidden", laneNames(m.hiddenLanes())}, {"lanes", laneNames(m.visibleLanes())}}));
  }
  if (v == "lane.mute") {
    if (auto name = a.text("lane")) {
      const auto lane = TimelineGeometry::parseLane(*name);
      if (!lane) return OperatorResult::failure("no lane '" + *name + "'. Try: voice or music");
      m.setLaneMuted(*lane, a.flag("on").value_or(!m.mutedLanes().count(*lane)));
    }
    return OperatorResult::success(JSONValue::object({{"muted", laneNames(m.mutedLanes())}}));
  }
  if (v == "waveforms") {
    m.showWaveforms = a.flag("show").value_or(!m.showWaveforms);
    m.note(m.showWaveforms ? "waveforms drawn" : "waveforms hidden");
    return OperatorResult::success(JSONValue::object({{"waveforms", m.showWaveforms}}));
  }
  if (v == "timeline.zoom") {
    if (a.flag("fit").value_or(false)) m.fitTimeline(canvasWidth);
    else if (auto px = a.number("px")) m.zoomTimeline(*px);
    const double length = m.isOpen() ? m.geometry().total : 0;
    return OperatorResult::success(JSONValue::object({{"pxPerSecond", m.pxPerSecond()},
                                                      {"fitted", m.fitted()},
                                                      {"contentWidth", std::ceil(length * m.pxPerSecond())}}));
  }
  return std::nullopt;
}

void OperatorService::registerPicture() {
  onBranch(&OperatorService::pictureVerbs,
           {"timeline.info", "timeline.items", "segment.list", "segment.split", "segment.remove", "segment.trim",
            "segment.set", "segment.rate", "zoom.add", "zoom.set", "zoom.remove"});
  onBranch(&OperatorService::laneVerbs, {"lane.hide", "lane.mute", "waveforms", "timeline.zoom"});
  on("zoom.list", [this](const OperatorCommand& c, const OperatorArgs& a) { return zoomListVerb(c, a); });
}

}  // namespace tavorin
