#pragma once
#include <functional>
#include <string>

#include "kit/PublishRequest.hpp"

namespace tavorin {

// What sends a film away. `upload` blocks until the video has an id (run it off the main
// actor) and reports progress from its own thread; `cancel` may come from any thread
// and makes the running upload throw PublishError::cancelled.
class Uploader {
 public:
  virtual ~Uploader() = default;
  virtual std::string name() const = 0;
  virtual bool isConfigured() const = 0;
  virtual std::string upload(const PublishRequest& request, const std::function<void(double)>& progress) = 0;
  virtual void cancel() = 0;
};

}  // namespace tavorin
