#include "app/model/RenderQueue.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/model/ToastCenter.hpp"
#include "voice/VoicePlan.hpp"

namespace tavorin {

namespace {

bool isDecimal(std::string_view text) {
  return !text.empty() && text.size() < 10 && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::string RenderQueue::Ticket::line(std::string_view ticket) {
  if (isAudition(ticket)) return std::string(ticket);
  const auto hash = ticket.rfind('#');
  if (hash == std::string_view::npos || !isDecimal(ticket.substr(hash + 1))) return std::string(ticket);
  return std::string(ticket.substr(0, hash));
}

std::optional<int> RenderQueue::Ticket::sample(std::string_view ticket) {
  if (isAudition(ticket)) return std::nullopt;
  const auto hash = ticket.rfind('#');
  if (hash == std::string_view::npos || !isDecimal(ticket.substr(hash + 1))) return std::nullopt;
  return std::stoi(std::string(ticket.substr(hash + 1)));
}

RenderQueue::RenderQueue(MainActor& actor, Offloader& offloader, ToastCenter* toasts, Engine engine, JobFor job,
                         Completed completed, Drained drained)
    : actor_(actor),
      offloader_(offloader),
      toasts_(toasts),
      engine_(std::move(engine)),
      job_(std::move(job)),
      completed_(std::move(completed)),
      drained_(std::move(drained)) {}

void RenderQueue::enqueue(const std::vector<std::string>& tickets,
                          const std::map<std::string, std::vector<std::string>>& covering) {
  actor_.checkOnActor();
  for (const auto& [ticket, lines] : covering) covering_[ticket] = lines;
  for (const auto& ticket : tickets) {
    if (current_ == ticket || std::find(pending_.begin(), pending_.end(), ticket) != pending_.end()) continue;
    pending_.push_back(ticket);
    mark(ticket, State{});
  }
  if (!draining_ && !pending_.empty()) {
    draining_ = true;
    failureSeen_ = false;
    // The worker starts on the actor's next turn, so the verb that queued answers first.
    actor_.post(alive_.guard([this] { next(); }));
  }
}

bool RenderQueue::speaksFor(const std::string& ticket, const std::string& id) const {
  const std::string line = Ticket::line(ticket);
  if (line == id) return true;
  auto found = covering_.find(line);
  return found != covering_.end() && std::find(found->second.begin(), found->second.end(), id) != found->second.end();
}

std::optional<RenderQueue::State> RenderQueue::state(const std::string& id) const {
  if (auto own = states_.find(id); own != states_.end()) return own->second;
  bool queued = false, done = false;
  std::optional<State> failed;
  for (const auto& [ticket, state] : states_) {
    if (!speaksFor(ticket, id)) continue;
    switch (state.kind) {
      case State::Kind::rendering: return state;
      case State::Kind::queued: queued = true; break;
      case State::Kind::failed:
        if (!failed) failed = state;
        break;
      case State::Kind::done: done = true; break;
    }
  }
  if (queued) return State{};
  if (failed) return failed;
  if (done) return State{State::Kind::done, {}};
  return std::nullopt;
}

void RenderQueue::cancel(const std::optional<std::string>& id) {
  actor_.checkOnActor();
  if (!id) {
    for (const auto& ticket : pending_) states_.erase(ticket);
    pending_.clear();
    cancelledCurrent_ = current_;
    return;
  }
  std::erase_if(pending_, [&](const std::string& ticket) {
    if (ticket != *id && !speaksFor(ticket, *id)) return false;
    states_.erase(ticket);
    return true;
  });
  if (current_ && (*current_ == *id || speaksFor(*current_, *id))) cancelledCurrent_ = current_;
}

std::optional<double> RenderQueue::currentElapsed() const {
  if (!current_) return std::nullopt;
  return std::chrono::duration<double>(actor_.now() - startedAt_).count();
}

void RenderQueue::next() {
  if (pending_.empty()) {
    draining_ = false;
    if (drained_) drained_(failureSeen_);
    return;
  }
  const std::string ticket = pending_.front();
  pending_.pop_front();
  renderOne(ticket);
}

void RenderQueue::renderOne(const std::string& ticket) {
  Plan plan = job_ ? job_(ticket) : Plan::refuse("nothing answers for this ticket");
  if (!plan.job) {
    mark(ticket, State::failed(plan.refusal));
    failureSeen_ = true;
    actor_.post(alive_.guard([this] { next(); }));
    return;
  }
  current_ = ticket;
  mark(ticket, State{State::Kind::rendering, {}});
  ++inFlight_;
  peakConcurrency_ = std::max(peakConcurrency_, inFlight_);
  startedAt_ = actor_.now();
  const auto started = startedAt_;

  std::shared_ptr<VoiceDriver> driver = engine_ ? engine_() : nullptr;
  auto result = std::make_shared<RenderResult>();
  offloader_.offload(
      [driver, job = *plan.job, result] {
        if (!driver) throw std::runtime_error("no voice engine is set up");
        *result = driver->render(job.text, job.character, job.voice, job.destination);
      },
      alive_.guard([this, ticket, result, started](std::exception_ptr failure) {
        finish(ticket, result, failure, started);
        next();
      }));
}

void RenderQueue::finish(const std::string& ticket, const std::shared_ptr<RenderResult>& result,
                         std::exception_ptr failure, MainActor::Clock::time_point started) {
  --inFlight_;
  current_.reset();
  const bool cancelled = cancelledCurrent_ == ticket;
  if (cancelled) cancelledCurrent_.reset();
  // An answer with no sound in it is a failure like any other: the line keeps what it had.
  if (!failure && !(result->duration > 0))
    failure = std::make_exception_ptr(std::runtime_error("the engine answered with no audio"));
  if (failure) {
    if (cancelled) {
      states_.erase(ticket);
      return;
    }
    mark(ticket, State::failed(reason(failure)));
    failureSeen_ = true;
    return;
  }
  if (cancelled) {
    states_.erase(ticket);  // the file stays on disk, unreferenced
    return;
  }
  mark(ticket, State{State::Kind::done, {}});
  if (!Ticket::isAudition(ticket)) {
    const auto lines = linesOf(ticket);
    for (const auto& line : lines) {
      justFinished_.insert(line);
      actor_.after(std::chrono::milliseconds(static_cast<int>(flashSeconds * 1000)),
                   alive_.guard([this, line] { justFinished_.erase(line); }));
    }
    if (toasts_) {
      const double took = std::chrono::duration<double>(actor_.now() - started).count();
      toasts_->post(Toast::Kind::voice, "Voice line " + name(lines) + " finished generating in " + elapsedWords(took));
    }
  }
  if (completed_) completed_(ticket, *result);
}

std::vector<std::string> RenderQueue::linesOf(const std::string& ticket) const {
  const std::string line = Ticket::line(ticket);
  if (auto found = covering_.find(line); found != covering_.end() && !found->second.empty()) return found->second;
  return {line};
}

std::string RenderQueue::reason(const std::exception& error) { return renderReason(error); }

std::string RenderQueue::reason(std::exception_ptr error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    return reason(e);
  } catch (...) {
    return "the engine failed without saying why";
  }
}

std::string RenderQueue::name(const std::vector<std::string>& ids) {
  if (ids.empty()) return {};
  if (ids.size() == 1) return ids.front();
  return ids.front() + "–" + ids.back();
}

std::string RenderQueue::elapsedWords(double seconds) {
  char buffer[32];
  if (seconds < 60) {
    std::snprintf(buffer, sizeof buffer, "%.1fs", seconds);
  } else {
    const long whole = std::lround(seconds);
    std::snprintf(buffer, sizeof buffer, "%ldm %02lds", whole / 60, whole % 60);
  }
  return buffer;
}

}  // namespace tavorin
