#pragma once
#include <exception>
#include <functional>

namespace tavorin {

// Where the main actor sends work that would block it: disk writes, network
// calls, child processes, inference. `work` runs off the main thread; `then`
// runs on the main actor afterwards, with the exception `work` threw (null when
// it finished). The model holds no other way to wait.
class Offloader {
 public:
  virtual ~Offloader() = default;
  virtual void offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) = 0;
};

}  // namespace tavorin
