#include "app/service/FFmpegFilmExporter.hpp"

#include "app/export/Exporter.hpp"

namespace tavorin {

FFmpegFilmExporter::FFmpegFilmExporter(MainActor& actor, const FFmpegSearch& search,
                                       std::optional<std::filesystem::path> fontsDir)
    : exporter_(std::make_unique<Exporter>([&actor](std::function<void()> work) { actor.post(std::move(work)); },
                                           search, std::move(fontsDir))) {
  exporter_->onFinished = [this](const std::filesystem::path&) {
    if (onEnd) onEnd(Phase::done);
  };
  exporter_->onFailed = [this](const std::string&) {
    // A launch that fails is thrown to the caller of start; only a run's own end is told.
    if (!starting_ && onEnd) onEnd(Phase::failed);
  };
}

FFmpegFilmExporter::~FFmpegFilmExporter() = default;

std::filesystem::path FFmpegFilmExporter::start(const Job& job) {
  starting_ = true;
  struct Reset {
    bool& flag;
    ~Reset() { flag = false; }
  } reset{starting_};
  return exporter_->exportFilm(job.plan, job.base, job.name, job.subtitles, job.systemAudio);
}

void FFmpegFilmExporter::cancel() { exporter_->cancel(); }
void FFmpegFilmExporter::forgetFinished() { exporter_->forgetFinished(); }
void FFmpegFilmExporter::forgetOutput() { exporter_->forgetOutput(); }

FilmExporter::Phase FFmpegFilmExporter::phase() const {
  switch (exporter_->phase()) {
    case Exporter::Phase::idle: return Phase::idle;
    case Exporter::Phase::running: return Phase::running;
    case Exporter::Phase::done: return Phase::done;
    case Exporter::Phase::failed: return Phase::failed;
  }
  return Phase::idle;
}

double FFmpegFilmExporter::progress() const { return exporter_->progress(); }
std::optional<std::filesystem::path> FFmpegFilmExporter::output() const { return exporter_->output(); }
std::optional<std::string> FFmpegFilmExporter::failure() const { return exporter_->failure(); }
std::vector<std::string> FFmpegFilmExporter::skipped() const { return exporter_->skipped(); }
std::vector<std::vector<std::string>> FFmpegFilmExporter::lastPasses() const { return exporter_->lastPasses(); }

}  // namespace tavorin
