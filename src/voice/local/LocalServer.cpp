#include "voice/local/LocalServer.hpp"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <stdexcept>

#include "platform/TavorinPaths.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string trimmed(std::string_view text) {
  static constexpr std::string_view space = " \t\n\r\f\v";
  auto first = text.find_first_not_of(space);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(space) - first + 1));
}

void fail(const fs::path& file, int error) {
  throw std::runtime_error("The local voice server's address could not be saved to " + file.string() + ": " +
                           std::strerror(error) + ".");
}

// Written 0600 from the first byte, synced, then renamed over: a reader never sees
// half a record, and the key is never readable by others, not even for a moment.
void writePrivately(const fs::path& file, const std::string& text) {
  std::random_device random;
  const fs::path temp = file.parent_path() / ("." + file.filename().string() + "." + std::to_string(random()) + ".tmp");
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) fail(file, errno);
  size_t written = 0;
  while (written < text.size()) {
    ssize_t n = ::write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      int error = errno;
      ::close(fd);
      ::unlink(temp.c_str());
      fail(file, error);
    }
    written += static_cast<size_t>(n);
  }
  // Sync before and after the rename: a killed process cannot tell, a power cut can.
  if (::fsync(fd) != 0 || ::fchmod(fd, 0600) != 0) {
    int error = errno;
    ::close(fd);
    ::unlink(temp.c_str());
    fail(file, error);
  }
  ::close(fd);
  if (::rename(temp.c_str(), file.c_str()) != 0) {
    int error = errno;
    ::unlink(temp.c_str());
    fail(file, error);
  }
  int dir = ::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
}

}  // namespace

fs::path LocalServer::file() { return TavorinPaths::supportDir() / "local-voice.json"; }

LocalServer LocalServer::load(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return {};
  std::stringstream text;
  text << in.rdbuf();
  try {
    json object = json::parse(text.str());
    LocalServer server;
    server.url = object.at("url").get<std::string>();
    if (auto key = object.find("key"); key != object.end() && !key->is_null()) server.key = key->get<std::string>();
    return server;
  } catch (const json::exception&) {
    return {};
  }
}

void LocalServer::save(const fs::path& file) const {
  std::error_code ec;
  fs::create_directories(file.parent_path(), ec);
  if (ec) fail(file, ec.value());
  json object{{"url", url}};
  if (key) object["key"] = *key;
  writePrivately(file, object.dump(2) + "\n");
}

std::optional<std::string> LocalServer::normalized(std::string_view text) {
  std::string url = trimmed(text);
  if (url.empty()) return std::nullopt;
  if (url.find("://") == std::string::npos) url = "http://" + url;
  while (!url.empty() && url.back() == '/') url.pop_back();
  if (url.ends_with("/v1")) url.resize(url.size() - 3);

  CURLU* parsed = curl_url();
  bool usable = curl_url_set(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
  char* scheme = nullptr;
  char* host = nullptr;
  if (usable) usable = curl_url_get(parsed, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK &&
                       curl_url_get(parsed, CURLUPART_HOST, &host, 0) == CURLUE_OK;
  if (usable) usable = (std::strcmp(scheme, "http") == 0 || std::strcmp(scheme, "https") == 0) && host && *host;
  curl_free(scheme);
  curl_free(host);
  curl_url_cleanup(parsed);
  if (!usable) return std::nullopt;
  return url;
}

}  // namespace tavorin
