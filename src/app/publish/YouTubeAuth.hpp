#pragma once
#include <chrono>
#include <functional>
#include <string>

#include "app/publish/GoogleEndpoints.hpp"
#include "app/publish/YouTubeStore.hpp"

namespace tavorin {

// Tokens for the YouTube account: the consent URL, the exchange of the code the browser
// brings back, refreshing, and the channel a token speaks for. Every call blocks on the
// network: run it off the main actor.
class YouTubeAuth {
 public:
  using Clock = std::chrono::system_clock;

  YouTubeAuth(YouTubeStore store, GoogleEndpoints endpoints, std::function<Clock::time_point()> now = Clock::now)
      : store_(std::move(store)), endpoints_(std::move(endpoints)), now_(std::move(now)) {}

  static constexpr const char* scope =
      "https://www.googleapis.com/auth/youtube.upload https://www.googleapis.com/auth/youtube.readonly";

  // The page Google shows for consent; `state` comes back with the code so that a
  // request the studio did not start is told apart.
  std::string authorisationURL(const YouTubeClient& client, unsigned short port, const std::string& state) const;
  static std::string redirectURI(unsigned short port) { return "http://127.0.0.1:" + std::to_string(port); }
  // Trades the browser's code for a token and saves it.
  YouTubeToken exchange(const YouTubeClient& client, const std::string& code, unsigned short port) const;
  // A new access token for the same refresh token, saved.
  YouTubeToken refresh(const YouTubeClient& client, const YouTubeToken& token) const;
  // The token on file, refreshed when it has a minute or less left. No client or no
  // token: PublishError::noCredentials.
  YouTubeToken freshToken() const;
  YouTubeChannel channel(const YouTubeToken& token) const;

  const YouTubeStore& store() const { return store_; }
  const GoogleEndpoints& endpoints() const { return endpoints_; }

 private:
  YouTubeToken grant(const std::string& form, const std::string& keptRefreshToken) const;

  YouTubeStore store_;
  GoogleEndpoints endpoints_;
  std::function<Clock::time_point()> now_;
};

}  // namespace tavorin
