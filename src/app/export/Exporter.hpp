#pragma once
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kit/Export.hpp"
#include "kit/ExportPlan.hpp"
#include "kit/Subtitles.hpp"
#include "platform/LookPainter.hpp"

namespace tavorin {

class ChildProcess;
class ErrorLog;

struct ExportError : std::runtime_error {
  enum class Kind { launchFailed, busy, noFFmpeg, nothingToExport, noTake, cannotPaint, cannotWrite };
  Kind kind;
  ExportError(Kind kind, const std::string& words) : std::runtime_error(words), kind(kind) {}

  static ExportError launchFailed(const std::string& why);
  static ExportError busy();
  static ExportError noFFmpeg(const std::filesystem::path& firstSearched);
  static ExportError nothingToExport();
  static ExportError noTake();
  static ExportError cannotPaint();
  static ExportError cannotWrite(const std::filesystem::path& folder, const std::string& why);
};

// Where ffmpeg is looked for, in order: beside our own program, the install places,
// then each folder of the search path when `usePath`.
struct FFmpegSearch {
  std::filesystem::path beside;
  std::vector<std::filesystem::path> places = {"/usr/local/bin/ffmpeg", "/usr/bin/ffmpeg"};
  bool usePath = true;

  // The search of an installed studio: beside the running program first.
  static FFmpegSearch besideThisProgram();
};

// Makes the finished film: the plan written out as one ffmpeg command line (two for a
// GIF), run as a child, its progress followed. Lives on the main actor; the child's
// pipes are read on their own thread and every change hops back through `post`.
class Exporter {
 public:
  enum class Phase { idle, running, done, failed };
  using Post = std::function<void(std::function<void()>)>;

  // The source picture the graph is built for.
  struct Picture {
    int width = 0;
    int height = 0;
    double fps = 30;
  };

  // The picture graph: its filters and the label the picture ends on (empty when no
  // filter touched it).
  struct Chain {
    std::vector<std::string> filters;
    std::string label;
  };

  struct LookInputs {
    std::vector<std::string> args;
    int ground = -1;
    int mask = -1;
    int next = 0;
  };

  // Burned captions: the ASS file and the folder of faces it may name.
  struct Burn {
    std::filesystem::path ass;
    std::optional<std::filesystem::path> fontsDir;
  };

  using Search = FFmpegSearch;

  explicit Exporter(Post post, Search search = {}, std::optional<std::filesystem::path> fontsDir = std::nullopt);
  ~Exporter();
  Exporter(const Exporter&) = delete;
  Exporter& operator=(const Exporter&) = delete;

  // Checks, paints, and starts the first pass; returns the path the film will have.
  // Throws ExportError, and leaves nothing behind, when it cannot start.
  std::filesystem::path exportFilm(const ExportPlan& plan, const std::filesystem::path& base, const std::string& name,
                                   const Subtitles::Style& subtitles, std::optional<double> systemAudio,
                                   std::optional<std::filesystem::path> destination = std::nullopt);
  void cancel();
  void stopAll() { cancel(); }
  void forgetFinished();
  void forgetOutput() { output_.reset(); }

  Phase phase() const { return phase_; }
  double progress() const { return progress_; }
  const std::optional<std::filesystem::path>& output() const { return output_; }
  const std::optional<std::string>& failure() const { return failure_; }
  const std::vector<std::string>& skipped() const { return skipped_; }
  const std::vector<std::vector<std::string>>& lastPasses() const { return lastPasses_; }
  // ffmpeg's last words of the last export.
  std::string errorTail() const;
  std::function<void(const std::filesystem::path&)> onFinished;
  // A started run that ended in failure, with its sentence; a cancel is no failure.
  std::function<void(const std::string&)> onFailed;

  // The first executable of the search's places; `searchPath` is a PATH value.
  // `searched` gets the places tried.
  static std::optional<std::filesystem::path> findFFmpeg(const Search& search, const std::string& searchPath,
                                                         std::vector<std::filesystem::path>* searched = nullptr);

  static std::vector<std::string> arguments(const ExportPlan& plan, const std::filesystem::path& base,
                                            const std::filesystem::path& out, const std::optional<Burn>& burn,
                                            std::optional<double> systemAudio, const Picture& picture,
                                            const std::optional<LookPainter::Sheets>& sheets);
  static std::vector<std::vector<std::string>> gifArguments(const ExportPlan& plan, const std::filesystem::path& base,
                                                            const std::filesystem::path& out,
                                                            const std::filesystem::path& palette,
                                                            const std::optional<Burn>& burn, const Picture& picture);
  static Chain pictureChain(const ExportPlan& plan, const std::optional<Burn>& burn, const Picture& picture,
                            double fps, const std::optional<LookPainter::Sheets>& sheets, int ground, int mask);
  static std::vector<std::string> takeSoundFilters(const ExportPlan& plan, double gain);
  static LookInputs lookInputs(double fps, int from, const LookPainter::Sheets& sheets);
  // A path made safe to stand between single quotes in a filter graph's option.
  static std::string filterQuoted(const std::string& path);
  // What a progress line of ffmpeg says, as a share of `total` seconds.
  static std::optional<double> progressOf(const std::string& line, double total);

 private:
  void start(std::vector<std::string> pass, double total);
  void finished(int status, unsigned generation);
  void fail(const std::string& why);
  void clearScratch();

  Post post_;
  Search search_;
  std::optional<std::filesystem::path> fontsDir_;
  std::shared_ptr<bool> alive_;
  Phase phase_ = Phase::idle;
  double progress_ = 0;
  std::optional<std::filesystem::path> output_;
  std::optional<std::filesystem::path> partial_;
  std::optional<std::string> failure_;
  std::vector<std::string> skipped_;
  std::vector<std::vector<std::string>> lastPasses_;
  std::vector<std::vector<std::string>> pending_;
  std::optional<std::filesystem::path> scratch_;
  std::filesystem::path ffmpeg_;
  double total_ = 0;
  unsigned generation_ = 0;
  std::shared_ptr<ErrorLog> log_;
  std::unique_ptr<ChildProcess> process_;
};

std::string name(Exporter::Phase);

}  // namespace tavorin
