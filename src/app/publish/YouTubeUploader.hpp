#pragma once
#include <atomic>
#include <cstdint>

#include "app/publish/HttpCall.hpp"
#include "app/publish/Uploader.hpp"
#include "app/publish/YouTubeAuth.hpp"

namespace tavorin {

// Google's resumable upload: a session, then the file in 8 MiB chunks, each with its
// Content-Range. Memory stays at one chunk whatever the film's size. The token is made
// fresh before the session opens; after that, any failure ends the upload.
class YouTubeUploader final : public Uploader {
 public:
  static constexpr std::uint64_t chunkSize = 0x800000;  // a multiple of 256 KiB, as the protocol wants

  explicit YouTubeUploader(YouTubeAuth auth) : auth_(std::move(auth)) {}

  std::string name() const override { return "YouTube"; }
  bool isConfigured() const override { return auth_.store().hasClient() && auth_.store().hasToken(); }
  std::string upload(const PublishRequest& request, const std::function<void(double)>& progress) override;
  void cancel() override { stopped_ = true; }

  // The session URL for this file.
  std::string startSession(const PublishRequest& request, std::uint64_t size);
  // Sends the file to the session and answers the video's id.
  std::string send(const std::string& session, const std::filesystem::path& file, std::uint64_t size,
                   const std::function<void(double)>& progress);

  // Chunks smaller than the real one, for tests that want several chunks from a small file.
  void useChunkSize(std::uint64_t bytes) { chunk_ = bytes; }

 private:
  HttpCall::Answer call(HttpCall request);
  std::string authorisation() const { return "Authorization: Bearer " + token_.accessToken; }

  YouTubeAuth auth_;
  YouTubeToken token_;
  std::uint64_t chunk_ = chunkSize;
  std::atomic<bool> stopped_{false};
};

}  // namespace tavorin
