#pragma once
#include <memory>

#include "app/model/MainActor.hpp"
#include "app/model/Offloader.hpp"
#include "app/shoot/AgentStepDriver.hpp"
#include "app/shoot/Runner.hpp"
#include "app/shoot/Shoot.hpp"
#include "kit/Performer.hpp"
#include "kit/ScreenRecorder.hpp"

namespace tavorin {

class AppModel;

// Everything a run acts through, owned together: the performer, the agents, the
// thread the performer is driven from, and the runner that walks the plan.
class Stage {
 public:
  // The desktop's own: the X display the studio was started on, Chromium, and `claude`.
  explicit Stage(MainActor& actor);
  // Substitutes for tests; `lane` null gives the stage a performer thread of its own,
  // `camera` null a camera thread of its own, `recorder` null the X display's camera.
  Stage(MainActor& actor, std::unique_ptr<Performer> performer, std::unique_ptr<AgentStepDriver> agents,
        Offloader* lane = nullptr, std::unique_ptr<ScreenRecorder> recorder = nullptr, Offloader* camera = nullptr);
  ~Stage();

  Runner& runner() { return *runner_; }
  Shoot& shoot() { return *shoot_; }
  ScreenRecorder& recorder() { return *recorder_; }
  // Why a take cannot roll now, in the order a user meets the reasons; none when it can.
  std::optional<std::string> canRoll(const AppModel& model, bool free) const;
  // The check's verdict as the sentence a roll refuses with; none when proven.
  static std::optional<std::string> refusal(const CameraVerdict& verdict);
  // Rolls a take of the open production once the camera is proven: stops playing and
  // any run, raises the app it films, starts the shoot. A finished take goes on the monitor.
  Take record(AppModel& model, bool free);
  void cut(AppModel& model);
  Performer& performer() { return *performer_; }
  AgentStepDriver& agents() { return *agents_; }

  // Runs the open production's script, never live: a take's roll is the only live run.
  // Refuses with noProduction before anything is touched.
  RunPlan run(AppModel& model, Runner::Mode mode);
  // Stops the run and notes it in the production's feed.
  void stop(AppModel& model);
  void abort(AppModel& model);
  // Another production is opening: a dry run or rehearsal of the last one stops. A
  // rolling take is left to its own cut.
  void clear(AppModel& model);

 private:
  std::unique_ptr<Performer> performer_;
  std::unique_ptr<AgentStepDriver> agents_;
  std::unique_ptr<Offloader> ownLane_;
  std::unique_ptr<Runner> runner_;
  std::unique_ptr<ScreenRecorder> recorder_;
  std::unique_ptr<Offloader> ownCamera_;
  std::unique_ptr<Shoot> shoot_;
};

}  // namespace tavorin
