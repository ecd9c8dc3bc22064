// Export: the settings kept with a production, which take a film is made from, and the
// one run at a time. The run itself belongs to the FilmExporter the process gives the
// model; the model decides what goes in, refuses what cannot, and hears the end.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "app/model/AppModel.hpp"
#include "kit/ExportPlan.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/Schedule.hpp"
#include "platform/TavorinPaths.hpp"

namespace tavorin {

namespace fs = std::filesystem;

std::string name(FilmExporter::Phase phase) {
  switch (phase) {
    case FilmExporter::Phase::idle: return "idle";
    case FilmExporter::Phase::running: return "running";
    case FilmExporter::Phase::done: return "done";
    case FilmExporter::Phase::failed: return "failed";
  }
  return "idle";
}

namespace {

// A file URL as file managers paste it: bytes outside a path's plain characters escaped.
std::string fileURL(const fs::path& file) {
  static const char* hex = "0123456789ABCDEF";
  std::string url = "file://";
  for (unsigned char c : fs::absolute(file).lexically_normal().string()) {
    if (std::isalnum(c) || std::string_view("/-._~!$&'()*+,;=:@").find(char(c)) != std::string_view::npos) {
      url.push_back(char(c));
    } else {
      url.push_back('%');
      url.push_back(hex[c >> 4]);
      url.push_back(hex[c & 15]);
    }
  }
  return url;
}

std::string fixed(const char* format, double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, v);
  return buffer;
}

bool complete(const Take& t) { return t.status == Take::Status::complete; }

// The speed an export learns is kept per output height: a 4K run says little of a 720p one.
std::string speedKey(int height) { return std::to_string(height); }

}  // namespace

void AppModel::useExporter(std::unique_ptr<FilmExporter> exporter) {
  if (exporter_) exporter_->cancel();
  exporter_ = std::move(exporter);
  if (exporter_) exporter_->onEnd = alive_.guard([this](FilmExporter::Phase phase) { exportEnded(phase); });
}

void AppModel::forgetFinishedExport() {
  if (exporter_) exporter_->forgetFinished();
  if (onPublishForgotten) onPublishForgotten();
}

bool AppModel::exportRunning() const { return exporter_ && exporter_->phase() == FilmExporter::Phase::running; }

std::optional<Take> AppModel::exportTake() const {
  if (!baseDir_) return std::nullopt;
  const auto all = takes();
  if (exportTakeId_)
    for (const auto& t : all)
      if (t.id == *exportTakeId_) return t;
  std::optional<std::string> monitor = pickedTake_;
  if (!monitor)
    if (auto shown = monitorTake()) monitor = shown->id;
  // The film's presence is judged after the choice, so a take whose film went missing
  // is named rather than silently passed over.
  return Export::pickTake(all, monitor, [](const Take&) { return true; });
}

namespace {

// A take named for export: it must exist and have finished rolling.
void checkExportable(const std::vector<Take>& all, const std::string& id) {
  auto found = std::find_if(all.begin(), all.end(), [&](const Take& t) { return t.id == id; });
  if (found == all.end()) throw AppModelFailure::noSuchTake(id);
  if (!complete(*found))
    throw AppModelFailure::cannotExport("take " + id + " is " + name(found->status) +
                                        ", so there is no whole film to export from it");
}

}  // namespace

void AppModel::chooseExportTake(const std::optional<std::string>& id) {
  if (!isOpen()) throw Failure::noProduction();
  if (!id) {
    exportTakeId_.reset();
    note("export take: whichever is newest and complete");
    return;
  }
  checkExportable(takes(), *id);
  exportTakeId_ = *id;
  note("export take: " + *id);
}

namespace {

bool filmOnDisk(const fs::path& base, const Take& take) {
  std::error_code ec;
  return !take.video.empty() && take.hasFootage() && fs::is_regular_file(base / "takes" / take.id / take.video, ec);
}

}  // namespace

std::optional<std::string> AppModel::missingFootage() const {
  Export::Footing footing;
  footing.open = isOpen();
  if (footing.open && baseDir_) {
    const auto all = takes();
    footing.anythingShotOrImported = !all.empty();
    footing.take = exportTake();
    footing.takeHasFilm = footing.take && filmOnDisk(*baseDir_, *footing.take);
    footing.anyTakeHasFilm = std::any_of(all.begin(), all.end(), [&](const Take& t) { return filmOnDisk(*baseDir_, t); });
  }
  return Export::missingFootage(footing);
}

