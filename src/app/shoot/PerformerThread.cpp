#include "app/shoot/PerformerThread.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace tavorin {

struct PerformerThread::State {
  MainActor& actor;
  std::mutex lock;
  std::condition_variable wake;
  std::deque<std::pair<std::function<void()>, std::function<void(std::exception_ptr)>>> queue;
  bool stopping = false;
  std::thread thread;
  explicit State(MainActor& a) : actor(a) {}
};

PerformerThread::PerformerThread(MainActor& actor) : state_(std::make_shared<State>(actor)) {
  state_->thread = std::thread([state = state_.get()] {
    for (;;) {
      std::unique_lock guard(state->lock);
      state->wake.wait(guard, [&] { return state->stopping || !state->queue.empty(); });
      if (state->queue.empty()) return;
      auto [work, then] = std::move(state->queue.front());
      state->queue.pop_front();
      guard.unlock();
      std::exception_ptr error;
      try {
        work();
      } catch (...) {
        error = std::current_exception();
      }
      if (then) state->actor.post([then = std::move(then), error] { then(error); });
    }
  });
}

PerformerThread::~PerformerThread() {
  {
    std::lock_guard guard(state_->lock);
    state_->stopping = true;
  }
  state_->wake.notify_all();
  state_->thread.join();
}

void PerformerThread::offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) {
  {
    std::lock_guard guard(state_->lock);
    state_->queue.emplace_back(std::move(work), std::move(then));
  }
  state_->wake.notify_one();
}

}  // namespace tavorin
