#include "app/publish/YouTubeStore.hpp"

#include <sys/stat.h>

#include "base/AtomicFile.hpp"
#include "base/IsoDate.hpp"
#include "kit/PublishRequest.hpp"
#include "kit/RecordingStore.hpp"

namespace tavorin {

namespace fs = std::filesystem;

bool YouTubeStore::hasClient() const {
  std::error_code ec;
  return fs::is_regular_file(clientFile(), ec);
}

bool YouTubeStore::hasToken() const {
  std::error_code ec;
  return fs::is_regular_file(tokenFile(), ec);
}

YouTubeClient YouTubeStore::client() const {
  if (!hasClient()) throw PublishError::noCredentials();
  return YouTubeClient::decode(RecordingStore::readText(clientFile()));
}

std::optional<YouTubeToken> YouTubeStore::token() const {
  if (!hasToken()) return std::nullopt;
  struct stat st {};
  // Anyone else able to read the token could upload as the user: tighten it first.
  if (::stat(tokenFile().c_str(), &st) == 0 && (st.st_mode & 0777) != 0600) ::chmod(tokenFile().c_str(), 0600);
  return YouTubeToken::decode(RecordingStore::readText(tokenFile()));
}

void YouTubeStore::saveToken(const YouTubeToken& token) const {
  fs::create_directories(folder_);
  AtomicFile::write(tokenFile(), token.encoded(), AtomicFile::Access::privateToUser);
  ::chmod(tokenFile().c_str(), 0600);
}

std::optional<YouTubeChannel> YouTubeStore::channel() const {
  std::error_code ec;
  if (!fs::is_regular_file(channelFile(), ec)) return std::nullopt;
  try {
    return YouTubeChannel::decode(RecordingStore::readText(channelFile()));
  } catch (const std::exception&) {
    return std::nullopt;  // a channel that will not read is asked for again on connect
  }
}

void YouTubeStore::saveChannel(const YouTubeChannel& channel) const {
  fs::create_directories(folder_);
  AtomicFile::write(channelFile(), channel.encoded());
}

std::optional<std::string> YouTubeStore::moveTokenAside(std::chrono::system_clock::time_point now) const {
  if (!hasToken()) return std::nullopt;
  const std::string name = "youtube.json.off-" + IsoDate::stamp(now);
  fs::rename(tokenFile(), folder_ / name);
  std::error_code ec;
  fs::remove(channelFile(), ec);
  return name;
}

}  // namespace tavorin
