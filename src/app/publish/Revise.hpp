#pragma once
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/model/MainActor.hpp"
#include "base/LifetimeToken.hpp"
#include "kit/Recording.hpp"

namespace tavorin {

class ChildProcess;
class OutputTail;

// One revision at a time: `claude` is handed the production and the change asked for,
// and only a reply that reads as this same production reaches `then`. Lives on the
// main actor; the child's ends hop back to it.
class Revise {
 public:
  enum class Phase { idle, thinking, landed, failed };

  // `claude` is found when a revision starts unless a path is given here.
  explicit Revise(MainActor& actor, std::optional<std::filesystem::path> claude = std::nullopt);
  ~Revise();

  // Refuses with ReviseError before anything runs. `then` gets the revised production on
  // the main actor and answers the version it landed as; what it throws is the failure.
  void start(const Recording& recording, const std::filesystem::path& dir, const std::string& instruction,
             std::function<std::string(const Recording&)> then);

  Phase phase() const { return phase_; }
  const std::optional<std::string>& failure() const { return failure_; }
  const std::optional<std::string>& version() const { return version_; }
  const std::string& instruction() const { return instruction_; }
  std::filesystem::path claudePath() const;

  // A reply that takes longer is given up on and the child stopped.
  std::chrono::steady_clock::duration timeLimit = std::chrono::minutes(10);
  // Called on the main actor when a started revision fails, with the sentence.
  std::function<void(const std::string&)> onFailure;

 private:
  void finish(int status, const std::string& out, const std::string& err);
  void fail(const std::string& text);

  MainActor& actor_;
  std::optional<std::filesystem::path> claude_;
  Phase phase_ = Phase::idle;
  std::optional<std::string> failure_;
  std::optional<std::string> version_;
  std::string instruction_;
  std::string expectedId_;
  std::function<std::string(const Recording&)> then_;
  std::unique_ptr<ChildProcess> process_;
  std::shared_ptr<MainActor::Timer> deadline_;
  // Each run's replies carry its number, so a late end of a stopped run is ignored.
  unsigned run_ = 0;
  LifetimeToken lifetime_;
};

std::string name(Revise::Phase phase);

}  // namespace tavorin
