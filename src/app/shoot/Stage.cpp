#include "app/shoot/Stage.hpp"

#include "app/model/AppModel.hpp"
#include "app/shoot/ClaudeAgentStep.hpp"
#include "app/shoot/PerformerThread.hpp"
#include "app/shoot/PermissionsRitual.hpp"
#include "app/shoot/RecordingRecorder.hpp"
#include "platform/X11Performer.hpp"
#include "platform/camera/X11Recorder.hpp"

namespace tavorin {

Stage::Stage(MainActor& actor)
    : Stage(actor, std::make_unique<X11Performer>(), std::make_unique<ClaudeAgentStep>(actor)) {}

Stage::Stage(MainActor& actor, std::unique_ptr<Performer> performer, std::unique_ptr<AgentStepDriver> agents,
             Offloader* lane, std::unique_ptr<ScreenRecorder> recorder, Offloader* camera)
    : performer_(std::move(performer)), agents_(std::move(agents)), recorder_(std::move(recorder)) {
  if (!lane) {
    ownLane_ = std::make_unique<PerformerThread>(actor);
    lane = ownLane_.get();
  }
  runner_ = std::make_unique<Runner>(actor, *lane, *performer_, *agents_);
  if (!recorder_)
    recorder_ = std::make_unique<X11Recorder>(std::string(), [](const std::string& app) { return X11Performer::windowOf(app); });
  // The camera's blocking calls get a thread of their own: a slow roll never delays a step.
  if (!camera) {
    ownCamera_ = std::make_unique<PerformerThread>(actor);
    camera = ownCamera_.get();
  }
  logged_ = std::make_unique<RecordingRecorder>(*recorder_, actor);
  shoot_ = std::make_unique<Shoot>(actor, *camera, *logged_, *runner_);
}

std::optional<std::string> Stage::canRoll(const AppModel& model, bool free, const PermissionsRitual* ritual) const {
  if (!model.isOpen()) return "no production currently open";
  if (model.isReadOnly()) return "you are viewing an older version — make it the head to shoot from it";
  if (shoot_->isRolling()) return "a take is already rolling";
  if (ritual) {
    using Kind = PermissionsRitual::State::Kind;
    const Kind screen = ritual->state(Need::screenRecording).kind;
    if (screen == Kind::missing || screen == Kind::relaunchNeeded) return std::string(screenRefusal);
  }
  if (free) return std::nullopt;
  if (model.blocking().find_first_not_of(" \t\r\n") == std::string::npos) return "there is no blocking script to perform";
  const RunPlan plan = RunPlan::make(model.blocking(), model.recording());
  bool hasLines = false;
  for (const auto& item : model.recording().timeline) hasLines = hasLines || item.type == ItemType::line;
  if (plan.events.empty() && !hasLines) return "there is nothing to perform yet";
  return std::nullopt;
}

std::vector<std::string> Stage::preflight(const AppModel& model) {
  std::vector<std::string> warnings;
  if (!model.isOpen()) return warnings;
  const auto counted = [](std::size_t n, const std::string& noun) {
    return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
  };
  const auto skipped = RunPlan::skipped(model.blocking());
  if (!skipped.empty()) {
    std::string list;
    for (const auto& s : skipped) list += (list.empty() ? "" : ", ") + s;
    warnings.push_back(counted(skipped.size(), "step") + " the runner doesn't recognise will be skipped: " + list);
  }
  std::size_t stale = 0, silent = 0;
  const Recording& rec = model.recording();
  for (const auto& item : rec.timeline) {
    if (item.type != ItemType::line) continue;
    if (!item.file) ++silent;
    else if (rec.isStale(item)) ++stale;
  }
  if (stale) warnings.push_back(counted(stale, "line") + " stale — the take will be shot against audio that no longer matches.");
  if (silent)
    warnings.push_back(counted(silent, "line") + (silent == 1 ? " has" : " have") + " no audio rendered yet.");
  return warnings;
}

std::optional<std::string> Stage::refusal(const CameraVerdict& verdict) {
  switch (verdict.kind) {
    case CameraVerdict::Kind::proven: return std::nullopt;
    case CameraVerdict::Kind::blocked:
      return "The X server is not delivering frames of the screen" + (verdict.seen ? " (" + *verdict.seen + ")" : std::string()) + ".";
    case CameraVerdict::Kind::noAccess:
      return "Tavorin can't reach the X display. Start it in an X11 session with DISPLAY set, then relaunch Tavorin.";
    case CameraVerdict::Kind::noTarget:
      return verdict.seen ? *verdict.seen : "No window or display was found. The check proved nothing.";
  }
  return std::nullopt;
}

Take Stage::record(AppModel& model, bool free) {
  if (const auto why = canRoll(model, free)) throw AppModel::Failure::cannotUse(*why);
  runner_->stop();
  if (model.isPlaying()) model.stopTransport();
  const Recording& rec = model.recording();
  if (rec.capture && rec.capture->app) {
    try {
      performer_->activate(*rec.capture->app);
    } catch (const std::exception&) {
      // The camera finds the window itself and says what is wrong with it.
    }
  }
  shoot_->onCue = [&model](int cue) { model.sound(static_cast<SoundCue>(cue)); };
  logged_->note = [&model](const std::string& line) { model.note(line); };
  shoot_->onFinished = [&model](const Take& take) {
    if (take.status == Take::Status::complete || take.status == Take::Status::aborted) {
      try {
        model.selectTake(take.id);
        model.note("take " + take.id + " is on the monitor");
      } catch (const std::exception& e) {
        model.note(e.what());
      }
    } else {
      model.note("take " + take.id + " " + name(take.status));
    }
  };
  runner_->folder = model.baseDir().value_or(std::filesystem::path());
  const Take take = shoot_->start(model.blocking(), rec, *model.baseDir(), model.headVersion().value_or("unsaved"), free,
                                  model.actor().wallNow());
  model.note(std::string(free ? "rolling free take " : "rolling take ") + take.id);
  return take;
}

void Stage::cut(AppModel& model) {
  if (!shoot_->isRolling()) return;
  shoot_->cut();
  model.note("cut " + (shoot_->take() ? shoot_->take()->id : std::string("the take before it rolled")));
}

Stage::~Stage() {
  shoot_.reset();
  logged_.reset();
  ownCamera_.reset();
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
  runner_->folder = model.baseDir().value_or(std::filesystem::path());
  RunPlan plan = runner_->run(model.blocking(), rec, mode, false);
  model.note(std::string(mode == Runner::Mode::dry ? "run dry: " : "run rehearse: ") + runner_->report());
  return plan;
}

void Stage::stop(AppModel& model) {
  runner_->stop();
  model.note("stop run: " + runner_->report());
}

void Stage::clear(AppModel& model) {
  if (shoot_->isRolling() || !runner_->isRunning()) return;
  stop(model);
}

void Stage::abort(AppModel& model) {
  const bool wasRunning = runner_->isRunning();
  runner_->onEnd = nullptr;
  runner_->abort();
  if (wasRunning) model.note("stop run (aborted): " + runner_->report());
}

}  // namespace tavorin
