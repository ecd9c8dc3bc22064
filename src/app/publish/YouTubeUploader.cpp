#include "app/publish/YouTubeUploader.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <optional>

namespace tavorin {

HttpCall::Answer YouTubeUploader::call(HttpCall request) {
  if (stopped_) throw PublishError::cancelled();
  request.stop = &stopped_;
  request.headers.push_back(authorisation());
  try {
    return request.perform();
  } catch (const HttpCall::Stopped&) {
    throw PublishError::cancelled();
  }
}

std::string YouTubeUploader::upload(const PublishRequest& request, const std::function<void(double)>& progress) {
  stopped_ = false;
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
  // No retry: a failure of any kind ends the upload, and the next attempt opens a new
  // session, so what YouTube holds is never in doubt.
  std::string buffer;
  std::uint64_t offset = 0;
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
      throw PublishError(std::string("the upload broke off: ") + e.what());
    }
    if (answer.status == 308) {
      offset += length;
      if (progress) progress(double(offset) / double(size));
      if (offset >= size) throw PublishError("the upload finished and YouTube named nothing");
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
