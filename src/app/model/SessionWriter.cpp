#include "app/model/SessionWriter.hpp"

#include <exception>

namespace tavorin {

SessionWriter::SessionWriter(Offloader& offloader, std::function<void(const std::string&)> failed)
    : offloader_(offloader), failed_(std::move(failed)) {}

void SessionWriter::write(SessionStore store, Change change) {
  {
    std::lock_guard hold(lane_->lock);
    lane_->pending.emplace_back(std::move(store), std::move(change));
  }
  // One job per change; each takes the oldest change still queued, so the order of
  // the writes is the order of the queue even when two workers run at once.
  offloader_.offload([lane = lane_] { runOne(*lane); },
                     [failed = failed_](std::exception_ptr failure) {
                       if (!failure || !failed) return;
                       try {
                         std::rethrow_exception(failure);
                       } catch (const std::exception& e) {
                         failed(e.what());
                       }
                     });
}

void SessionWriter::runOne(Lane& lane) {
  std::lock_guard hold(lane.lock);
  // A flush already made it.
  if (lane.pending.empty()) return;
  auto [store, change] = std::move(lane.pending.front());
  lane.pending.pop_front();
  change(store);
}

void SessionWriter::flush() {
  std::lock_guard hold(lane_->lock);
  while (!lane_->pending.empty()) {
    auto [store, change] = std::move(lane_->pending.front());
    lane_->pending.pop_front();
    try {
      change(store);
    } catch (const std::exception& e) {
      if (failed_) failed_(e.what());
    }
  }
}

}  // namespace tavorin
