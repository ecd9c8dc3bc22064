#pragma once
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "app/service/WindowSurface.hpp"
#include "ui/ElementRegistry.hpp"

namespace asio {
class io_context;
}

namespace tavorin {

class AppStore;
class OperatorService;

// The studio's one window: Dear ImGui over SDL2 and OpenGL, on the main thread and
// the main actor, drawing the model directly. The loop waits on the X connection
// and the io_context together, so an idle window costs nothing and a verb waits at
// most one frame.
class StudioWindow final : public WindowSurface {
 public:
  // Opens the window on $DISPLAY, sized from the screen as the desktop's frame is.
  // Throws the sentence the user reads when there is no display or no OpenGL.
  StudioWindow(asio::io_context& context, AppStore& store);
  ~StudioWindow() override;
  StudioWindow(const StudioWindow&) = delete;
  StudioWindow& operator=(const StudioWindow&) = delete;

  // Whether a window could be opened here at all: a display is named.
  static bool displayNamed();
  // The window's size for a screen's visible area: less 48 each way, within
  // 1180..1440 by 720..900.
  static std::pair<int, int> sizeFor(int visibleWidth, int visibleHeight);

  // Runs the application loop until the context stops.
  void run();
  // Draws one frame now, whatever is owed; answers the CPU seconds it took.
  double drawFrame();
  // Closing the window ends the process through this hook.
  void onClose(std::function<void()> close) { close_ = std::move(close); }

  // The verbs behind the sheets whose state the service keeps (the shoot, the grants,
  // the YouTube account); until attached those sheets are not drawn.
  void attachService(OperatorService& service);

  JSONValue elements() override;
  void photograph(const std::filesystem::path& path, double settle, Photographed done) override;
  // Draws a frame into an offscreen framebuffer and writes it as PNG; answers the report.
  JSONValue photographNow(const std::filesystem::path& path);

  int width() const;
  int height() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::function<void()> close_;
};

}  // namespace tavorin
