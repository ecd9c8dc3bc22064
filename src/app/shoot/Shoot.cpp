#include "app/shoot/Shoot.hpp"

#include <algorithm>
#include <stdexcept>

#include "base/IsoDate.hpp"
#include "kit/RunPlan.hpp"
#include "kit/Schedule.hpp"
#include "kit/TakesStore.hpp"

namespace tavorin {

namespace {

MainActor::Clock::duration duration(double s) {
  return std::chrono::duration_cast<MainActor::Clock::duration>(std::chrono::duration<double>(s < 0 ? 0 : s));
}

double seconds(MainActor::Clock::duration d) { return std::chrono::duration<double>(d).count(); }

}  // namespace

Shoot::Shoot(MainActor& actor, Offloader& camera, ScreenRecorder& recorder, Runner& runner)
    : actor_(actor), camera_(camera), recorder_(recorder), runner_(runner), alive_(std::make_shared<bool>(true)) {}

Shoot::~Shoot() {
  *alive_ = false;
  if (ticker_) ticker_->cancel();
  if (step_) step_->cancel();
}

std::string Shoot::name(Phase phase) {
  switch (phase) {
    case Phase::idle: return "idle";
    case Phase::counting: return "counting";
    case Phase::slate: return "slate";
    case Phase::performing: return "performing";
    case Phase::tail: return "tail";
    case Phase::finalizing: return "finalizing";
  }
  return "idle";
}

std::optional<double> Shoot::filmingFor() const {
  if (!filmingSince_) return std::nullopt;
  return seconds(actor_.now() - *filmingSince_);
}

std::string Shoot::report() const {
  switch (phase_) {
    case Phase::idle:
      if (take_ && failure_) return "take " + take_->id + " failed to roll: " + *failure_;
      return "not rolling";
    case Phase::counting: return "rolling — counting " + std::to_string(counting_);
    case Phase::slate: return "rolling — slate";
    case Phase::performing: return "rolling — " + runner_.report();
    case Phase::tail: return "rolling — tail";
    case Phase::finalizing: return "finalizing";
  }
  return "not rolling";
}

Take Shoot::start(std::string_view source, const Recording& rec, const std::filesystem::path& dir,
                  const std::string& version, bool free, std::chrono::system_clock::time_point now) {
  if (isRolling()) throw std::runtime_error("a take is already rolling");
  const TakesStore store(dir);
  Take take;
  take.id = TakesStore::id(rec.title, now);
  // Two takes in one second: the later one gets a number.
  for (int n = 2; std::filesystem::exists(store.folder / take.id); ++n)
    take.id = TakesStore::id(rec.title, now) + "-" + std::to_string(n);
  take.startedAt = IsoDate::format(now);
  take.video = "take.mp4";
  take.fromVersion = version;
  take.scheduleDigest = Schedule::digest(source, rec);
  take.capture = rec.capture;
  take.pads = Take::Pads(slatePad, tailPad);
  take.status = Take::Status::rolling;
  take.seconds = 0;
  take.provenance = Take::Provenance::shot;

  take_ = take;
  takesDir_ = dir;
  failure_.reset();
  counting_ = countFrom;
  free_ = free;
  cutByHand_ = false;
  source_ = std::string(source);
  rec_ = rec;
  plannedSeconds_ = free ? 0 : RunPlan::make(source, rec).duration;
  tick_ = 0;
  phase_ = Phase::counting;
  *alive_ = false;
  alive_ = std::make_shared<bool>(true);
  // The ticker counts seconds of the whole take, for the window's readout.
  std::function<void()> ticking = [this, alive = alive_] {
    if (!*alive || phase_ == Phase::idle) return;
    ++tick_;
    if (onTick) onTick();
  };
  struct Repeat {
    static void arm(Shoot* self, std::shared_ptr<bool> alive, std::function<void()> each) {
      self->ticker_ = self->actor_.after(std::chrono::seconds(1), [self, alive, each] {
        if (!*alive || self->phase_ == Phase::idle) return;
        each();
        arm(self, alive, each);
      });
    }
  };
  Repeat::arm(this, alive_, ticking);
  changed();
  after(1, &Shoot::count);
  return take;
}

void Shoot::after(double s, void (Shoot::*next)()) {
  if (step_) step_->cancel();
  step_ = actor_.after(duration(s), [this, next, alive = alive_] {
    if (*alive) (this->*next)();
  });
}

void Shoot::count() {
  if (phase_ != Phase::counting) return;
  --counting_;
  if (counting_ >= 1) {
    changed();
    after(1, &Shoot::count);
    return;
  }
  slate();
}

void Shoot::slate() {
  phase_ = Phase::slate;
  changed();
  // The record says "rolling" before the first frame, so a crash leaves evidence.
  const TakesStore store(*takesDir_);
  const Take take = *take_;
  const std::filesystem::path film = store.video(take);
  const std::optional<CaptureConfig> capture = take.capture;
  ScreenRecorder& recorder = recorder_;
  camera_.offload([store, take, film, capture, &recorder] {
                    store.begin(take);
                    recorder.roll(film, capture);
                  },
                  [this, alive = alive_](std::exception_ptr failure) {
                    if (*alive) rolled(failure);
                  });
}

void Shoot::rolled(std::exception_ptr failure) {
  if (failure) {
    try {
      std::rethrow_exception(failure);
    } catch (const std::exception& e) {
      failure_ = e.what();
    }
    // Nothing was filmed; the record written at the slate says why.
    Take take = *take_;
    take.status = Take::Status::failed;
    take_ = take;
    const TakesStore store(*takesDir_);
    camera_.offload([store, take] { if (std::filesystem::exists(store.url(take))) store.write(take); },
                    [this, alive = alive_](std::exception_ptr) {
                      if (!*alive) return;
                      if (ticker_) ticker_->cancel();
                      phase_ = Phase::idle;
                      changed();
                      if (onFinished) onFinished(*take_);
                    });
    return;
  }
  if (onCue) onCue(3);
  filmingSince_ = actor_.now();
  if (cutByHand_) {
    finish(Take::Status::aborted);
    return;
  }
  if (free_) {
    perform();
    return;
  }
  after(slatePad, &Shoot::perform);
}

void Shoot::perform() {
  if (phase_ != Phase::slate) return;
  phase_ = Phase::performing;
  performingSince_ = actor_.now();
  changed();
  if (!free_) runner_.run(source_, rec_, Runner::Mode::rehearse, true);
  after(std::chrono::duration<double>(poll).count(), &Shoot::watch);
}

void Shoot::watch() {
  if (phase_ != Phase::performing) return;
  // A recorder that lost its picture ends the take now, with its words.
  if (const auto lost = recorder_.failure()) {
    runner_.stop();
    failure_ = RecordError::writerFailed(*lost).what();
    finish(Take::Status::failed);
    return;
  }
  // The take covers the whole plan even when the script ends early: the narration
  // keeps its picture. A free take rolls until it is cut.
  const bool performing = runner_.isRunning();
  const bool runFailed = runner_.failure().has_value() || runner_.aborted();
  const double left = plannedSeconds_ - seconds(actor_.now() - *performingSince_);
  const double pollSeconds = std::chrono::duration<double>(poll).count();
  if (free_ || performing) {
    after(pollSeconds, &Shoot::watch);
    return;
  }
  // The script is done before the plan: the tail starts on the plan's end, not on
  // the next look, so the film's length is the plan's to the frame.
  if (!runFailed && left > 0) {
    after(std::min(left, pollSeconds), &Shoot::watch);
    return;
  }
  if (runner_.failure()) {
    failure_ = *runner_.failure();
    finish(Take::Status::failed);
    return;
  }
  tail();
}

void Shoot::tail() {
  phase_ = Phase::tail;
  changed();
  after(tailPad, &Shoot::finishComplete);
}

void Shoot::finishComplete() { finish(Take::Status::complete); }

void Shoot::finish(Take::Status status) {
  if (ticker_) ticker_->cancel();
  if (step_) step_->cancel();
  phase_ = Phase::finalizing;
  changed();
  const TakesStore store(*takesDir_);
  Take take = *take_;
  take.status = status;
  const double wall = filmingSince_ ? seconds(actor_.now() - *filmingSince_) : 0;
  auto cutFailure = std::make_shared<std::optional<std::string>>();
  auto finished = std::make_shared<Take>(take);
  ScreenRecorder& recorder = recorder_;
  camera_.offload(
      [store, finished, cutFailure, wall, &recorder] {
        try {
          const FilmedSpan span = recorder.cut();
          // The frames' own times; a camera that kept none is timed by the clock.
          finished->seconds = span.seconds > 0 ? span.seconds : wall;
        } catch (const std::exception& e) {
          *cutFailure = e.what();
          finished->status = Take::Status::failed;
          finished->seconds = wall;
        }
        try {
          store.write(*finished);
        } catch (const std::exception& e) {
          // A full disk: a failed take's film is unplayable, and the room it frees lets
          // the record say how the take ended.
          bool saved = false;
          std::error_code ec;
          if (finished->status == Take::Status::failed && std::filesystem::remove(store.video(*finished), ec)) {
            try {
              store.write(*finished);
              saved = true;
            } catch (const std::exception&) {
            }
          }
          if (!saved && !*cutFailure) *cutFailure = e.what();
        }
      },
      [this, finished, cutFailure, alive = alive_](std::exception_ptr) {
        if (!*alive) return;
        if (*cutFailure && !failure_) failure_ = *cutFailure;
        take_ = *finished;
        if (onCue) onCue(4);
        filmingSince_.reset();
        performingSince_.reset();
        phase_ = Phase::idle;
        changed();
        if (onFinished) onFinished(*take_);
      });
}

void Shoot::cut() {
  switch (phase_) {
    case Phase::idle:
    case Phase::finalizing: return;
    case Phase::counting:
      // The take never existed: nothing was written and the camera never rolled.
      if (ticker_) ticker_->cancel();
      if (step_) step_->cancel();
      *alive_ = false;
      alive_ = std::make_shared<bool>(true);
      failure_ = "cancelled before the camera rolled";
      phase_ = Phase::idle;
      take_.reset();
      changed();
      return;
    case Phase::slate:
      if (!filmingSince_) {
        // The camera is starting on its lane; the take ends as soon as it has.
        cutByHand_ = true;
        return;
      }
      [[fallthrough]];
    case Phase::performing:
    case Phase::tail:
      cutByHand_ = true;
      runner_.abort();
      finish(Take::Status::aborted);
      return;
  }
}

void Shoot::changed() {
  if (onChange) onChange();
}

}  // namespace tavorin
