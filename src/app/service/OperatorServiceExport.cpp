// The export group: the settings kept with a production, the look, the subtitles'
// style, and the one export run with its status and its films.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/export/Exporter.hpp"
#include "app/model/AppStore.hpp"
#include "app/service/FFmpegFilmExporter.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/service/Outside.hpp"
#include "base/IsoDate.hpp"
#include "kit/Looks.hpp"
#include "platform/FontCatalog.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

using Failure = AppModelFailure;

JSONValue texts(const std::vector<std::string>& list) {
  JSONValue::Array out;
  for (const auto& s : list) out.emplace_back(s);
  return JSONValue(std::move(out));
}

JSONValue optionalInt(const std::optional<int>& v) { return v ? JSONValue(*v) : JSONValue(); }

// A number in a range, or the sentence that says the range.
double inRange(const OperatorArgs& a, const std::string& name, double low, double high, const std::string& verb) {
  const auto text = a.text(name);
  const auto v = a.fraction(name);
  if (!v) throw Failure::badValue(name, text.value_or(""));
  if (*v < low || *v > high) {
    char buffer[160];
    std::snprintf(buffer, sizeof buffer, "%s %s=%s is out of range: it takes %g to %g.", verb.c_str(), name.c_str(),
                  text->c_str(), low, high);
    throw Failure::cannotUse(buffer);
  }
  return *v;
}

bool switchOf(const OperatorArgs& a, const std::string& name) {
  const auto v = a.flag(name);
  if (!v) throw Failure::badChoice(a.text(name).value_or(""), "switch for " + name, "0, 1");
  return *v;
}

ExportFormat formatOf(const std::string& text) {
  if (auto f = parseExportFormat(text)) return *f;
  throw Failure::badChoice(text, "format", "mp4, gif");
}

ExportQuality qualityOf(const std::string& text) {
  if (auto q = parseExportQuality(text)) return *q;
  throw Failure::badChoice(text, "quality", "studio, balanced, web, small");
}

int wholeNumber(const OperatorArgs& a, const std::string& name) {
  const auto v = a.integer(name);
  if (!v || *v <= 0 || *v > 100000) throw Failure::badValue(name, a.text(name).value_or(""));
  return int(*v);
}

JSONValue lookReport(const AppModel& m) {
  const Looks::Stored look = m.recording().look;
  const Looks::Ground ground = Looks::ground(look);
  const char* kinds[] = {"preset", "color", "image"};
  const auto preset = Looks::preset(look);
  return JSONValue::object({{"on", Looks::isOn(look)},
                            {"padding", Looks::padding(look)},
                            {"radius", Looks::radius(look)},
                            {"shadow", Looks::shadow(look)},
                            {"fraction", Looks::fraction(look)},
                            {"ground", JSONValue::object({{"kind", kinds[int(ground.kind)]},
                                                          {"value", ground.value},
                                                          {"says", Looks::groundSays(look)}})},
                            {"preset", preset ? JSONValue(preset->id) : JSONValue()},
                            {"color", look && look->background ? Reports::text(look->background->color) : JSONValue()},
                            {"image", look && look->background ? Reports::text(look->background->image) : JSONValue()},
                            {"stored", look.has_value()},
                            {"summary", Looks::summary(look)}});
}

JSONValue subtitlesReport(const AppModel& m) {
  const Subtitles::Style style = m.recording().subtitles;
  const auto anchor = Subtitles::anchor(style);
  const std::string font = Subtitles::font(style);
  return JSONValue::object({{"burn", Subtitles::burns(style)},
                            {"font", font},
                            {"house", Subtitles::isHouse(font)},
                            {"preview", Reports::text(m.previewFont())},
                            {"drawn", m.previewFont().value_or(font)},
                            {"size", Subtitles::size(style)},
                            {"anchor", JSONValue::object({{"x", anchor.x}, {"y", anchor.y}})},
                            {"position", style && style->position ? JSONValue(*style->position) : JSONValue()},
                            {"placement", Subtitles::placement(style)},
                            {"summary", Subtitles::summary(style)}});
}

JSONValue sizeReport(const std::optional<ExportSize>& size) {
  if (!size) return JSONValue();
  return JSONValue::object({{"width", size->width},
                            {"height", size->height},
                            {"fps", size->fps},
                            {"frame", size->frame()},
                            {"scaled", size->scaled},
                            {"rated", size->rated},
                            {"format", name(size->format)}});
}

JSONValue passesReport(const std::vector<std::vector<std::string>>& passes) {
  JSONValue::Array out;
  for (const auto& p : passes) out.push_back(texts(p));
  return JSONValue(std::move(out));
}

}  // namespace

