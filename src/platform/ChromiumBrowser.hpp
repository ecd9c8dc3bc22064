#pragma once
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tavorin {

// The browser on camera: a Chromium the studio starts with its own profile and
// drives over the DevTools protocol on a pipe (requests on its descriptor 3,
// answers on 4, each message JSON closed by a NUL), or, when the user prefers their
// own, one they started with `--remote-debugging-port`, reached over its WebSocket.
// Blocking; used from one thread.
class ChromiumBrowser {
 public:
  // `program` empty: `chromium` on PATH.
  explicit ChromiumBrowser(std::filesystem::path profile, std::string program = "");
  ~ChromiumBrowser();
  ChromiumBrowser(const ChromiumBrowser&) = delete;
  ChromiumBrowser& operator=(const ChromiumBrowser&) = delete;

  bool isRunning() const;
  // Starts it when it is not running. Throws std::runtime_error with the reason.
  void ensureRunning();
  // Navigates the front tab and waits for the page to load.
  void navigate(const std::string& url);
  // Evaluates in the front tab; the result as JSON text. A thrown script throws
  // std::invalid_argument with the page's message; an unreachable browser, std::runtime_error.
  std::string evaluate(const std::string& script);
  // Ends the browser; the next navigate starts a fresh one.
  void quit();
  int pid() const;

  std::chrono::milliseconds timeout{15000};
  // The X display it opens on; unset: the studio's own.
  std::optional<std::string> display;
  // A screen of this size (width, height) that the window covers from its top-left
  // corner, in kiosk mode, so that the page alone is on camera. Unset: the browser
  // places and furnishes its window as it likes. Only a browser we start.
  std::optional<std::pair<int, int>> fill;
  // Set: attach to the user's Chromium on this port instead of starting one. It is
  // never started or ended by us; quit only lets go of it.
  std::optional<int> attachPort;

 private:
  struct Pipe;
  // Finds the front tab and attaches to it, so commands go to its page.
  void attach(Pipe& pipe) const;
  std::unique_ptr<Pipe> pipe_;
  std::filesystem::path profile_;
  std::string program_;
};

}  // namespace tavorin
