#include "app/shoot/Runner.hpp"

#include <cctype>
#include <cstdio>

#include "base/Text.hpp"
#include "kit/Agents.hpp"

namespace tavorin {

namespace {

using K = Blocking::Kind;

double seconds(MainActor::Clock::duration d) { return std::chrono::duration<double>(d).count(); }

MainActor::Clock::duration duration(double s) {
  return std::chrono::duration_cast<MainActor::Clock::duration>(std::chrono::duration<double>(s < 0 ? 0 : s));
}

std::string oneDecimal(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1fs", value);
  return buffer;
}

// The performer's act for one kind of step; false for a kind the performer has no part in.
bool isPerformerStep(const Blocking::Kind& kind) {
  return kind.is<K::App>() || kind.is<K::Open>() || kind.is<K::Click>() || kind.is<K::Move>() ||
         kind.is<K::Scroll>() || kind.is<K::Type>() || kind.is<K::Key>() || kind.is<K::Js>();
}

void act(Performer& p, const Blocking::Kind& kind, const std::filesystem::path& folder) {
  if (auto* s = kind.as<K::App>()) p.activate(s->name);
  else if (auto* s = kind.as<K::Open>()) p.open(Runner::address(s->target, folder));
  else if (auto* s = kind.as<K::Click>()) p.click(s->x, s->y);
  else if (auto* s = kind.as<K::Move>()) p.move(s->x, s->y, s->over);
  else if (auto* s = kind.as<K::Scroll>()) p.scroll(s->px, s->over);
  else if (auto* s = kind.as<K::Type>()) p.type(s->text);
  else if (auto* s = kind.as<K::Key>()) p.key(s->combo);
  else if (auto* s = kind.as<K::Js>()) p.js(s->script);
}

// Whether the text begins with a scheme: a letter, then letters, digits, "+", "-" or "."
// up to a colon.
bool hasScheme(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 || !std::isalpha(static_cast<unsigned char>(text[0]))) return false;
  for (char c : text.substr(0, colon))
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return false;
  return true;
}

}  // namespace

std::string Runner::address(const std::string& target, const std::filesystem::path& folder) {
  const std::string_view text = Text::trimSpace(target);
  if (text.empty() || folder.empty() || hasScheme(text) || text[0] == '/') return target;
  // The query and fragment stay as written; the path is the folder's file, each byte
  // outside a URL path's plain characters escaped.
  const auto tail = text.find_first_of("?#");
  const std::string path = (folder / std::string(text.substr(0, tail))).lexically_normal().string();
  static const char* hex = "0123456789ABCDEF";
  std::string url = "file://";
  for (unsigned char c : path) {
    if (std::isalnum(c) || std::string_view("/-._~!$&'()*+,;=:@").find(static_cast<char>(c)) != std::string_view::npos) {
      url.push_back(static_cast<char>(c));
    } else {
      url.push_back('%');
      url.push_back(hex[c >> 4]);
      url.push_back(hex[c & 15]);
    }
  }
  if (tail != std::string_view::npos) url.append(text.substr(tail));
  return url;
}

Runner::Runner(MainActor& actor, Offloader& lane, Performer& performer, AgentStepDriver& agents)
    : actor_(actor), lane_(lane), performer_(performer), agents_(agents) {}

Runner::~Runner() {
  onChange = nullptr;
  onEnd = nullptr;
  cancelDrive();
}

RunPlan Runner::run(std::string_view source, const Recording& rec, Mode mode, bool live) {
  stop();
  mode_ = mode;
  live_ = live;
  plan_ = RunPlan::make(source, rec);
  policy_ = rec.agent;
  skipped_ = RunPlan::skipped(source);
  performed_.clear();
  elapsed_ = 0;
  failure_.reset();
  aborted_ = false;
  agentStep_.reset();
  heldAgents_.clear();
  startedAt_.reset();
  if (mode == Mode::dry) {
    changed();
    return plan_;
  }
  isRunning_ = true;
  startedAt_ = actor_.now();
  drive_ = std::make_shared<std::atomic<bool>>(true);
  next_ = 0;
  previous_.reset();
  paced_ = false;
  stepUnderWay_ = false;
  changed();
  // The drive starts on the actor's next turn, so the verb answers first.
  actor_.post([this, drive = drive_] {
    if (*drive) advance();
  });
  return plan_;
}

void Runner::cancelDrive() {
  if (drive_) *drive_ = false;
  drive_.reset();
  if (timer_) timer_->cancel();
  timer_.reset();
  if (stepUnderWay_) performer_.interrupt();
  if (agentStep_) agents_.abort();
  stepUnderWay_ = false;
}

void Runner::stop() {
  if (!isRunning_ && !drive_) return;
  noteElapsed();
  cancelDrive();
  agentStep_.reset();
  isRunning_ = false;
  changed();
}

void Runner::abort() {
  noteElapsed();
  aborted_ = true;
  if (agentStep_) agents_.abort();
  agentStep_.reset();
  cancelDrive();
  isRunning_ = false;
  changed();
}

double Runner::elapsed() const {
  if (isRunning_ && startedAt_) return seconds(actor_.now() - *startedAt_);
  return elapsed_;
}

void Runner::noteElapsed() {
  if (startedAt_) elapsed_ = seconds(actor_.now() - *startedAt_);
}

void Runner::changed() {
  if (onChange) onChange();
}

void Runner::sleep(Clock::duration delay, Clock::time_point due) {
  due_ = due;
  timer_ = actor_.after(delay, [this, drive = drive_] {
    if (!*drive) return;
    timer_.reset();
    advance();
  });
}

