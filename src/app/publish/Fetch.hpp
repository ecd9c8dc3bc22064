#pragma once
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/model/MainActor.hpp"
#include "base/LifetimeToken.hpp"

namespace tavorin {

class ChildProcess;

// One fetch at a time: yt-dlp brings the audio of a URL into a folder as an mp3,
// optionally only a slice of it. Lives on the main actor; progress and the end hop back.
class Fetch {
 public:
  enum class Phase { idle, fetching, done, failed };

  explicit Fetch(MainActor& actor, std::optional<std::filesystem::path> ytdlp = std::nullopt);
  ~Fetch();

  // Refuses with FetchError before anything runs. `then` gets the file on the main
  // actor; what it throws is the failure.
  void start(const std::string& url, const std::filesystem::path& folder, std::optional<double> start,
             std::optional<double> end, std::function<void(const std::filesystem::path&)> then);
  // Stops the child; the fetch goes back to idle and nothing lands.
  void cancel();

  Phase phase() const { return phase_; }
  double progress() const { return progress_; }
  const std::optional<std::string>& failure() const { return failure_; }
  const std::optional<std::filesystem::path>& output() const { return output_; }
  const std::string& url() const { return url_; }
  std::filesystem::path ytdlpPath() const;
  // The command line of the last run, as the program was given it.
  const std::vector<std::string>& arguments() const { return arguments_; }

  // Called on the main actor when a started fetch fails, with the sentence.
  std::function<void(const std::string&)> onFailure;

 private:
  void finish(int status, const std::string& tail);

  MainActor& actor_;
  std::optional<std::filesystem::path> ytdlp_;
  Phase phase_ = Phase::idle;
  double progress_ = 0;
  std::optional<std::string> failure_;
  std::optional<std::filesystem::path> output_;
  std::filesystem::path expected_;
  std::string url_;
  std::vector<std::string> arguments_;
  std::function<void(const std::filesystem::path&)> then_;
  std::unique_ptr<ChildProcess> process_;
  unsigned run_ = 0;
  LifetimeToken lifetime_;
};

std::string name(Fetch::Phase phase);

}  // namespace tavorin
