#pragma once
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "app/model/MainActor.hpp"
#include "app/model/Offloader.hpp"
#include "app/shoot/Runner.hpp"
#include "kit/Recording.hpp"
#include "kit/ScreenRecorder.hpp"
#include "kit/Take.hpp"

namespace tavorin {

// Rolls one take: a countdown, the camera started, a pad of picture, the stage
// script performed by the runner, a pad at the end, and the film and its record
// finished. Lives on the main actor; the camera's blocking calls and the take's
// files go through `camera`, a lane of their own, and come back before the next act.
class Shoot {
 public:
  enum class Phase { idle, counting, slate, performing, tail, finalizing };
  using Clock = MainActor::Clock;

  static constexpr int countFrom = 3;
  static constexpr double slatePad = 1.5;
  static constexpr double tailPad = 1.0;
  // How often the performance is looked at for its end.
  static constexpr auto poll = std::chrono::milliseconds(10);

  Shoot(MainActor& actor, Offloader& camera, ScreenRecorder& recorder, Runner& runner);
  ~Shoot();
  Shoot(const Shoot&) = delete;
  Shoot& operator=(const Shoot&) = delete;

  // Writes nothing yet: the take's record is written when the camera starts. Throws
  // when a take is already rolling.
  Take start(std::string_view source, const Recording& rec, const std::filesystem::path& dir,
             const std::string& version, bool free, std::chrono::system_clock::time_point now);
  // Counting: the take never existed. Filming: the performance stops and the take
  // ends as aborted with what was filmed.
  void cut();

  Phase phase() const { return phase_; }
  bool isRolling() const { return phase_ != Phase::idle; }
  bool isFilming() const { return filmingSince_.has_value(); }
  const std::optional<Take>& take() const { return take_; }
  const std::optional<std::string>& failure() const { return failure_; }
  int counting() const { return counting_; }
  double plannedSeconds() const { return plannedSeconds_; }
  int tick() const { return tick_; }
  bool isFree() const { return free_; }
  // Seconds since the camera's first frame, as the actor's clock sees it.
  std::optional<double> filmingFor() const;
  // "not rolling", "rolling — slate", "take <id> failed to roll: <why>", ...
  std::string report() const;
  static std::string name(Phase);

  // Each second while a take is on.
  std::function<void()> onTick;
  // The numbered sound cues: 3 when filming starts, 4 when the take ends.
  std::function<void(int cue)> onCue;
  // On the actor, once a take has ended and its record is written.
  std::function<void(const Take&)> onFinished;
  // Every change of phase, for the window and the events.
  std::function<void()> onChange;

 private:
  void count();
  void slate();
  void rolled(std::exception_ptr failure);
  void perform();
  void watch();
  void tail();
  void finish(Take::Status status);
  void finishComplete();
  void after(double seconds, void (Shoot::*next)());
  void changed();

  MainActor& actor_;
  Offloader& camera_;
  ScreenRecorder& recorder_;
  Runner& runner_;

  Phase phase_ = Phase::idle;
  std::optional<Take> take_;
  std::optional<std::filesystem::path> takesDir_;
  std::optional<std::string> failure_;
  int counting_ = countFrom;
  double plannedSeconds_ = 0;
  int tick_ = 0;
  bool free_ = false;
  bool cutByHand_ = false;
  std::optional<Clock::time_point> filmingSince_;
  std::optional<Clock::time_point> performingSince_;
  std::string source_;
  Recording rec_;
  std::shared_ptr<MainActor::Timer> ticker_;
  std::shared_ptr<MainActor::Timer> step_;
  // Completions from the camera's lane of a shoot that has ended, or of a Shoot
  // that is gone, find this down and do nothing.
  std::shared_ptr<bool> alive_;
};

}  // namespace tavorin