std::optional<std::string> AppModel::canExport() const {
  if (!isOpen()) return Export::missingFootage({});
  if (exportRunning()) return "an export is already running";
  if (auto missing = missingFootage()) return missing;
  const Take take = *exportTake();
  Export::Footing footing{true, true, take, true, true};
  return Export::canExport(footing, false, ExportPlan::runtime(*stored_, take), Schedule::totalLength(*stored_));
}

fs::path AppModel::exportFilm(const ExportRequest& request) {
  if (!exporter_) throw Failure::cannotExport("this studio runs without its exporter, so no film can be made");
  const std::optional<std::string> chosenBefore = exportTakeId_;
  if (request.take) {
    // One run's take is checked like a chosen one; the choice itself is put back after.
    if (!isOpen()) throw Failure::noProduction();
    checkExportable(takes(), *request.take);
    exportTakeId_ = request.take;
  }
  auto restore = [&] { exportTakeId_ = chosenBefore; };
  if (auto why = canExport()) {
    restore();
    throw Failure::cannotExport(*why);
  }
  const Take take = *exportTake();
  restore();

  ExportTarget target = exportTarget();
  if (request.format) target.format = request.format;
  if (request.height) target.height = request.height;
  if (request.fps) target.fps = request.fps;
  if (request.quality) target.quality = request.quality;
  if (request.height && *request.height <= 0) throw Failure::cannotExport("a height is a number of lines above 0");
  if (request.fps && *request.fps <= 0) throw Failure::cannotExport("a frame rate is a number of frames above 0");
  if (auto refusal = Export::destinationRefusal(target.effectiveFormat(), target.effectiveDestination()))
    throw Failure::cannotExport(*refusal);

  ExportPlan plan = ExportPlan::make(*stored_, take);
  plan.target = target.isEmpty() ? std::nullopt : std::optional(target);
  Subtitles::Style style = stored_->subtitles;
  if (request.subtitles) {
    if (!style) style.emplace();
    style->burn = *request.subtitles;
  }
  std::optional<double> systemAudio;
  if (stored_->capture && stored_->capture->audio.value_or(false)) systemAudio = 0.0;

  const std::string production = baseDir_->filename().string();
  FilmExporter::Job job{plan, *baseDir_, production.empty() ? "film" : production, style, systemAudio};
  fs::path output;
  try {
    output = exporter_->start(job);
  } catch (const AppModelFailure&) {
    throw;
  } catch (const std::exception& e) {
    throw Failure::cannotExport(e.what());
  }

  if (!exportTakeId_ && !request.take) note("export take: whichever is newest and complete");
  std::string line = "exporting " + output.filename().string() + " from take " + take.id;
  if (Subtitles::burns(style) && !plan.captions.empty()) line += " with subtitles: " + Subtitles::summary(style);
  note(line);
  exportStarted_ = std::pair(take.id, actor_.now());
  exportFilmSeconds_ = plan.duration;
  const auto footage = exportFootage();
  exportSpeedKey_ = footage.size ? speedKey(Export::size(target, footage.size->width, footage.size->height,
                                                         footage.rate.value_or(30)).height)
                                 : std::string();
  return output;
}

void AppModel::cancelExport() {
  if (!exportRunning()) throw Failure::cannotExport("no export is running");
  exporter_->cancel();
  exportStarted_.reset();
  note("export cancelled");
}

void AppModel::exportEnded(FilmExporter::Phase phase) {
  if (phase == FilmExporter::Phase::done) {
    const auto output = exporter_->output();
    note("exported " + (output ? output->filename().string() : std::string("the film")));
    if (exportStarted_ && exportFilmSeconds_ > 0 && !exportSpeedKey_.empty()) {
      const double spent = std::chrono::duration<double>(actor_.now() - exportStarted_->second).count();
      if (spent > 0) {
        const double pace = spent / exportFilmSeconds_;
        if (!exportSpeeds_) exportSpeeds_ = session_.read().exportSpeeds.value_or(std::map<std::string, double>{});
        (*exportSpeeds_)[exportSpeedKey_] = pace;
        sessionWriter_.write(session_, [key = exportSpeedKey_, pace](const SessionStore& s) {
          s.rememberExportSpeed(key, pace);
        });
      }
    }
    toasts_.post(Toast::Kind::export_, "Exported " + (output ? output->filename().string() : std::string("the film")));
    sound(SoundCue::exported);
    if (output) deliver(*output);
  } else if (phase == FilmExporter::Phase::failed) {
    const std::string why = exporter_->failure().value_or("the export failed");
    note("export failed: " + why);
    toasts_.post(Toast::Kind::failure, why);
    sound(SoundCue::failed);
  }
  exportStarted_.reset();
}

