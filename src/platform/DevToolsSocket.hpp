#pragma once
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace tavorin {

// A DevTools connection to a Chromium the user started with
// `--remote-debugging-port`: the browser's address read from /json/version, then a
// WebSocket to it, through libwebsockets. Blocking; used from one thread.
class DevToolsSocket {
 public:
  using Clock = std::chrono::steady_clock;
  // Throws std::runtime_error with the sentence the user reads when nothing answers.
  DevToolsSocket(int port, std::chrono::milliseconds timeout);
  ~DevToolsSocket();
  DevToolsSocket(const DevToolsSocket&) = delete;
  DevToolsSocket& operator=(const DevToolsSocket&) = delete;

  bool isOpen() const;
  // Throws std::runtime_error when the browser has gone.
  void send(const std::string& text);
  // The whole messages that arrived by `until`, oldest first; none when none came.
  // Throws std::runtime_error when the browser has gone.
  std::vector<std::string> receive(Clock::time_point until);

  // The connection's state; opaque, named here so the library's callback can reach it.
  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace tavorin
