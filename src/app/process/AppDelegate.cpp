#include "app/process/AppDelegate.hpp"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <chrono>
#include <cstdio>

#include "app/model/AppModel.hpp"
#include "app/model/AppStore.hpp"
#include "app/export/FolderChooser.hpp"
#include "app/process/AsioMainActor.hpp"
#include "app/process/WorkerPool.hpp"
#include "app/service/OperatorServer.hpp"
#include "app/service/OperatorService.hpp"
#include "app/shoot/PosedPermissionsProbe.hpp"
#include "ui/StudioWindow.hpp"
#include "kit/Pasteboard.hpp"
#include "operator/BuildStamp.hpp"
#include "platform/FontCatalog.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "platform/SdlAudioOutput.hpp"
#include "platform/SoundCuePlayer.hpp"
#include "platform/TavorinPaths.hpp"

namespace tavorin {

using namespace std::chrono_literals;

struct AppDelegate::Signals {
  explicit Signals(asio::io_context& c) : set(c, SIGINT, SIGTERM) {}
  asio::signal_set set;
};

AppDelegate::AppDelegate(asio::io_context& context)
    : context_(context),
      actor_(std::make_unique<AsioMainActor>(context)),
      workers_(std::make_unique<WorkerPool>(context)),
      pasteboard_(std::make_unique<MemoryPasteboard>()),
      trash_(std::make_unique<FreedesktopTrash>()) {
  const auto session = TavorinPaths::supportDir() / "session.json";
  model_ = std::make_unique<AppModel>(*actor_, *workers_, SessionStore(session), *pasteboard_);
  store_ = std::make_unique<AppStore>(*model_, Library(TavorinPaths::productionsRoot()), SessionStore(session), *trash_);
  std::error_code ec;
  store_->fixtureSearch = AppStore::FixtureSearch{std::nullopt, std::filesystem::current_path(ec),
                                                  BuildStamp::currentExecutable()};
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::attachAudio() {
  cues_ = std::make_unique<SoundCuePlayer>([] { return std::make_unique<SdlAudioOutput>(); });
  model_->cuePlayer = [this](SoundCue cue) { cues_->play(cue); };
  try {
    audio_ = std::make_unique<SdlAudioOutput>();
  } catch (const std::exception& e) {
    model_->note(e.what());
    return;
  }
  model_->attachAudio(*audio_);
}

void AppDelegate::applicationDidFinishLaunching(const std::vector<std::string>& arguments) {
  // SIGINT and SIGTERM take the same road out as `quit`.
  signals_ = std::make_unique<Signals>(context_);
  signals_->set.async_wait([this](std::error_code ec, int) {
    if (!ec) terminate(0);
  });

  attachAudio();
  // fontconfig scans the system's faces the first time; the operator's first
  // `fonts` should not wait for it.
  workers_->offload([] { FontCatalog::registerHouseFaces(); }, [](std::exception_ptr) {});
  store_->bootstrap(arguments);
  openWindow();
  startOperator();
  if (terminated_) return;
  raisePermissions();

  if (auto path = Environment::value("TAVORIN_SNAPSHOT")) scheduleSnapshot(*path);
  launched_ = true;
}

void AppDelegate::openWindow() {
  // A studio without a display runs headless, as a server does; the verbs still work.
  if (!StudioWindow::displayNamed()) {
    model_->note("no display (DISPLAY is not set): running headless, without a window");
    return;
  }
  try {
    window_ = std::make_unique<StudioWindow>(context_, *store_);
    window_->onClose([this] { terminate(0); });
    // Only a studio with a window has a sheet to raise the save panel from.
    model_->folderChooser = [](const std::filesystem::path& start) {
      return FolderChooser::ask("Choose the folder the film is copied to", start);
    };
    model_->note("window open on " + Environment::value("DISPLAY").value_or("") + ", " +
                 std::to_string(window_->width()) + " by " + std::to_string(window_->height()));
  } catch (const std::exception& e) {
    model_->note(std::string(e.what()) + ": running headless, without a window");
  }
}

void AppDelegate::run() {
  // The launch is itself work on the context; the window exists only once it ran.
  while (!launched_ && !context_.stopped()) context_.run_one();
  if (window_ && !context_.stopped()) window_->run();
  else context_.run();
}

void AppDelegate::startOperator() {
  if (Environment::present("TAVORIN_NO_OPERATOR")) return;
  service_ = std::make_unique<OperatorService>(*store_, [this] { terminateSoon(); });
  if (window_) {
    service_->attachWindow(window_.get());
    window_->attachService(*service_);
  }
  server_ = std::make_unique<OperatorServer>(context_, *service_, freshUUID() + freshUUID());
  try {
    const int port = server_->start(true);
    model_->note("operator listening on 127.0.0.1:" + std::to_string(port));
  } catch (const std::exception& e) {
    // Only the one who launched the studio can hear this: no tavorinctl can reach it.
    const std::string line = std::string("operator server failed: ") + e.what();
    model_->note(line);
    std::fprintf(stderr, "tavorin: %s\n", line.c_str());
    server_->stop();
    // Headless, a studio nothing can talk to would only sit there.
    if (!window_) terminate(1);
  }
}

void AppDelegate::raisePermissions() {
  if (!service_) return;
  // Any value forces the sheet; a pose's word also poses the grants, so every look
  // of the sheet can be seen on a desktop that has them all.
  const auto forced = Environment::value("TAVORIN_FORCE_PERMISSIONS_SHEET");
  if (forced) {
    if (const auto pose = PosedPermissionsProbe::named(*forced))
      service_->usePermissionsProbe(std::make_unique<PosedPermissionsProbe>(*pose));
  }
  service_->raisePermissionsAtLaunch(forced.has_value());
}

void AppDelegate::scheduleSnapshot(const std::string& path) {
  actor_->after(2s, [this, path] {
    // A snapshot run never stays up, whatever became of the picture.
    if (!window_) {
      std::fputs("snapshot: no window available for snapshot\n", stderr);
    } else {
      try {
        window_->photographNow(Environment::expandTilde(path));
      } catch (const std::exception& e) {
        std::fprintf(stderr, "snapshot: %s\n", e.what());
      }
    }
    terminate(0);
  });
}

void AppDelegate::terminateSoon() {
  actor_->after(150ms, [this] { terminate(0); });
}

void AppDelegate::terminate(int code) {
  if (terminated_) return;
  terminated_ = true;
  exitCode_ = code;
  applicationWillTerminate();
  context_.stop();
}

void AppDelegate::applicationWillTerminate() {
  if (server_) server_->stop();
  // Whatever was typed last is on disk before the process goes.
  if (model_) model_->flushDraft();
  // Disk writes already handed to the workers land before the process goes; a save
  // panel still up would hold a worker, so it is closed first.
  FolderChooser::closeAll();
  if (workers_) workers_->join();
  if (signals_) {
    std::error_code ec;
    signals_->set.cancel(ec);
  }
}

}  // namespace tavorin
