#pragma once
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "app/model/MainActor.hpp"
#include "app/model/Offloader.hpp"
#include "base/LifetimeToken.hpp"
#include "voice/VoiceDriver.hpp"

namespace tavorin {

class ToastCenter;

// Turns tickets into audio, strictly one at a time, on the main actor. What goes
// in, what each ticket means and where its audio lands are the owner's answers;
// the queue only orders the work, sends the engine call to a worker and keeps the
// state every ticket is in. A ticket is "<line>", "<line>#<k>", "g:<hash>[#k]" or
// "audition:<n>".
class RenderQueue {
 public:
  struct State {
    enum class Kind { queued, rendering, done, failed };
    Kind kind = Kind::queued;
    std::string reason;  // for failed
    static State failed(std::string why) { return {Kind::failed, std::move(why)}; }
    bool operator==(const State&) const = default;
  };

  struct Job {
    std::string text;
    std::string character;
    std::string voice;
    std::filesystem::path destination;
  };

  // Either a job to hand the engine, or why there is none; a refusal costs no engine call.
  struct Plan {
    std::optional<Job> job;
    std::string refusal;
    static Plan go(Job job) { return {std::move(job), {}}; }
    static Plan refuse(std::string reason) { return {std::nullopt, std::move(reason)}; }
  };

  struct Ticket {
    static constexpr std::string_view auditionMark = "audition:";
    static bool isAudition(std::string_view ticket) { return ticket.starts_with(auditionMark); }
    // The ticket less a "#<k>" sample suffix; an audition stands for itself.
    static std::string line(std::string_view ticket);
    static std::optional<int> sample(std::string_view ticket);
  };

  using Engine = std::function<std::shared_ptr<VoiceDriver>()>;
  using JobFor = std::function<Plan(const std::string& ticket)>;
  using Completed = std::function<void(const std::string& ticket, const RenderResult& result)>;
  using Drained = std::function<void(bool anyFailure)>;

  RenderQueue(MainActor& actor, Offloader& offloader, ToastCenter* toasts, Engine engine, JobFor job,
              Completed completed, Drained drained);
  RenderQueue(const RenderQueue&) = delete;
  RenderQueue& operator=(const RenderQueue&) = delete;

  // Appends each ticket not already waiting or rendering, and starts the worker.
  void enqueue(const std::vector<std::string>& tickets,
               const std::map<std::string, std::vector<std::string>>& covering = {});
  // The state of a ticket, or of whatever speaks for the line `id`.
  std::optional<State> state(const std::string& id) const;
  bool speaksFor(const std::string& ticket, const std::string& id) const;
  // Empties the queue, or takes out what speaks for `id`. A running engine call is
  // never interrupted: its result is dropped when it arrives.
  void cancel(const std::optional<std::string>& id = std::nullopt);

  std::size_t depth() const { return pending_.size() + (current_ ? 1 : 0); }
  bool busy() const { return draining_; }
  const std::map<std::string, State>& states() const { return states_; }
  const std::deque<std::string>& pending() const { return pending_; }
  const std::optional<std::string>& current() const { return current_; }
  int inFlight() const { return inFlight_; }
  int peakConcurrency() const { return peakConcurrency_; }
  const std::set<std::string>& justFinished() const { return justFinished_; }
  const std::map<std::string, std::vector<std::string>>& covering() const { return covering_; }
  // Seconds the current ticket has been rendering.
  std::optional<double> currentElapsed() const;

  // A failure as a line shows it: its sentence, cut to 160 characters.
  static std::string reason(const std::exception& error);
  static std::string reason(std::exception_ptr error);
  // "", "l1", or "l1–l4".
  static std::string name(const std::vector<std::string>& ids);
  // "0.8s", "12.4s", "2m 05s".
  static std::string elapsedWords(double seconds);

  static constexpr double flashSeconds = 1.6;

 private:
  void next();
  void renderOne(const std::string& ticket);
  void finish(const std::string& ticket, const std::shared_ptr<RenderResult>& result, std::exception_ptr failure,
              MainActor::Clock::time_point started);
  void mark(const std::string& ticket, State state) { states_[ticket] = std::move(state); }
  std::vector<std::string> linesOf(const std::string& ticket) const;

  MainActor& actor_;
  Offloader& offloader_;
  ToastCenter* toasts_;
  Engine engine_;
  JobFor job_;
  Completed completed_;
  Drained drained_;

  std::map<std::string, State> states_;
  std::deque<std::string> pending_;
  std::optional<std::string> current_;
  std::optional<std::string> cancelledCurrent_;
  std::map<std::string, std::vector<std::string>> covering_;
  std::set<std::string> justFinished_;
  int inFlight_ = 0;
  int peakConcurrency_ = 0;
  bool draining_ = false;
  bool failureSeen_ = false;
  MainActor::Clock::time_point startedAt_{};
  LifetimeToken alive_;
};

}  // namespace tavorin