void AppModel::deliver(const fs::path& film) {
  switch (exportTarget().effectiveDestination()) {
    case ExportDestination::youtube:
      if (onExportDelivered) onExportDelivered(film);
      return;
    case ExportDestination::clipboard:
      pasteboard_.write(filmPasteboardType, fileURL(film) + "\r\n");
      note("the export is on the clipboard");
      toasts_.post(Toast::Kind::export_, "Export copied. Paste it anywhere.");
      return;
    case ExportDestination::file: {
      if (!deliveryFolder_) return;
      const fs::path target = *deliveryFolder_ / film.filename();
      // A film can be gigabytes: the copy runs off the actor and says where it went.
      offloader_.offload(
          [film, target] {
            fs::create_directories(target.parent_path());
            fs::copy_file(film, target, fs::copy_options::overwrite_existing);
          },
          alive_.guard([this, target](std::exception_ptr failed) {
            if (!failed) return note("copied to " + target.string());
            try {
              std::rethrow_exception(failed);
            } catch (const std::exception& e) {
              note("the copy to " + target.parent_path().string() + " failed: " + e.what());
              toasts_.post(Toast::Kind::failure, "The film stayed in export/: " + std::string(e.what()));
            }
          }));
      return;
    }
  }
}

void AppModel::chooseDeliveryFolder(std::optional<fs::path> folder) { deliveryFolder_ = std::move(folder); }

void AppModel::exportFromSheet() {
  if (exportTarget().effectiveDestination() != ExportDestination::file || !folderChooser) {
    exportFilm();
    return;
  }
  if (choosingFolder_) return;
  if (const auto refusal = canExport()) throw Failure::cannotExport(*refusal);
  choosingFolder_ = true;
  const fs::path start = deliveryFolder_.value_or(fs::path(Environment::value("HOME").value_or("/")));
  // The answer crosses threads in a box of its own: the panel may be up for minutes.
  auto chosen = std::make_shared<std::vector<fs::path>>();
  offloader_.offload(
      [ask = folderChooser, start, chosen] {
        if (auto folder = ask(start)) chosen->push_back(std::move(*folder));
      },
      alive_.guard([this, chosen](std::exception_ptr failed) {
        choosingFolder_ = false;
        try {
          if (failed) std::rethrow_exception(failed);
          if (chosen->empty()) return note("no folder chosen, so the export did not run");
          chooseDeliveryFolder(chosen->front());
          exportFilm();
        } catch (const std::exception& e) {
          note(std::string("the export did not run: ") + e.what());
          toasts_.post(Toast::Kind::failure, e.what());
        }
      }));
}

ExportTarget AppModel::exportTarget() const {
  if (!stored_ || !stored_->exportTarget) return {};
  return *stored_->exportTarget;
}

Footage::Answer AppModel::exportFootage() const {
  const auto take = exportTake();
  if (!take || !baseDir_ || take->video.empty()) return {};
  const fs::path file = *baseDir_ / "takes" / take->id / take->video;
  auto found = footageAnswers_.find(file.string());
  if (found != footageAnswers_.end()) return found->second;
  Footage::Answer answer = Footage::probe(file);
  // A film that would not say is asked again next time: it may still be arriving.
  if (answer.size) footageAnswers_[file.string()] = answer;
  return answer;
}

std::optional<ExportSize> AppModel::exportSize() const {
  const auto footage = exportFootage();
  if (!footage.size) return std::nullopt;
  return Export::size(exportTarget(), footage.size->width, footage.size->height, footage.rate.value_or(30));
}

std::optional<long long> AppModel::exportSizeBytes() const {
  const auto size = exportSize();
  const auto take = exportTake();
  if (!size || !take || !stored_) return std::nullopt;
  return Export::sizeBytes(*size, ExportPlan::runtime(*stored_, *take), exportTarget().effectiveQuality());
}

