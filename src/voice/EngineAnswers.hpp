#pragma once
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "voice/DriverHealth.hpp"
#include "voice/VoiceDriver.hpp"

namespace tavorin {

class VoiceEngines;

// What the engines answered, asked once each and kept until the user asks again.
// Lives on the main thread; the asking runs elsewhere through `offload`, so that
// reading an answer never waits on an engine.
class EngineAnswers {
 public:
  // Runs `work` off the main thread, then `then` back on it.
  using Offload = std::function<void(std::function<void()> work, std::function<void()> then)>;
  // Told on the main thread when an engine's answer has landed.
  using Landed = std::function<void(const std::string& driver)>;

  explicit EngineAnswers(Offload offload) : offload_(std::move(offload)) {}

  // Starts asking every engine not asked since the last refresh: all of `engines`,
  // and `current` too when it is none of them.
  void askOnce(const VoiceEngines& engines, const std::shared_ptr<VoiceDriver>& current, Landed landed = {});
  // The engine's answer, or the "checking" placeholder while it is being asked.
  DriverHealth health(const std::string& driver) const;
  bool answered(const std::string& driver) const { return health_.contains(driver); }
  std::vector<DriverCharacter> cast(const std::string& driver) const;
  // Forgets every answer; an answer still on its way from before is dropped.
  void forget();

 private:
  Offload offload_;
  std::map<std::string, DriverHealth> health_;
  std::map<std::string, std::vector<DriverCharacter>> cast_;
  std::set<std::string> asked_;
  std::shared_ptr<int> round_ = std::make_shared<int>(0);
};

}  // namespace tavorin
