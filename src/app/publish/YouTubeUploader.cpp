#include "app/publish/YouTubeUploader.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <optional>

namespace tavorin {

namespace {

// "bytes=0-1234" from a 308's Range: the next byte to send, or nothing when the header is absent.
std::optional<std::uint64_t> nextByte(const std::string& range) {
  const size_t dash = range.rfind('-');
  if (range.rfind("bytes=", 0) != 0 || dash == std::string::npos) return std::nullopt;
  try {
    return std::stoull(range.substr(dash + 1)) + 1;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

HttpCall::Answer YouTubeUploader::call(HttpCall request) {
  request.stop = &stopped_;
  for (;;) {
    if (stopped_) throw PublishError::cancelled();
    request.headers.erase(std::remove_if(request.headers.begin(), request.headers.end(),
                                         [](const std::string& h) { return h.rfind("Authorization:", 0) == 0; }),
                          request.headers.end());
    request.headers.push_back(authorisation());
    HttpCall::Answer answer;
    try {
      answer = request.perform();
    } catch (const HttpCall::Stopped&) {
      throw PublishError::cancelled();
    }
    // An access token can lapse during a long upload: renew it once and say it again.
    if (answer.status == 401 && !refreshed_) {
      refreshed_ = true;
      token_ = auth_.refresh(auth_.store().client(), token_);
      continue;
    }
    return answer;
  }
}

std::string YouTubeUploader::upload(const PublishRequest& request, const std::function<void(double)>& progress) {
  stopped_ = false;
  refreshed_ = false;
  std::error_code ec;
  if (!std::filesystem::is_regular_file(request.file, ec)) throw PublishError::noFile(request.file.string());
  const std::uint64_t size = std::filesystem::file_size(request.file, ec);
  if (ec || size == 0) throw PublishError("the file at " + request.file.string() + " is empty");
  if (!auth_.store().hasClient()) throw PublishError::noCredentials();
  token_ = auth_.freshToken();
  const std::string session = startSession(request, size);
  return send(session, request.file, size, progress);
}

std::string YouTubeUploader::startSession(const PublishRequest& request, std::uint64_t size) {
  nlohmann::json body = {
      {"snippet", {{"title", request.title}, {"description", request.description}, {"tags", request.tags}}},
      {"status", {{"privacyStatus", raw(request.privacy)}, {"selfDeclaredMadeForKids", false}}}};
  HttpCall c;
  c.method = "POST";
  c.url = auth_.endpoints().api + "/upload/youtube/v3/videos?uploadType=resumable&part=snippet,status";
  c.headers = {"Content-Type: application/json; charset=UTF-8", "X-Upload-Content-Type: video/*",
               "X-Upload-Content-Length: " + std::to_string(size)};
  c.body = body.dump();
  HttpCall::Answer answer;
  try {
    answer = call(c);
  } catch (const HttpCall::Broken& e) {
    throw PublishError(std::string("could not reach YouTube: ") + e.what());
  }
  if (answer.status >= 300) throw PublishError::http(answer.status, YouTubeAnswers::summary(answer.body));
  const std::string location = answer.header("location");
  if (location.empty()) throw PublishError("YouTube started a session with no upload URL");
  return location;
}

std::string YouTubeUploader::send(const std::string& session, const std::filesystem::path& file, std::uint64_t size,
                                  const std::function<void(double)>& progress) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw PublishError::noFile(file.string());
  std::string buffer;
  std::uint64_t offset = 0;
  int drops = 0;
  for (;;) {
    const std::uint64_t length = std::min(chunk_, size - offset);
    buffer.resize(length);
    in.seekg(static_cast<std::streamoff>(offset));
    if (!in.read(buffer.data(), static_cast<std::streamsize>(length)))
      throw PublishError("could not read " + file.string() + " while sending it");
    HttpCall put;
    put.method = "PUT";
    put.url = session;
    put.timeoutSeconds = 60;
    put.headers = {"Content-Type: video/*", "Content-Range: bytes " + std::to_string(offset) + "-" +
                                                std::to_string(offset + length - 1) + "/" + std::to_string(size)};
    put.body = std::move(buffer);
    HttpCall::Answer answer;
    try {
      answer = call(std::move(put));
    } catch (const HttpCall::Broken& e) {
      // The connection went mid-chunk: ask the session how much arrived and go on from there.
      if (++drops > dropsTolerated) throw PublishError(std::string("the upload kept breaking off: ") + e.what());
      HttpCall ask;
      ask.method = "PUT";
      ask.url = session;
      ask.headers = {"Content-Range: bytes */" + std::to_string(size)};
      try {
        answer = call(std::move(ask));
      } catch (const HttpCall::Broken& again) {
        throw PublishError(std::string("the upload broke off: ") + again.what());
      }
      if (answer.status == 308) {
        offset = nextByte(answer.header("range")).value_or(0);
        if (offset > size) throw PublishError("YouTube says it holds more than the file");
        if (progress) progress(double(offset) / double(size));
        continue;
      }
    }
    if (answer.status == 308) {
      drops = 0;
      offset = nextByte(answer.header("range")).value_or(offset + length);
      if (offset > size) throw PublishError("YouTube says it holds more than the file");
      if (progress) progress(double(offset) / double(size));
      if (offset == size) throw PublishError("the upload finished and YouTube named nothing");
      continue;
    }
    if (answer.status > 299) throw PublishError::http(answer.status, YouTubeAnswers::summary(answer.body));
    const auto id = YouTubeAnswers::videoId(answer.body);
    if (!id) throw PublishError("the upload finished and YouTube named nothing");
    if (progress) progress(1.0);
    return *id;
  }
}

}  // namespace tavorin
