#pragma once
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kit/ExportPlan.hpp"
#include "kit/Subtitles.hpp"

namespace tavorin {

// The machine that turns a plan into a film, seen from the model: one run at a time,
// its progress and its end. The process hands the model one that runs ffmpeg as a
// child; tests hand one they steer. Everything here is called on the main actor, and
// `onEnd` is called there too.
class FilmExporter {
 public:
  enum class Phase { idle, running, done, failed };

  struct Job {
    ExportPlan plan;
    std::filesystem::path base;  // the production's folder
    std::string name;            // the file's name without its suffix
    Subtitles::Style subtitles;  // burned when it burns and the plan has captions
    std::optional<double> systemAudio;
  };

  virtual ~FilmExporter() = default;

  // Starts the run and answers the path the film will have; throws with the sentence
  // the user reads, leaving nothing behind, when it cannot start.
  virtual std::filesystem::path start(const Job& job) = 0;
  // Ends a run: the child is stopped, its partial file removed, the phase idle.
  virtual void cancel() = 0;
  // A done or failed run goes back to idle.
  virtual void forgetFinished() = 0;
  // Drops the finished film's path: another production is on the bench.
  virtual void forgetOutput() = 0;

  virtual Phase phase() const = 0;
  virtual double progress() const = 0;
  virtual std::optional<std::filesystem::path> output() const = 0;
  virtual std::optional<std::string> failure() const = 0;
  virtual std::vector<std::string> skipped() const = 0;
  // The command lines of the last run, as the program was given them.
  virtual std::vector<std::vector<std::string>> lastPasses() const = 0;

  // A run came to its end by itself: done or failed, never on a cancel.
  std::function<void(Phase)> onEnd;
};

std::string name(FilmExporter::Phase phase);

}  // namespace tavorin
