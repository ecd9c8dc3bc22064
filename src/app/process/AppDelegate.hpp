#pragma once
#include <memory>
#include <string>
#include <vector>

namespace asio {
class io_context;
}

namespace tavorin {

class AppModel;
class AppStore;
class MemoryPasteboard;
class FreedesktopTrash;
class AsioMainActor;
class WorkerPool;
class OperatorServer;
class OperatorService;
class AudioOutput;
class SoundCuePlayer;
class StudioWindow;

// The process itself: owns the store and the operator server, runs the launch
// sequence and the orderly stop.
class AppDelegate {
 public:
  explicit AppDelegate(asio::io_context& context);
  ~AppDelegate();

  // The launch sequence, in order. Nothing in it may stop the launch.
  void applicationDidFinishLaunching(const std::vector<std::string>& arguments);
  // Ends the run loop after the stop sequence. Safe to call more than once.
  void terminate(int exitCode = 0);
  // Asks for termination a moment from now, so an answer in flight can leave first.
  void terminateSoon();
  void applicationWillTerminate();
  // The application loop: the window's where one is open, else the context alone.
  void run();

  AppStore& store() { return *store_; }
  OperatorServer* server() { return server_.get(); }
  StudioWindow* window() { return window_.get(); }
  int exitCode() const { return exitCode_; }

 private:
  void startOperator();
  void raisePermissions();
  void scheduleSnapshot(const std::string& path);
  void openWindow();

  asio::io_context& context_;
  std::unique_ptr<AsioMainActor> actor_;
  // Before the model, so it outlives it: work in flight finishes with the model gone.
  std::unique_ptr<WorkerPool> workers_;
  std::unique_ptr<MemoryPasteboard> pasteboard_;
  std::unique_ptr<FreedesktopTrash> trash_;
  // Declared before the model, so that it outlives the transport that plays into it.
  std::unique_ptr<AudioOutput> audio_;
  std::unique_ptr<SoundCuePlayer> cues_;
  void attachAudio();
  std::unique_ptr<AppModel> model_;
  std::unique_ptr<AppStore> store_;
  // After the store it draws, before the service that photographs it.
  std::unique_ptr<StudioWindow> window_;
  std::unique_ptr<OperatorService> service_;
  std::unique_ptr<OperatorServer> server_;
  struct Signals;
  std::unique_ptr<Signals> signals_;
  bool terminated_ = false;
  bool launched_ = false;
  int exitCode_ = 0;
};

}  // namespace tavorin
