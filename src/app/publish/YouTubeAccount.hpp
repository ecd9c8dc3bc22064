#pragma once
#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "app/publish/YouTubeStore.hpp"
#include "kit/PublishRequest.hpp"

namespace tavorin {

// The YouTube account on this computer as the studio shows it: whether the client file
// and a token are here, the channel, and what a new upload defaults to. It lives on the
// main actor; the sign-in's network work reports back into it.
class YouTubeAccount {
 public:
  enum class State { noClient, away, connecting, connected, failed };

  explicit YouTubeAccount(YouTubeStore store) : store_(std::move(store)) { reread(); }

  // From the files: no client, no token, or connected with the channel on file.
  void reread();
  // The sign-in began, came to its end, or failed.
  void connecting();
  void connected(const std::optional<YouTubeChannel>& channel, const std::optional<std::string>& channelRefusal);
  void failed(const std::string& text);
  // Moves the token aside and answers its new name; throws when there is none.
  std::string disconnect(std::chrono::system_clock::time_point now);

  State state() const { return state_; }
  const std::optional<std::string>& failure() const { return failure_; }
  const std::optional<YouTubeChannel>& channel() const { return channel_; }
  const std::optional<std::string>& channelRefusal() const { return channelRefusal_; }
  const YouTubeStore& store() const { return store_; }

  PublishRequest::Privacy privacy() const { return privacy_; }
  void setPrivacy(PublishRequest::Privacy privacy) { privacy_ = privacy; }

  // The sentence under the account's name in the panel, and its button's word.
  std::string status() const;
  std::string button() const;

 private:
  YouTubeStore store_;
  State state_ = State::noClient;
  std::optional<std::string> failure_;
  std::optional<YouTubeChannel> channel_;
  std::optional<std::string> channelRefusal_;
  PublishRequest::Privacy privacy_ = PublishRequest::Privacy::privateVideo;
};

std::string name(YouTubeAccount::State state);

}  // namespace tavorin
