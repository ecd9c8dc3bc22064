#include "app/process/WorkerPool.hpp"

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/thread_pool.hpp>

namespace tavorin {

struct WorkerPool::Threads {
  explicit Threads(std::size_t n) : pool(n) {}
  asio::thread_pool pool;
};

WorkerPool::WorkerPool(asio::io_context& main, std::size_t threads)
    : main_(main), threads_(std::make_unique<Threads>(threads ? threads : 1)) {}

WorkerPool::~WorkerPool() { join(); }

void WorkerPool::offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) {
  // The work guard keeps the main context running until the completion is back.
  asio::post(threads_->pool, [this, work = std::move(work), then = std::move(then),
                              guard = asio::make_work_guard(main_)]() mutable {
    std::exception_ptr failure;
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
    asio::post(main_, [then = std::move(then), failure] { then(failure); });
    guard.reset();
  });
}

void WorkerPool::join() { threads_->pool.join(); }

}  // namespace tavorin
