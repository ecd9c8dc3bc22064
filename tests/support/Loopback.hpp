#pragma once
#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace tavorin::test {

// A listener on 127.0.0.1 that reads one line from each connection, writes back
// what `answer` makes of it, and closes. An answer without a line feed stands for a
// peer that hangs up early.
class LoopbackServer {
 public:
  explicit LoopbackServer(std::function<std::string(const std::string& line)> answer);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  int port() const { return port_; }

 private:
  std::function<std::string(const std::string&)> answer_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

// A client connection that reads line by line, with a read time-out so that a
// missing answer fails a test instead of hanging it.
class LineClient {
 public:
  explicit LineClient(int port);
  ~LineClient();
  LineClient(const LineClient&) = delete;
  LineClient& operator=(const LineClient&) = delete;
  void write(const std::string& bytes);
  // The next line with its line feed; empty on time-out or close.
  std::string line();
  void shutdownWrite();
  // True when the peer closes the connection within the time-out.
  bool closedByPeer();

 private:
  int fd_ = -1;
  std::string pending_;
};

// One request to a redirect listener on loopback, as a browser makes it; the page it answers.
std::string browse(const std::string& url);
// The percent-decoded value of `key` in a URL's query; empty when it has none.
std::string queryItem(const std::string& url, const std::string& key);

}  // namespace tavorin::test
