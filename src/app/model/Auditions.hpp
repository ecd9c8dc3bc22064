#pragma once
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model/MainActor.hpp"
#include "app/model/RenderQueue.hpp"
#include "base/LifetimeToken.hpp"
#include "kit/AuditionsStore.hpp"
#include "voice/DriverCharacter.hpp"

namespace tavorin {

// The casting room's store and player: a voice heard before it is cast. Its takes
// are rendered through the same queue as a production's lines, under "audition:"
// tickets, and kept with the voice in the support folder; they never touch a
// production.
class Auditions {
 public:
  struct Request {
    std::string character;
    std::string voice;
    std::string prompt;
    std::filesystem::path destination;
  };
  using Take = AuditionsStore::Take;
  // The room's player: starts a file (throws a sentence when it will not play),
  // stops it, and says whether it still plays.
  struct Player {
    std::function<void(const std::filesystem::path&)> play;
    std::function<void()> stop;
    std::function<bool()> playing;
  };

  static constexpr double watchSeconds = 0.1;

  Auditions(MainActor& actor, std::filesystem::path support, Player player);
  Auditions(const Auditions&) = delete;
  Auditions& operator=(const Auditions&) = delete;

  // A new ticket for the words, with its destination's folder made.
  std::string request(const std::string& character, const std::string& voice, const std::string& prompt);
  RenderQueue::Plan job(const std::string& ticket) const;
  // Keeps the take in the voice's index and plays it at once.
  void finish(const std::string& ticket, const RenderResult& result);
  // Forgets the requests whose tickets failed or are gone.
  void sweep(const std::map<std::string, RenderQueue::State>& states);

  // The voice's own clip.
  void preview(const DriverVoice& voice);
  void play(const std::string& id, const std::string& speaking, const std::filesystem::path& file);
  void playTake(const std::string& character, const std::string& voice, const Take& take);
  void stop();

  std::vector<Request> pending(const std::string& character, const std::string& voice) const;
  // Newest first.
  std::vector<Take> takes(const std::string& character, const std::string& voice) const;
  std::size_t count(const std::string& character, const std::string& voice) const;
  AuditionsStore store(const std::string& character, const std::string& voice) const {
    return AuditionsStore(support_, character, voice);
  }

  const std::optional<std::string>& failure() const { return failure_; }
  const std::optional<std::string>& playing() const { return playing_; }
  const std::optional<std::string>& speaking() const { return speaking_; }
  const std::optional<Take>& lastTake() const { return lastTake_; }
  const std::map<std::string, Request>& requests() const { return requests_; }

 private:
  void watch();

  MainActor& actor_;
  std::filesystem::path support_;
  Player player_;
  std::optional<std::string> failure_;
  std::optional<std::string> playing_;
  std::optional<std::string> speaking_;
  std::optional<Take> lastTake_;
  std::map<std::string, Request> requests_;
  int counter_ = 0;
  std::shared_ptr<MainActor::Timer> watcher_;
  LifetimeToken alive_;
};

}  // namespace tavorin
