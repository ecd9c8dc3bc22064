#include "voice/EngineAnswers.hpp"

#include "voice/VoiceEngines.hpp"

namespace tavorin {

namespace {

struct Answer {
  DriverHealth health;
  std::vector<DriverCharacter> cast;
};

}  // namespace

void EngineAnswers::askOnce(const VoiceEngines& engines, const std::shared_ptr<VoiceDriver>& current, Landed landed) {
  auto asked = engines.all();
  if (current && !engines.named(current->name())) asked.push_back(current);
  for (auto& driver : asked) {
    const std::string name = driver->name();
    if (!asked_.insert(name).second) continue;
    auto answer = std::make_shared<Answer>();
    const int round = *round_;
    std::weak_ptr<int> alive = round_;
    offload_(
        [driver, answer] {
          answer->health = driver->health();
          try {
            answer->cast = driver->characters();
          } catch (const std::exception&) {
            answer->cast.clear();  // a listing failure is an empty cast, never an error
          }
        },
        [this, alive, round, name, answer, landed] {
          auto still = alive.lock();
          if (!still || *still != round) return;  // forgotten, or this object is gone
          health_[name] = answer->health;
          cast_[name] = answer->cast;
          if (landed) landed(name);
        });
  }
}

DriverHealth EngineAnswers::health(const std::string& driver) const {
  auto found = health_.find(driver);
  return found == health_.end() ? DriverHealth::checking(driver) : found->second;
}

std::vector<DriverCharacter> EngineAnswers::cast(const std::string& driver) const {
  auto found = cast_.find(driver);
  return found == cast_.end() ? std::vector<DriverCharacter>{} : found->second;
}

void EngineAnswers::forget() {
  health_.clear();
  cast_.clear();
  asked_.clear();
  ++*round_;
}

}  // namespace tavorin
