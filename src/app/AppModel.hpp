#pragma once
#include <deque>
#include <optional>
#include <string>

#include "app/MainActor.hpp"
#include "kit/Recording.hpp"

namespace tavorin {

// The one open production and everything about it: one instance for the life of
// the process, reopened in place when another production opens.
class AppModel {
 public:
  static constexpr std::size_t eventCap = 500;

  explicit AppModel(MainActor& actor) : actor_(actor) {}
  AppModel(const AppModel&) = delete;
  AppModel& operator=(const AppModel&) = delete;

  MainActor& actor() { return actor_; }

  // The open production's document, if any.
  const std::optional<Recording>& production() const { return production_; }
  bool isOpen() const { return production_.has_value(); }

  // The event feed, oldest first; every state change of weight adds a line.
  const std::deque<std::string>& events() const { return events_; }
  void note(std::string line);

 private:
  MainActor& actor_;
  std::optional<Recording> production_;
  std::deque<std::string> events_;
};

}  // namespace tavorin
