#pragma once
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tavorin {

// The files of the YouTube account and the answers Google sends. Every reader here
// takes text from outside and throws std::runtime_error with a sentence the user
// reads when it will not do.

// The user's own Desktop OAuth client, as Google's console downloads it.
struct YouTubeClient {
  std::string clientId;
  std::string clientSecret;
  // Only an `installed` client is taken: a `web` one cannot use a loopback redirect.
  static YouTubeClient decode(std::string_view json);
};

struct YouTubeToken {
  using Clock = std::chrono::system_clock;
  std::string accessToken;
  std::string refreshToken;
  Clock::time_point expiresAt;

  std::string encoded() const;
  static YouTubeToken decode(std::string_view json);
  // A token is used as it is only with more than a minute left; less is refreshed,
  // so that it cannot run out between the check and the request.
  bool usableAt(Clock::time_point now) const { return expiresAt - now > std::chrono::seconds(60); }
};

struct YouTubeChannel {
  std::string id;
  std::string title;
  std::optional<std::string> handle;

  std::string encoded() const;
  static YouTubeChannel decode(std::string_view json);
  // The first channel of a `channels?mine=true` answer; none gives
  // "that Google account holds no YouTube channel".
  static YouTubeChannel fromChannelsAnswer(std::string_view json);
};

namespace YouTubeAnswers {

// What the token endpoint grants: a code exchange brings a refresh token, a refresh does not.
struct Grant {
  std::string accessToken;
  std::optional<std::string> refreshToken;
  double expiresIn = 0;
};
Grant grant(std::string_view json);

// The video id in the answer to the last chunk, if there is one.
std::optional<std::string> videoId(std::string_view json);

// What an error answer says, short enough for a sentence: Google's own message when
// the body is its JSON error, else the body's first line.
std::string summary(std::string_view body);

}  // namespace YouTubeAnswers

}  // namespace tavorin
