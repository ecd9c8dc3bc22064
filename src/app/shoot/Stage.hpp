#pragma once
#include <memory>

#include "app/model/MainActor.hpp"
#include "app/model/Offloader.hpp"
#include "app/shoot/AgentStepDriver.hpp"
#include "app/shoot/Runner.hpp"
#include "kit/Performer.hpp"

namespace tavorin {

class AppModel;

// Everything a run acts through, owned together: the performer, the agents, the
// thread the performer is driven from, and the runner that walks the plan.
class Stage {
 public:
  // The desktop's own: the X display the studio was started on, Chromium, and `claude`.
  explicit Stage(MainActor& actor);
  // Substitutes for tests; `lane` null gives the stage a performer thread of its own.
  Stage(MainActor& actor, std::unique_ptr<Performer> performer, std::unique_ptr<AgentStepDriver> agents,
        Offloader* lane = nullptr);
  ~Stage();

  Runner& runner() { return *runner_; }
  Performer& performer() { return *performer_; }
  AgentStepDriver& agents() { return *agents_; }

  // Runs the open production's script, never live: a take's roll is the only live run.
  // Refuses with noProduction before anything is touched.
  RunPlan run(AppModel& model, Runner::Mode mode);
  // Stops the run and notes it in the production's feed.
  void stop(AppModel& model);
  void abort(AppModel& model);

 private:
  std::unique_ptr<Performer> performer_;
  std::unique_ptr<AgentStepDriver> agents_;
  std::unique_ptr<Offloader> ownLane_;
  std::unique_ptr<Runner> runner_;
};

}  // namespace tavorin
