#pragma once
#include <signal.h>

#include <chrono>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>

#include "Processes.hpp"
#include "TestSupport.hpp"

namespace tavorin::test {

// The built tavorin-speech, started on a free port for one test and stopped after it.
class SpeechServerProcess {
 public:
  SpeechServerProcess() {
    process_ = spawn(programs() / "tavorin-speech", {"--port", "0"}, {}, logs_.path());
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    static const std::regex listening("listening on http://127\\.0\\.0\\.1:([0-9]+)");
    while (std::chrono::steady_clock::now() < until) {
      std::smatch match;
      std::string out = readFile(process_.out);
      if (std::regex_search(out, match, listening)) {
        port_ = std::stoi(match[1]);
        return;
      }
      if (waitFor(process_.pid, std::chrono::milliseconds(20)) >= 0)
        throw std::runtime_error("tavorin-speech ended at start: " + readFile(process_.err));
    }
    ::kill(process_.pid, SIGKILL);
    throw std::runtime_error("tavorin-speech did not say where it listens");
  }
  ~SpeechServerProcess() {
    if (process_.pid <= 0) return;
    ::kill(process_.pid, SIGTERM);
    if (waitFor(process_.pid, std::chrono::seconds(5)) < 0) {
      ::kill(process_.pid, SIGKILL);
      waitFor(process_.pid, std::chrono::seconds(5));
    }
  }
  SpeechServerProcess(const SpeechServerProcess&) = delete;
  SpeechServerProcess& operator=(const SpeechServerProcess&) = delete;

  int port() const { return port_; }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  pid_t pid() const { return process_.pid; }
  // Stops it with SIGTERM and answers its exit status.
  // The exit status after SIGTERM. The wait is long: under the sanitizers on a busy
  // machine the leak check at exit alone can take seconds.
  int stop() {
    ::kill(process_.pid, SIGTERM);
    int status = waitFor(process_.pid, std::chrono::seconds(30));
    process_.pid = -1;
    return status;
  }

 private:
  TempDir logs_;
  Spawned process_;
  int port_ = 0;
};

}  // namespace tavorin::test
