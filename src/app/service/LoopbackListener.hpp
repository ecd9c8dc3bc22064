#pragma once
#include <asio/awaitable.hpp>
#include <chrono>
#include <memory>
#include <string>

namespace asio {
class io_context;
}

namespace tavorin {

// The one-shot listener on 127.0.0.1 that Google's consent page redirects the browser
// to. It runs on the main actor's io_context, answers each request it gets, and keeps
// waiting through requests that do not carry the expected `state`; the one that does
// ends it, and it closes so that a second request finds nobody.
class LoopbackListener {
 public:
  // Throws "could not listen for the redirect" when no port can be had.
  LoopbackListener(asio::io_context& context, std::string expectedState);
  ~LoopbackListener();
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  unsigned short port() const;
  const std::string& state() const;
  // The code Google sent. Throws "Google said: ..." for a refusal, "no code came back
  // from Google" for a redirect without one, and the browser sentence when `limit`
  // passes first.
  asio::awaitable<std::string> code(std::chrono::steady_clock::duration limit);
  void close();

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace tavorin
