#pragma once
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/model/MainActor.hpp"
#include "app/model/Offloader.hpp"
#include "app/shoot/AgentStepDriver.hpp"
#include "kit/AgentPolicy.hpp"
#include "kit/Performer.hpp"
#include "kit/Recording.hpp"
#include "kit/RunPlan.hpp"

namespace tavorin {

// Walks a run plan on the main actor: nothing in a dry run, the desktop in a
// rehearsal, the desktop and the agents while a take rolls. Each performer step
// runs on `lane` (a thread of its own in the studio) and comes back before the
// next starts, so a step's waiting never holds up the actor.
class Runner {
 public:
  enum class Mode { dry, rehearse };
  using Clock = MainActor::Clock;

  // The agent step driving the screen right now.
  struct AgentStep {
    Blocking::AgentCall call;
    std::string model;
    Clock::time_point startedAt;
  };

  // How often the wait for an event's time looks for a stop: one frame at 60 fps.
  static constexpr auto poll = std::chrono::milliseconds(16);

  Runner(MainActor& actor, Offloader& lane, Performer& performer, AgentStepDriver& agents);
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  // Replaces any run under way. A dry run plans and ends; a rehearsal starts its
  // drive and returns the plan at once.
  RunPlan run(std::string_view source, const Recording& rec, Mode mode, bool live);
  // Cancels the drive; the step under way ends at its next pause.
  void stop();
  // The user's stop: also cuts an agent step and marks the run aborted.
  void abort();

  // What `open` hands the performer: a relative reference ("page/index.html") is a file
  // of the production's folder, as a file URL; anything else goes as written.
  static std::string address(const std::string& target, const std::filesystem::path& folder);

  std::string report() const;
  std::string upNext() const;
  std::optional<RunPlan::Event> nextEvent() const;
  std::optional<double> agentElapsed() const;

  bool isRunning() const { return isRunning_; }
  Mode mode() const { return mode_; }
  bool live() const { return live_; }
  const RunPlan& plan() const { return plan_; }
  const std::vector<int>& performed() const { return performed_; }
  // Seconds since the start, as last noted; while running, as of now.
  double elapsed() const;
  const std::optional<std::string>& failure() const { return failure_; }
  bool aborted() const { return aborted_; }
  const std::vector<std::string>& skipped() const { return skipped_; }
  const std::optional<AgentStep>& agentStep() const { return agentStep_; }
  const std::vector<std::string>& heldAgents() const { return heldAgents_; }
  const std::optional<AgentPolicy>& policy() const { return policy_; }
  Performer& performer() { return performer_; }

  // The production's folder, which relative `open` targets are read against.
  std::filesystem::path folder;

  // Called on the actor after each change of state.
  std::function<void()> onChange;
  // Called on the actor when a drive ends by itself (done or failed), with `report`.
  std::function<void(const std::string&)> onEnd;
  // Called just before a step is handed over, with the moment it was due.
  std::function<void(const RunPlan::Event&, Clock::time_point due)> onStep;

 private:
  void advance();
  void perform(const RunPlan::Event& event);
  void finishStep(std::exception_ptr error);
  void end();
  void cancelDrive();
  void sleep(Clock::duration delay, Clock::time_point due);
  void noteElapsed();
  void changed();

  MainActor& actor_;
  Offloader& lane_;
  Performer& performer_;
  AgentStepDriver& agents_;

  bool isRunning_ = false;
  Mode mode_ = Mode::dry;
  RunPlan plan_;
  std::vector<int> performed_;
  double elapsed_ = 0;
  std::optional<std::string> failure_;
  bool aborted_ = false;
  std::vector<std::string> skipped_;
  std::optional<AgentStep> agentStep_;
  std::vector<std::string> heldAgents_;
  std::optional<AgentPolicy> policy_;
  std::optional<Clock::time_point> startedAt_;
  bool live_ = false;

  // The drive: alive until it ends or is cancelled. Completions of an old drive see
  // their flag down and do nothing.
  std::shared_ptr<std::atomic<bool>> drive_;
  std::shared_ptr<MainActor::Timer> timer_;
  std::size_t next_ = 0;
  std::optional<std::size_t> previous_;
  bool paced_ = false;
  bool stepUnderWay_ = false;
  bool inPerform_ = false;
  Clock::time_point due_{};
};

}  // namespace tavorin
