#include "app/shoot/Stage.hpp"

#include "app/model/AppModel.hpp"
#include "app/shoot/ClaudeAgentStep.hpp"
#include "app/shoot/PerformerThread.hpp"
#include "platform/X11Performer.hpp"

namespace tavorin {

Stage::Stage(MainActor& actor)
    : Stage(actor, std::make_unique<X11Performer>(), std::make_unique<ClaudeAgentStep>(actor)) {}

Stage::Stage(MainActor& actor, std::unique_ptr<Performer> performer, std::unique_ptr<AgentStepDriver> agents,
             Offloader* lane)
    : performer_(std::move(performer)), agents_(std::move(agents)) {
  if (!lane) {
    ownLane_ = std::make_unique<PerformerThread>(actor);
    lane = ownLane_.get();
  }
  runner_ = std::make_unique<Runner>(actor, *lane, *performer_, *agents_);
}

Stage::~Stage() {
  runner_->stop();
  // A glide under way ends at its next pause, so the thread can be joined.
  performer_->interrupt();
  ownLane_.reset();
  runner_.reset();
}

RunPlan Stage::run(AppModel& model, Runner::Mode mode) {
  const Recording& rec = model.recording();
  runner_->stop();
  if (model.isPlaying()) model.stopTransport();
  runner_->onEnd = [&model](const std::string& report) { model.note("run ended: " + report); };
  RunPlan plan = runner_->run(model.blocking(), rec, mode, false);
  model.note(std::string(mode == Runner::Mode::dry ? "run dry: " : "run rehearse: ") + runner_->report());
  return plan;
}

void Stage::stop(AppModel& model) {
  runner_->stop();
  model.note("stop run: " + runner_->report());
}

void Stage::abort(AppModel& model) {
  const bool wasRunning = runner_->isRunning();
  runner_->onEnd = nullptr;
  runner_->abort();
  if (wasRunning) model.note("stop run (aborted): " + runner_->report());
}

}  // namespace tavorin
