#pragma once
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/publish/Fetch.hpp"
#include "app/publish/GoogleEndpoints.hpp"
#include "app/publish/Revise.hpp"
#include "app/publish/Uploader.hpp"
#include "app/publish/YouTubeAccount.hpp"
#include "base/LifetimeToken.hpp"

namespace tavorin {

class LoopbackListener;

// The studio's dealings with the world outside: the revision by claude, the fetch by
// yt-dlp, the YouTube account and the upload. One of each at a time, held by the
// service for the life of the process, touched only on the main actor.
struct Outside {
  enum class PublishPhase { idle, needsCredentials, connecting, uploading, done, failed };

  explicit Outside(MainActor& actor);
  ~Outside();

  Revise revise;
  Fetch fetch;
  GoogleEndpoints endpoints;
  YouTubeAccount account;
  std::unique_ptr<Uploader> uploader;

  PublishPhase publishPhase = PublishPhase::idle;
  double publishProgress = 0;
  std::optional<std::string> videoId;
  std::optional<std::string> publishFailure;
  std::optional<std::string> publishTitle;
  std::optional<std::string> publishFile;
  std::chrono::steady_clock::time_point publishStarted;
  // The upload that found no credentials, sent on its own once a sign-in succeeds.
  std::optional<PublishRequest> heldPublish;
  // Connecting or uploading: either way a second publish must wait.
  bool publishBusy() const { return publishPhase == PublishPhase::connecting || publishPhase == PublishPhase::uploading; }

  std::optional<std::string> fetchedBed;  // the bed the last fetch laid

  // The sign-in in flight, waiting for the browser to come back.
  std::unique_ptr<LoopbackListener> listener;
  // Shows the consent page; by default the desktop's browser through xdg-open, or the
  // program TAVORIN_BROWSER names. Tests play the browser through this.
  std::function<void(const std::string& url)> openBrowser;
  std::chrono::steady_clock::duration signInLimit = std::chrono::seconds(300);

  LifetimeToken lifetime;
};

std::string name(Outside::PublishPhase phase);

}  // namespace tavorin
