#include "app/service/Outside.hpp"

#include "app/publish/ToolLocation.hpp"
#include "app/publish/YouTubeUploader.hpp"
#include "app/service/LoopbackListener.hpp"
#include "platform/TavorinPaths.hpp"

#include <spawn.h>
#include <sys/wait.h>

#include <system_error>
#include <thread>

extern char** environ;

namespace tavorin {

namespace {

// The browser outlives the studio: a session of its own, never stopped with the studio's
// children, its end collected so that it leaves no zombie.
void launchDetached(const std::filesystem::path& program, const std::string& url) {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  std::vector<char*> argv{const_cast<char*>(program.c_str()), const_cast<char*>(url.c_str()), nullptr};
  pid_t pid = -1;
  const int rc = ::posix_spawn(&pid, program.c_str(), nullptr, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (rc != 0) throw std::runtime_error("could not open the browser (" + program.string() + "): " +
                                        std::generic_category().message(rc));
  std::thread([pid] {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }).detach();
}

}  // namespace

std::string name(Outside::PublishPhase phase) {
  switch (phase) {
    case Outside::PublishPhase::idle: return "idle";
    case Outside::PublishPhase::needsCredentials: return "needsCredentials";
    case Outside::PublishPhase::connecting: return "connecting";
    case Outside::PublishPhase::uploading: return "uploading";
    case Outside::PublishPhase::done: return "done";
    case Outside::PublishPhase::failed: return "failed";
  }
  return "idle";
}

Outside::Outside(MainActor& actor)
    : revise(actor),
      fetch(actor),
      endpoints(GoogleEndpoints::fromEnvironment()),
      account(YouTubeStore(TavorinPaths::supportDir())),
      uploader(std::make_unique<YouTubeUploader>(YouTubeAuth(YouTubeStore(TavorinPaths::supportDir()), endpoints))) {
  openBrowser = [this](const std::string& url) {
    const char* chosen = std::getenv("TAVORIN_BROWSER");
    const std::filesystem::path program = chosen && *chosen ? std::filesystem::path(chosen) : locateTool("xdg-open");
    launchDetached(program, url);
  };
}

Outside::~Outside() = default;

}  // namespace tavorin
