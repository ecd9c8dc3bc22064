#pragma once
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "app/model/Offloader.hpp"
#include "kit/SessionStore.hpp"

namespace tavorin {

// Sends the changes of session.json to the workers, so the main actor never waits on
// the disk for them. Each change reads the file, changes one thing and writes it back,
// so they run one at a time and in the order they were made: a later change never
// lands before an earlier one, whichever worker picks it up.
class SessionWriter {
 public:
  using Change = std::function<void(const SessionStore&)>;

  // `failed` hears, on the main actor, why a change did not reach the disk.
  SessionWriter(Offloader& offloader, std::function<void(const std::string&)> failed);

  void write(SessionStore store, Change change);
  // Makes the changes still queued here and now, in order: before the file is read,
  // so a reader sees every change made before it.
  void flush();

 private:
  struct Lane {
    std::mutex lock;
    std::deque<std::pair<SessionStore, Change>> pending;
  };
  static void runOne(Lane& lane);

  Offloader& offloader_;
  std::function<void(const std::string&)> failed_;
  std::shared_ptr<Lane> lane_ = std::make_shared<Lane>();
};

}  // namespace tavorin
