// The OAuth client file is the user's download, the token file sits on disk, and every
// other text here is Google's answer: readers refuse with a sentence, never crash, and a
// token that reads survives its own encoding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "kit/YouTubeDocuments.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tavorin;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    (void)YouTubeClient::decode(text);
  } catch (const std::runtime_error&) {
  }
  try {
    const YouTubeToken token = YouTubeToken::decode(text);
    const YouTubeToken again = YouTubeToken::decode(token.encoded());
    if (again.accessToken != token.accessToken || again.refreshToken != token.refreshToken) std::abort();
  } catch (const std::runtime_error&) {
  }
  try {
    const YouTubeChannel channel = YouTubeChannel::fromChannelsAnswer(text);
    if (YouTubeChannel::decode(channel.encoded()).id != channel.id) std::abort();
  } catch (const std::runtime_error&) {
  }
  try {
    const auto grant = YouTubeAnswers::grant(text);
    if (!(grant.expiresIn >= 0)) std::abort();
  } catch (const std::runtime_error&) {
  }
  (void)YouTubeAnswers::videoId(text);
  (void)YouTubeAnswers::summary(text);
  return 0;
}
