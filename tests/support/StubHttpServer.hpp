#pragma once
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tavorin::test {

// One HTTP request as the stub read it.
struct StubRequest {
  std::string method, target, body;
  std::map<std::string, std::string> headers;  // names in lower case
  std::string path() const { return target.substr(0, target.find('?')); }
};

// The stub's side of one connection, for a handler that misbehaves on purpose.
class StubConnection {
 public:
  StubConnection(int fd, const std::atomic<bool>& stopping) : fd_(fd), stopping_(stopping) {}
  // False once the peer has gone or the stub is stopping.
  bool send(std::string_view bytes);
  void respond(int status, std::string_view contentType, std::string_view body);
  // Holds the connection open without a word until the peer leaves or the stub stops.
  void hang();
  bool stopping() const { return stopping_; }

 private:
  int fd_;
  const std::atomic<bool>& stopping_;
};

// A strict HTTP/1.1 server on 127.0.0.1 for one test: each connection carries one
// request, which it records and hands to the handler; a request it cannot read is
// answered 400 and counted as malformed. It stops by itself when destroyed, ending
// any handler that is hanging.
class StubHttpServer {
 public:
  using Handler = std::function<void(const StubRequest&, StubConnection&)>;
  explicit StubHttpServer(Handler handler);
  ~StubHttpServer();
  StubHttpServer(const StubHttpServer&) = delete;
  StubHttpServer& operator=(const StubHttpServer&) = delete;

  int port() const { return port_; }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  std::vector<StubRequest> requests() const;
  int malformed() const { return malformed_; }

 private:
  void serve(int fd);
  Handler handler_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<int> malformed_{0};
  mutable std::mutex lock_;
  std::vector<StubRequest> requests_;
  std::vector<int> open_;
  std::vector<std::thread> workers_;
  std::thread acceptor_;
};

}  // namespace tavorin::test
