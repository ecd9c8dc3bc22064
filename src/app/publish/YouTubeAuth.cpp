#include "app/publish/YouTubeAuth.hpp"

#include "app/publish/HttpCall.hpp"
#include "kit/PublishRequest.hpp"

namespace tavorin {

std::string YouTubeAuth::authorisationURL(const YouTubeClient& client, unsigned short port,
                                          const std::string& state) const {
  return endpoints_.oauth + "/o/oauth2/v2/auth?" +
         formEncode({{"client_id", client.clientId},
                     {"redirect_uri", redirectURI(port)},
                     {"response_type", "code"},
                     {"scope", scope},
                     {"access_type", "offline"},
                     {"prompt", "consent"},
                     {"state", state}});
}

YouTubeToken YouTubeAuth::grant(const std::string& form, const std::string& keptRefreshToken) const {
  HttpCall call;
  call.method = "POST";
  call.url = endpoints_.token + "/token";
  call.headers = {"Content-Type: application/x-www-form-urlencoded"};
  call.body = form;
  HttpCall::Answer answer;
  try {
    answer = call.perform();
  } catch (const HttpCall::Broken& e) {
    throw PublishError(std::string("could not reach Google: ") + e.what());
  }
  if (answer.status < 200 || answer.status > 299)
    throw PublishError::http(answer.status, YouTubeAnswers::summary(answer.body));
  const YouTubeAnswers::Grant g = YouTubeAnswers::grant(answer.body);
  const std::string refreshToken = g.refreshToken.value_or(keptRefreshToken);
  if (refreshToken.empty())
    throw PublishError(
        "Google returned no refresh token; disconnect the app in your account settings and connect again");
  YouTubeToken token{g.accessToken, refreshToken,
                     now_() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(g.expiresIn))};
  store_.saveToken(token);
  return token;
}

YouTubeToken YouTubeAuth::exchange(const YouTubeClient& client, const std::string& code, unsigned short port) const {
  return grant(formEncode({{"code", code},
                           {"client_id", client.clientId},
                           {"client_secret", client.clientSecret},
                           {"redirect_uri", redirectURI(port)},
                           {"grant_type", "authorization_code"}}),
               "");
}

YouTubeToken YouTubeAuth::refresh(const YouTubeClient& client, const YouTubeToken& token) const {
  return grant(formEncode({{"client_id", client.clientId},
                           {"client_secret", client.clientSecret},
                           {"refresh_token", token.refreshToken},
                           {"grant_type", "refresh_token"}}),
               token.refreshToken);
}

YouTubeToken YouTubeAuth::freshToken() const {
  const YouTubeClient client = store_.client();
  const auto token = store_.token();
  if (!token) throw PublishError::noCredentials();
  if (token->usableAt(now_())) return *token;
  return refresh(client, *token);
}

YouTubeChannel YouTubeAuth::channel(const YouTubeToken& token) const {
  HttpCall call;
  call.url = endpoints_.api + "/youtube/v3/channels?part=snippet&mine=true";
  call.headers = {"Authorization: Bearer " + token.accessToken};
  HttpCall::Answer answer;
  try {
    answer = call.perform();
  } catch (const HttpCall::Broken& e) {
    throw PublishError(std::string("could not reach YouTube: ") + e.what());
  }
  if (answer.status < 200 || answer.status > 299)
    throw PublishError::http(answer.status, YouTubeAnswers::summary(answer.body));
  return YouTubeChannel::fromChannelsAnswer(answer.body);
}

}  // namespace tavorin
