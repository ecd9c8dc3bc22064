#pragma once
#include <cstddef>
#include <memory>

#include "app/model/Offloader.hpp"

namespace asio {
class io_context;
}

namespace tavorin {

// Threads for blocking work, beside the main actor's io_context: each finished
// piece posts its completion back to that context. Destroying the pool waits for
// the work already running; completions that can no longer run are dropped with
// the context.
class WorkerPool final : public Offloader {
 public:
  WorkerPool(asio::io_context& main, std::size_t threads = 2);
  ~WorkerPool() override;
  void offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) override;
  // Stops taking work and waits for what runs. Safe to call more than once.
  void join();

 private:
  struct Threads;
  asio::io_context& main_;
  std::unique_ptr<Threads> threads_;
};

}  // namespace tavorin