JSONValue OperatorService::exportStatusReport() const {
  const AppModel& m = model();
  const FilmExporter* e = m.exporter();
  const auto take = m.isOpen() ? m.exportTake() : std::nullopt;
  const auto estimate = m.isOpen() ? m.exportEstimate() : std::nullopt;
  const auto passes = e ? e->lastPasses() : std::vector<std::vector<std::string>>{};
  const auto output = e ? e->output() : std::nullopt;
  const ExportTarget target = m.isOpen() ? m.exportTarget() : ExportTarget{};
  return JSONValue::object(
      {{"phase", e ? name(e->phase()) : "idle"},
       {"progress", e ? e->progress() : 0.0},
       {"output", output ? JSONValue(output->string()) : JSONValue()},
       {"failure", e ? Reports::text(e->failure()) : JSONValue()},
       {"skipped", texts(e ? e->skipped() : std::vector<std::string>{})},
       {"take", take ? JSONValue(take->id) : JSONValue()},
       {"chosenTake", Reports::text(m.chosenExportTake())},
       {"refusal", m.isOpen() && !m.exportRunning() ? Reports::text(m.canExport()) : JSONValue()},
       {"format", name(target.effectiveFormat())},
       {"quality", name(target.effectiveQuality())},
       {"destination", name(target.effectiveDestination())},
       {"size", sizeReport(m.isOpen() ? m.exportSize() : std::nullopt)},
       {"estimate", estimate ? JSONValue::object({{"seconds", JSONValue::seconds(estimate->seconds)},
                                                  {"bytes", JSONValue::optional(estimate->bytes)},
                                                  {"learned", estimate->learned}})
                             : JSONValue()},
       {"command", passes.empty() ? JSONValue() : texts(passes.back())},
       {"passes", passesReport(passes)}});
}

void OperatorService::registerExport() {
  // The process may have given the model its machine already; a bare service (a tool,
  // a test) gets the one that runs ffmpeg.
  if (!model().exporter())
    model().useExporter(std::make_unique<FFmpegFilmExporter>(model().actor(), FFmpegSearch::besideThisProgram(),
                                                             FontCatalog::houseFolder()));
  onBranch(&OperatorService::exportVerbs,
           {"export", "subtitles", "look", "look.presets", "export.take", "export.format", "export.size",
            "export.quality", "export.rate", "export.destination", "export.status", "export.cancel", "exports"});
}

