// An upload holds one 8 MiB chunk at a time, whatever the film's size: a sparse film of
// 64 or 256 MiB goes to a resumable-upload server on the loopback, and the peak of the
// process's resident memory during the upload is reported over where it stood before.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "app/publish/YouTubeUploader.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

// Google's resumable upload reduced to its bones: a session, then chunks, each body read
// and thrown away through a small buffer so that the server adds nothing to the peak.
class SinkServer {
 public:
  SinkServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener_, 8) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
      std::abort();
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~SinkServer() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    ::close(listener_);
    thread_.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

 private:
  static std::string header(const std::string& head, const std::string& name) {
    std::string lower = head;
    for (char& c : lower) c = char(std::tolower(static_cast<unsigned char>(c)));
    const size_t at = lower.find("\r\n" + name + ":");
    if (at == std::string::npos) return "";
    const size_t from = head.find_first_not_of(' ', at + name.size() + 3);
    return head.substr(from, head.find("\r\n", from) - from);
  }

  static void say(int fd, const std::string& text) {
    for (size_t sent = 0; sent < text.size();) {
      const ssize_t n = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) return;
      sent += size_t(n);
    }
  }

  void serve() {
    while (!stopping_) {
      const int fd = ::accept(listener_, nullptr, nullptr);
      if (fd < 0) return;
      answer(fd);
      ::close(fd);
    }
  }

  void answer(int fd) {
    char buffer[65536];
    std::string head;
    size_t end;
    while ((end = head.find("\r\n\r\n")) == std::string::npos) {
      const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0) return;
      head.append(buffer, size_t(n));
    }
    const std::string lengthText = header(head, "content-length");
    long long left = lengthText.empty() ? 0 : std::stoll(lengthText) - (long long)(head.size() - end - 4);
    if (header(head, "expect") == "100-continue") say(fd, "HTTP/1.1 100 Continue\r\n\r\n");
    while (left > 0) {
      const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0) return;
      left -= n;
    }
    const auto reply = [&](const std::string& status, const std::string& extra, const std::string& body) {
      say(fd, "HTTP/1.1 " + status + "\r\n" + extra + "Content-Length: " + std::to_string(body.size()) +
                  "\r\nConnection: close\r\n\r\n" + body);
    };
    if (head.rfind("POST ", 0) == 0) return reply("200 OK", "Location: " + url() + "/session\r\n", "");
    // "bytes first-last/total": the last chunk ends the upload.
    const std::string range = header(head, "content-range");
    const size_t dash = range.find('-'), slash = range.find('/');
    if (dash == std::string::npos || slash == std::string::npos) return reply("400 Bad Request", "", "");
    const long long last = std::stoll(range.substr(dash + 1, slash - dash - 1));
    const long long total = std::stoll(range.substr(slash + 1));
    if (last + 1 == total) return reply("201 Created", "Content-Type: application/json\r\n", R"({"id":"bench"})");
    reply("308 Resume Incomplete", "Range: bytes=0-" + std::to_string(last) + "\r\n", "");
  }

  int listener_ = -1;
  unsigned short port_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

// Kilobytes of a line of /proc/self/status ("VmHWM:   12345 kB").
long statusKB(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind(key + ":", 0) == 0) return std::stol(line.substr(key.size() + 1));
  return -1;
}

void BM_UploadPeakMemory(benchmark::State& state) {
  const long long bytes = state.range(0) << 20;
  const fs::path dir = fs::temp_directory_path() / ("tavorin-upload-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir / "support");
  std::ofstream(dir / "support/youtube-client.json") << R"({"installed":{"client_id":"c","client_secret":"s"}})";
  const YouTubeStore store(dir / "support");
  store.saveToken({"ya29.bench", "1//bench", std::chrono::system_clock::now() + std::chrono::hours(1)});
  // Sparse: the film costs no disk and its pages are the kernel's, not the process's.
  const fs::path film = dir / "film.mp4";
  const int fd = ::open(film.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
  if (fd < 0 || ::ftruncate(fd, bytes) != 0) std::abort();
  ::close(fd);

  SinkServer server;
  PublishRequest request;
  request.title = "Bench";
  request.file = film;
  double worst = 0;
  for (auto _ : state) {
    YouTubeUploader uploader(YouTubeAuth(store, GoogleEndpoints::at(server.url())));
    // What an earlier upload freed goes back to the system first, or the heap would hold
    // last time's chunk and hide this one; then writing 5 to clear_refs sets the
    // high-water mark back to what is resident now.
    ::malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
    const long before = statusKB("VmRSS");
    benchmark::DoNotOptimize(uploader.upload(request, nullptr));
    const long peak = statusKB("VmHWM");
    worst = std::max(worst, double(peak - before) / 1024.0);
  }
  state.counters["peak_growth_MiB"] = worst;
  state.counters["film_MiB"] = double(state.range(0));
  state.counters["chunk_MiB"] = double(YouTubeUploader::chunkSize >> 20);
  state.SetBytesProcessed(state.iterations() * bytes);
  fs::remove_all(dir);
}
BENCHMARK(BM_UploadPeakMemory)->Arg(64)->Arg(256)->Iterations(2)->Unit(benchmark::kMillisecond);

}  // namespace
