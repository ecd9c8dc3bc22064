#pragma once
#include <memory>
#include <optional>

#include "app/model/FilmExporter.hpp"
#include "app/model/MainActor.hpp"

namespace tavorin {

class Exporter;
struct FFmpegSearch;

// The model's film-making machine on this desktop: the Exporter running ffmpeg as a
// child, its pipes read on their own thread and every change posted to the main actor.
class FFmpegFilmExporter final : public FilmExporter {
 public:
  // `fontsDir` is the folder of faces burned captions may name (the house faces).
  FFmpegFilmExporter(MainActor& actor, const FFmpegSearch& search, std::optional<std::filesystem::path> fontsDir);
  ~FFmpegFilmExporter() override;

  std::filesystem::path start(const Job& job) override;
  void cancel() override;
  void forgetFinished() override;
  void forgetOutput() override;
  Phase phase() const override;
  double progress() const override;
  std::optional<std::filesystem::path> output() const override;
  std::optional<std::string> failure() const override;
  std::vector<std::string> skipped() const override;
  std::vector<std::vector<std::string>> lastPasses() const override;

 private:
  std::unique_ptr<Exporter> exporter_;
  bool starting_ = false;
};

}  // namespace tavorin
