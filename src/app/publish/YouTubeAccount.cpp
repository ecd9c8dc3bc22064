#include "app/publish/YouTubeAccount.hpp"

#include <stdexcept>

namespace tavorin {

std::string name(YouTubeAccount::State state) {
  switch (state) {
    case YouTubeAccount::State::noClient: return "noClient";
    case YouTubeAccount::State::away: return "away";
    case YouTubeAccount::State::connecting: return "connecting";
    case YouTubeAccount::State::connected: return "connected";
    case YouTubeAccount::State::failed: return "failed";
  }
  return "noClient";
}

void YouTubeAccount::reread() {
  channel_ = store_.channel();
  failure_.reset();
  if (!store_.hasClient()) state_ = State::noClient;
  else if (!store_.hasToken()) state_ = State::away;
  else state_ = State::connected;
}

void YouTubeAccount::connecting() {
  state_ = State::connecting;
  failure_.reset();
}

void YouTubeAccount::connected(const std::optional<YouTubeChannel>& channel,
                               const std::optional<std::string>& channelRefusal) {
  state_ = State::connected;
  failure_.reset();
  channelRefusal_ = channelRefusal;
  if (channel) {
    store_.saveChannel(*channel);
    channel_ = channel;
  }
}

void YouTubeAccount::failed(const std::string& text) {
  state_ = State::failed;
  failure_ = text;
}

std::string YouTubeAccount::disconnect(std::chrono::system_clock::time_point now) {
  const auto moved = store_.moveTokenAside(now);
  if (!moved) throw std::runtime_error("no YouTube token is on this computer, so nothing moved");
  channelRefusal_.reset();
  reread();
  return *moved;
}

std::string YouTubeAccount::status() const {
  switch (state_) {
    case State::noClient: return "Missing YouTube OAuth client file.";
    case State::away: return "No YouTube account connected.";
    case State::connecting: return "Waiting for the browser.";
    case State::connected:
      return channel_ && !channel_->title.empty() ? "Connected as " + channel_->title
                                                  : "Connected. The channel has no name yet.";
    case State::failed: return failure_.value_or("No YouTube account connected.");
  }
  return "";
}

std::string YouTubeAccount::button() const {
  if (state_ == State::connecting) return "Connecting";
  if (state_ == State::connected) return "Reconnect";
  return "Connect";
}

}  // namespace tavorin