OperatorService::Answer OperatorService::exportVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  const std::string& v = c.verb;

  if (v == "export.status") {
    // A finished run is read once by the sheet; its film stays listed in `exports`.
    return OperatorResult::success(exportStatusReport());
  }

  if (v == "look.presets") {
    JSONValue::Array rows;
    for (const auto& p : Looks::presets())
      rows.push_back(JSONValue::object({{"id", p.id},
                                        {"title", p.title},
                                        {"kind", std::holds_alternative<Looks::Gradient>(p.wallpaper) ? "gradient"
                                                                                                      : "fields"}}));
    return OperatorResult::success(
        JSONValue::object({{"presets", JSONValue(std::move(rows))}, {"default", std::string(Looks::defaultPreset)}}));
  }

  if (!m.isOpen()) throw Failure::noProduction();

  if (v == "export") {
    AppModel::ExportRequest request;
    request.take = a.text("take");
    if (a.text("subtitles")) request.subtitles = switchOf(a, "subtitles");
    if (a.text("height")) request.height = wholeNumber(a, "height");
    if (a.text("fps")) request.fps = wholeNumber(a, "fps");
    if (auto q = a.text("quality")) request.quality = qualityOf(*q);
    if (auto f = a.text("format")) request.format = formatOf(*f);
    m.exportFilm(request);
    return OperatorResult::success(exportStatusReport());
  }

  if (v == "export.cancel") {
    // The upload that follows an export is the same act from the sheet, and stops the same way.
    if (!m.exportRunning() && outside_->publishPhase == Outside::PublishPhase::uploading) {
      outside_->uploader->cancel();
      m.note("upload cancelled");
      return OperatorResult::success(publishReport());
    }
    // An upload still waiting for a sign-in is dropped; the sign-in itself goes on.
    if (!m.exportRunning() && outside_->heldPublish) {
      outside_->heldPublish.reset();
      outside_->publishPhase = Outside::PublishPhase::idle;
      m.note("upload cancelled");
      return OperatorResult::success(publishReport());
    }
    m.cancelExport();
    return OperatorResult::success(exportStatusReport());
  }

  if (v == "exports") {
    JSONValue::Array films;
    for (const auto& f : m.exportedFilms()) {
      const auto written = std::chrono::file_clock::to_sys(f.written);
      films.push_back(JSONValue::object({{"file", f.path.filename().string()},
                                         {"path", f.path.string()},
                                         {"bytes", static_cast<long long>(f.bytes)},
                                         {"written", IsoDate::format(std::chrono::time_point_cast<
                                                                     std::chrono::system_clock::duration>(written))}}));
    }
    return OperatorResult::success(JSONValue::object(
        {{"folder", (*m.baseDir() / "export").string()}, {"films", JSONValue(std::move(films))}}));
  }

  if (v == "export.take") {
    m.chooseExportTake(a.text("id"));
    JSONValue::Array rows;
    for (const auto& t : m.takes())
      rows.push_back(JSONValue::object({{"id", t.id},
                                        {"status", name(t.status)},
                                        {"seconds", JSONValue::seconds(t.seconds)},
                                        {"startedAt", t.startedAt}}));
    const auto take = m.exportTake();
    return OperatorResult::success(JSONValue::object({{"take", take ? JSONValue(take->id) : JSONValue()},
                                                      {"chosen", Reports::text(m.chosenExportTake())},
                                                      {"missing", Reports::text(m.missingFootage())},
                                                      {"takes", JSONValue(std::move(rows))}}));
  }

  if (v == "export.format") {
    if (auto f = a.text("format")) m.setExportFormat(formatOf(*f));
    JSONValue::Array rows;
    for (ExportFormat f : {ExportFormat::mp4, ExportFormat::gif})
      rows.push_back(JSONValue::object({{"id", name(f)},
                                        {"suffix", Export::suffix(f)},
                                        {"sound", Export::carriesSound(f)},
                                        {"rateCeiling", optionalInt(Export::rateCeiling(f))},
                                        {"widthCeiling", optionalInt(Export::widthCeiling(f))}}));
    const ExportTarget t = m.exportTarget();
    return OperatorResult::success(JSONValue::object({{"format", name(t.effectiveFormat())},
                                                      {"destination", name(t.effectiveDestination())},
                                                      {"formats", JSONValue(std::move(rows))}}));
  }

  if (v == "export.size") {
    const auto size = a.text("size");
    if (a.lenient("native").value_or(false) || size == std::string(Export::nativeId)) {
      m.setExportHeight(std::nullopt);
    } else if (size) {
      const auto& all = Export::sizes();
      auto found = std::find_if(all.begin(), all.end(), [&](const ExportSizeChoice& s) { return s.id == *size; });
      if (found == all.end()) throw Failure::badChoice(*size, "size", "720, 1080, 2160, native");
      m.setExportHeight(found->height);
    } else if (a.text("height")) {
      m.setExportHeight(wholeNumber(a, "height"));
    }
    const auto footage = m.exportFootage();
    JSONValue::Array rows;
    for (const auto& s : Export::sizes())
      rows.push_back(JSONValue::object(
          {{"id", s.id},
           {"title", s.title},
           {"height", optionalInt(s.height)},
           {"offered", !s.height || (footage.size && *s.height <= footage.size->height)}}));
    const ExportTarget t = m.exportTarget();
    const std::string id = Export::sizeId(t);
    return OperatorResult::success(JSONValue::object(
        {{"size", id},
         {"title", Export::sizeTitle(id)},
         {"height", optionalInt(t.height)},
         {"output", sizeReport(m.exportSize())},
         {"native", footage.size ? JSONValue::object({{"width", footage.size->width}, {"height", footage.size->height}})
                                 : JSONValue()},
         {"sizes", JSONValue(std::move(rows))}}));
  }

  if (v == "export.quality") {
    if (auto q = a.text("quality")) m.setExportQuality(qualityOf(*q));
    JSONValue::Array rows;
    for (ExportQuality q : {ExportQuality::studio, ExportQuality::balanced, ExportQuality::web, ExportQuality::small})
      rows.push_back(JSONValue::object(
          {{"id", name(q)}, {"title", Export::title(q)}, {"crf", Export::crf(q)}, {"says", Export::sentence(q)}}));
    const ExportQuality q = m.exportTarget().effectiveQuality();
    return OperatorResult::success(JSONValue::object({{"quality", name(q)},
                                                      {"crf", Export::crf(q)},
                                                      {"says", Export::sentence(q)},
                                                      {"levels", JSONValue(std::move(rows))}}));
  }

  if (v == "export.rate") {
    const auto footage = m.exportFootage();
    const double native = footage.rate.value_or(30);
    const auto offered = Export::rates(native);
    const auto rate = a.text("rate");
    if (a.lenient("native").value_or(false) || rate == std::string(Export::nativeId)) {
      m.setExportFps(std::nullopt);
    } else if (rate) {
      auto found = std::find_if(offered.begin(), offered.end(), [&](const ExportRateChoice& r) { return r.id == *rate; });
      if (found == offered.end()) {
        std::string ids;
        for (const auto& r : offered) ids += (ids.empty() ? "" : ", ") + r.id;
        throw Failure::badChoice(*rate, "rate this film offers", ids);
      }
      m.setExportFps(found->fps);
    } else if (a.text("fps")) {
      m.setExportFps(wholeNumber(a, "fps"));
    }
    JSONValue::Array rows;
    for (const auto& r : offered)
      rows.push_back(JSONValue::object({{"id", r.id}, {"title", r.title}, {"fps", optionalInt(r.fps)}}));
    const ExportTarget t = m.exportTarget();
    const auto size = m.exportSize();
    return OperatorResult::success(JSONValue::object({{"rate", Export::rateId(t)},
                                                      {"fps", optionalInt(t.fps)},
                                                      {"output", size ? JSONValue(size->fps) : JSONValue()},
                                                      {"native", footage.rate ? JSONValue(*footage.rate) : JSONValue()},
                                                      {"rates", JSONValue(std::move(rows))}}));
  }

  if (v == "export.destination") {
    if (auto to = a.text("to")) {
      const auto d = parseExportDestination(*to);
      if (!d) throw Failure::badChoice(*to, "destination", "file, clipboard, youtube");
      m.setExportDestination(*d);
    }
    JSONValue::Array rows;
    for (ExportDestination d : {ExportDestination::file, ExportDestination::clipboard, ExportDestination::youtube})
      rows.push_back(JSONValue::object({{"id", name(d)}, {"title", Export::title(d)}, {"act", Export::act(d)}}));
    const ExportDestination d = m.exportTarget().effectiveDestination();
    return OperatorResult::success(JSONValue::object({{"destination", name(d)},
                                                      {"title", Export::title(d)},
                                                      {"act", Export::act(d)},
                                                      {"destinations", JSONValue(std::move(rows))}}));
  }

  if (v == "look") {
    // Every value is read before anything is written, so a bad one changes nothing.
    std::optional<bool> on, shadow;
    std::optional<double> padding, radius;
    if (a.text("on")) on = switchOf(a, "on");
    if (a.text("shadow")) shadow = switchOf(a, "shadow");
    if (a.text("padding")) padding = inRange(a, "padding", Looks::minPadding, Looks::maxPadding, "look");
    if (a.text("radius")) radius = inRange(a, "radius", Looks::minRadius, Looks::maxRadius, "look");
    const auto preset = a.text("preset");
    const auto color = a.text("color");
    const auto image = a.path("image");
    // The model's own refusals, asked for before anything is written.
    if (color && !Looks::isColor(*color)) m.setLookColor(*color);
    if (preset) {
      const auto& all = Looks::presets();
      if (std::none_of(all.begin(), all.end(), [&](const Looks::Preset& p) { return p.id == *preset; }))
        m.setLookPreset(*preset);
    }
    std::error_code ec;
    if (image && !fs::is_regular_file(*image, ec)) m.setLookImage(*image);
    m.requireEditable();
    if (on) m.toggleLook(on);
    if (padding) m.setLookPadding(*padding);
    if (radius) m.setLookRadius(*radius);
    if (shadow) m.setLookShadow(*shadow);
    if (preset) m.setLookPreset(*preset);
    if (color) m.setLookColor(*color);
    if (image) m.setLookImage(*image);
    return OperatorResult::success(lookReport(m));
  }

  if (v == "subtitles") {
    std::optional<bool> burn;
    std::optional<double> size, x, y;
    std::optional<Subtitles::Position> position;
    if (a.text("burn")) burn = switchOf(a, "burn");
    if (a.text("size")) size = inRange(a, "size", Subtitles::minSize, Subtitles::maxSize, "subtitles");
    if (a.text("x")) x = inRange(a, "x", 0, 1, "subtitles");
    if (a.text("y")) y = inRange(a, "y", 0, 1, "subtitles");
    if (auto p = a.text("position")) {
      position = Subtitles::parsePosition(*p);
      if (!position) throw Failure::badChoice(*p, "position", "bottom, center, top");
    }
    const auto font = c.arg("font");
    const auto preview = c.arg("preview");
    // The face is the one value the model may still refuse, so it goes first.
    // An empty value is a real answer here: blank goes back to the house face.
    if (c.args.count("preview")) m.previewSubtitleFont(preview.value_or(""));
    if (c.args.count("font")) m.setSubtitleFont(font.value_or(""));
    if (burn) m.toggleSubtitles(burn);
    if (size) m.setSubtitleSize(*size);
    if (position) m.setSubtitlePosition(*position);
    if (x || y) {
      const auto now = Subtitles::anchor(m.recording().subtitles);
      m.setSubtitleAnchor(x.value_or(now.x), y.value_or(now.y));
    }
    return OperatorResult::success(subtitlesReport(m));
  }
  return std::nullopt;
}

}  // namespace tavorin
