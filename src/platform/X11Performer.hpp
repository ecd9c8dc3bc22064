#pragma once
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "kit/Performer.hpp"

namespace tavorin {

class ChromiumBrowser;

// The performer of an X11 desktop: XTest input on the display named by DISPLAY
// (or `display`), windows raised through EWMH or input focus, and the browser on
// camera driven over the DevTools pipe. All calls come from one thread.
class X11Performer final : public Performer {
 public:
  struct Options {
    std::optional<std::string> display;         // default: $DISPLAY
    std::filesystem::path browserProfile;       // default: <support>/chromium
    std::string browserProgram;                 // default: chromium on PATH
    // The user's own Chromium, started with --remote-debugging-port; default:
    // TAVORIN_CHROMIUM_PORT, else "chromiumPort" in the defaults; none: the studio's own.
    std::optional<int> browserPort;
    double appStartTimeout = 10;                // seconds an app we start has to show a window
    double typePause = 0.02;                    // between chunks of typed text
    double lentKeySettle = 0.25;                // seconds a lent key keeps its character after its last press
  };
  X11Performer();
  explicit X11Performer(Options options);
  ~X11Performer() override;

  void activate(const std::string& app) override;
  void open(const std::string& url) override;
  void key(const std::string& combo) override;
  void type(const std::string& text) override;
  void move(double x, double y, std::optional<double> over) override;
  void scroll(double pixels, std::optional<double> over) override;
  void click(double x, double y) override;
  std::string js(const std::string& script) override;

  ChromiumBrowser& browser();

  // The window an application shows, found as `app` steps find it; throws
  // RecordError noSuchApp when no such program runs, noWindow when it shows none.
  static unsigned long windowOf(const std::string& app, std::optional<std::string> display = std::nullopt);

  // Why synthetic input cannot reach the display (none to reach, or no XTEST), or nothing.
  static std::optional<std::string> inputRefusal(std::optional<std::string> display = std::nullopt);

  // Pixels a wheel notch stands for: X reports no finer scrolling.
  static constexpr double pixelsPerNotch = 53;
  // Typed text goes in chunks this long.
  static constexpr std::size_t chunk = 20;

 private:
  // Whether `app` names the browser this performer drives.
  bool isBrowser(const std::string& app) const;
  struct Connection;
  Connection& connection(const std::string& step);
  Options options_;
  std::unique_ptr<Connection> x_;
  std::unique_ptr<ChromiumBrowser> browser_;
};

}  // namespace tavorin
