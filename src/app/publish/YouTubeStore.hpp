#pragma once
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "kit/YouTubeDocuments.hpp"

namespace tavorin {

// The account's three files in the support folder: the user's client, the token and
// the channel it speaks for. The token is a secret: it is written 0600 and put back
// to 0600 whenever it is found otherwise.
class YouTubeStore {
 public:
  explicit YouTubeStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

  std::filesystem::path clientFile() const { return folder_ / "youtube-client.json"; }
  std::filesystem::path tokenFile() const { return folder_ / "youtube.json"; }
  std::filesystem::path channelFile() const { return folder_ / "youtube-channel.json"; }

  bool hasClient() const;
  bool hasToken() const;
  // Throws PublishError::noCredentials without a file, the reader's sentence for a bad one.
  YouTubeClient client() const;
  // Nothing without a file; a file that will not read throws its sentence.
  std::optional<YouTubeToken> token() const;
  void saveToken(const YouTubeToken& token) const;
  std::optional<YouTubeChannel> channel() const;
  void saveChannel(const YouTubeChannel& channel) const;
  // Renames the token to youtube.json.off-<stamp> and forgets the channel; answers the
  // new name, or nothing when there was no token.
  std::optional<std::string> moveTokenAside(std::chrono::system_clock::time_point now) const;

 private:
  std::filesystem::path folder_;
};

}  // namespace tavorin