// One pass of the drive loop, from where it stood; it returns whenever it has to wait.
void Runner::advance() {
  while (drive_ && *drive_) {
    if (next_ >= plan_.events.size()) return end();
    const auto& event = plan_.events[next_];
    const auto now = actor_.now();
    const auto at = *startedAt_ + duration(event.time);
    // Never early; late steps are not hurried.
    if (now < at) {
      noteElapsed();
      return sleep(std::min<Clock::duration>(poll, at - now), at);
    }
    if (!paced_) {
      paced_ = true;
      if (previous_ && !RunPlan::isPause(plan_.events[*previous_].kind) && !RunPlan::isPause(event.kind)) {
        const double pace = Agents::pace(policy_);
        if (pace > 0) return sleep(duration(pace), now + duration(pace));
      }
      due_ = std::max(at, due_);
    }
    noteElapsed();
    if (onStep) onStep(event, std::max(due_, at));
    stepUnderWay_ = true;
    inPerform_ = true;
    perform(event);
    inPerform_ = false;
    if (stepUnderWay_) return;  // it comes back through finishStep
  }
}

void Runner::perform(const RunPlan::Event& event) {
  const auto& kind = event.kind;
  if (isPerformerStep(kind)) {
    auto drive = drive_;
    lane_.offload(
        [drive, &performer = performer_, kind, folder = folder] {
          if (!*drive) throw PerformCancelled();
          performer.clearInterrupt();
          // An abort between the check above and here has already interrupted.
          if (!*drive) throw PerformCancelled();
          act(performer, kind, folder);
        },
        [this, drive](std::exception_ptr error) {
          if (*drive) finishStep(error);
        });
    return;
  }
  if (auto* wait = kind.as<K::Wait>()) {
    timer_ = actor_.after(duration(wait->seconds), [this, drive = drive_] {
      if (*drive) finishStep(nullptr);
    });
    return;
  }
  if (auto* hold = kind.as<K::Hold>()) {
    timer_ = actor_.after(duration(hold->seconds), [this, drive = drive_] {
      if (*drive) finishStep(nullptr);
    });
    return;
  }
  if (auto* call = kind.as<K::Agent>()) {
    if (!live_) {
      // A rehearsal shows what would be asked and spawns nothing.
      heldAgents_.push_back(call->prompt);
      return finishStep(nullptr);
    }
    agentStep_ = AgentStep{*call, Agents::model(policy_, call->model), actor_.now()};
    changed();
    agents_.run(*call, policy_, [this, drive = drive_](std::exception_ptr error) {
      if (!*drive) return;
      agentStep_.reset();
      finishStep(error);
    });
    return;
  }
  finishStep(nullptr);  // a cue, a header: nothing to do
}

void Runner::finishStep(std::exception_ptr error) {
  stepUnderWay_ = false;
  timer_.reset();
  const auto& event = plan_.events[next_];
  if (error) {
    try {
      std::rethrow_exception(error);
    } catch (const PerformCancelled&) {
      return end();
    } catch (const std::exception& e) {
      failure_ = std::string(e.what()) + " (line " + std::to_string(event.sourceLine) + ")";
    } catch (...) {
      failure_ = "the step failed (line " + std::to_string(event.sourceLine) + ")";
    }
    return end();
  }
  performed_.push_back(event.id);
  previous_ = next_;
  ++next_;
  paced_ = false;
  due_ = {};
  changed();
  // A step that finished inside `perform` lets the loop in `advance` go on by itself.
  if (!inPerform_) advance();
}

void Runner::end() {
  noteElapsed();
  if (drive_) *drive_ = false;
  drive_.reset();
  if (timer_) timer_->cancel();
  timer_.reset();
  isRunning_ = false;
  agentStep_.reset();
  stepUnderWay_ = false;
  changed();
  if (onEnd) onEnd(report());
}

std::string Runner::report() const {
  const auto total = plan_.events.size();
  const auto done = performed_.size();
  if (mode_ == Mode::dry && !isRunning_) {
    if (total == 0) return "nothing to perform";
    return "planned " + std::to_string(total) + " steps — dry run, nothing performed";
  }
  if (failure_) return "stopped at step " + std::to_string(done + 1) + ": " + *failure_;
  if (aborted_) return "aborted after " + std::to_string(done) + " of " + std::to_string(total) + " steps";
  if (isRunning_) return "running " + std::to_string(done) + " of " + std::to_string(total);
  if (total == 0) return "nothing to perform";
  if (done != total) return "finished with " + std::to_string(done) + " of " + std::to_string(total) + " performed";
  return "performed all " + std::to_string(total) + " steps";
}

std::optional<RunPlan::Event> Runner::nextEvent() const {
  for (const auto& event : plan_.events)
    if (std::find(performed_.begin(), performed_.end(), event.id) == performed_.end()) return event;
  return std::nullopt;
}

std::optional<double> Runner::agentElapsed() const {
  if (!agentStep_) return std::nullopt;
  return seconds(actor_.now() - agentStep_->startedAt);
}

std::string Runner::upNext() const {
  if (const auto working = agentElapsed()) return "the agent is working — " + oneDecimal(*working);
  const auto next = nextEvent();
  if (!next) return "";
  std::string out = next->description;
  const double away = next->time - elapsed();
  if (away >= 0.4) out += " in " + oneDecimal(away);
  return out;
}

}  // namespace tavorin