std::optional<AppModel::ExportEstimate> AppModel::exportEstimate() const {
  const auto size = exportSize();
  const auto take = exportTake();
  if (!size || !take || !stored_) return std::nullopt;
  const double seconds = ExportPlan::runtime(*stored_, *take);
  if (!exportSpeeds_) exportSpeeds_ = session_.read().exportSpeeds.value_or(std::map<std::string, double>{});
  std::optional<double> pace;
  if (auto it = exportSpeeds_->find(speedKey(size->height)); it != exportSpeeds_->end()) pace = it->second;
  ExportEstimate estimate;
  estimate.seconds = Export::estimateSeconds(seconds, pace);
  estimate.bytes = Export::sizeBytes(*size, seconds, exportTarget().effectiveQuality());
  estimate.learned = pace.has_value();
  return estimate;
}

void AppModel::commitExportTarget(ExportTarget target, const std::string& event) {
  Recording next = *stored_;
  next.exportTarget = target.isEmpty() ? std::nullopt : std::optional(target);
  if (next == *stored_) return;
  remember("the export settings");
  setRecording(std::move(next));
  scheduleDraft();
  note(event);
}

void AppModel::setExportTarget(ExportTarget target) {
  requireEditable();
  if (auto refusal = Export::destinationRefusal(target.effectiveFormat(), target.effectiveDestination()))
    throw Failure::cannotExport(*refusal);
  commitExportTarget(target, "export settings changed");
}

void AppModel::setExportFormat(ExportFormat format) {
  requireEditable();
  ExportTarget target = exportTarget();
  target.format = format;
  // A GIF goes nowhere but a file: it carries no sound and YouTube will not take it.
  if (format == ExportFormat::gif && target.effectiveDestination() != ExportDestination::file)
    target.destination = ExportDestination::file;
  commitExportTarget(target, "export format " + name(format));
}

void AppModel::setExportHeight(std::optional<int> height) {
  requireEditable();
  ExportTarget target = exportTarget();
  if (height) {
    if (*height <= 0) throw Failure::cannotExport("a height is a number of lines above 0");
    const auto footage = exportFootage();
    if (auto refusal = Export::heightRefusal(*height, footage.size ? footage.size->height : 0))
      throw Failure::cannotExport(*refusal);
  }
  target.height = height;
  commitExportTarget(target, "export size " + Export::sizeTitle(Export::sizeId(target)));
}

void AppModel::setExportQuality(ExportQuality quality) {
  requireEditable();
  ExportTarget target = exportTarget();
  target.quality = quality;
  commitExportTarget(target, "export quality " + Export::title(quality));
}

void AppModel::setExportFps(std::optional<int> fps) {
  requireEditable();
  ExportTarget target = exportTarget();
  if (fps) {
    if (*fps <= 0) throw Failure::cannotExport("a frame rate is a number of frames above 0");
    const auto footage = exportFootage();
    // Nothing here invents frames.
    if (footage.rate && *fps > *footage.rate + 0.001)
      throw Failure::cannotExport("This film runs at " + fixed("%g", std::round(*footage.rate * 100) / 100) +
                                  " frames a second, so it stops there.");
  }
  target.fps = fps;
  commitExportTarget(target, "export rate " + (fps ? std::to_string(*fps) : std::string("native")));
}

void AppModel::setExportDestination(ExportDestination destination) {
  requireEditable();
  ExportTarget target = exportTarget();
  if (auto refusal = Export::destinationRefusal(target.effectiveFormat(), destination))
    throw Failure::cannotExport(*refusal);
  target.destination = destination;
  commitExportTarget(target, "export destination " + Export::title(destination));
}

std::vector<AppModel::ExportedFilm> AppModel::exportedFilms() const {
  std::vector<ExportedFilm> films;
  if (!baseDir_) return films;
  std::error_code ec;
  for (fs::directory_iterator it(*baseDir_ / "export", ec), end; !ec && it != end; it.increment(ec)) {
    const fs::path& path = it->path();
    const std::string file = path.filename().string();
    const std::string ext = path.extension().string();
    // Scratch folders and hidden files are the exporter's own business.
    if (file.empty() || file.front() == '.' || !it->is_regular_file(ec)) continue;
    if (ext != ".mp4" && ext != ".gif") continue;
    ExportedFilm film{path, it->file_size(ec), it->last_write_time(ec)};
    films.push_back(std::move(film));
  }
  std::sort(films.begin(), films.end(), [](const ExportedFilm& a, const ExportedFilm& b) {
    if (a.written != b.written) return a.written > b.written;
    return a.path > b.path;
  });
  return films;
}

}  // namespace tavorin
