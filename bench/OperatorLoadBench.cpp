// Load on the control socket of a running studio, from clients of our own over
// plain sockets: round trips, pipelining, many connections, and a client that
// never reads. The studio is the built program, or the one named by
// TAVORIN_STUDIO (to measure another build against this one).
//
// Goals: median ping round trip under 100 µs, at least 10,000 pipelined verbs a
// second on one connection, no failure over 200 connections × 1,000 requests,
// and the studio's memory bounded under every client here.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

fs::path studioProgram() {
  if (const char* s = std::getenv("TAVORIN_STUDIO")) return s;
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return self.parent_path().parent_path() / "src/main/tavorin";
}

// One studio for the whole run, in a home of its own.
class Studio {
 public:
  Studio() {
    char pattern[] = "/tmp/tavorin-load-XXXXXX";
    if (!::mkdtemp(pattern)) throw std::runtime_error("no temporary folder");
    dir_ = pattern;
    fs::create_directories(dir_ / "home");
    std::vector<std::string> env = {"HOME=" + (dir_ / "home").string(), "XDG_DATA_HOME=" + (dir_ / "data").string(),
                                    "TAVORIN_ROOT=" + (dir_ / "root").string(),
                                    "TAVORIN_SUPPORT=" + (dir_ / "support").string(), "PATH=/usr/bin:/bin"};
    // Run under a display, the studio opens its window: the round trips then include
    // the window's share of the main thread.
    if (const char* display = std::getenv("DISPLAY")) env.push_back(std::string("DISPLAY=") + display);
    std::vector<char*> envp;
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    std::string program = studioProgram().string();
    char* argv[] = {program.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string log = (dir_ / "studio.log").string();
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv, envp.data()) != 0)
      throw std::runtime_error("could not start " + program);
    posix_spawn_file_actions_destroy(&actions);
    const fs::path control = dir_ / "data/Tavorin/operator.json";
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    for (;;) {
      std::ifstream in(control);
      std::stringstream text;
      text << in.rdbuf();
      try {
        const auto j = nlohmann::json::parse(text.str());
        port_ = j.at("port").get<int>();
        token_ = j.at("token").get<std::string>();
        break;
      } catch (const std::exception&) {
      }
      if (Clock::now() > deadline) throw std::runtime_error("the studio did not publish its control file");
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  ~Studio() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }
  static Studio& shared() {
    static Studio studio;
    return studio;
  }
  int port() const { return port_; }
  std::string line(const std::string& verb) const {
    return R"({"token":")" + token_ + R"(","command":{"verb":")" + verb + R"(","args":{}}})" + "\n";
  }
  // Resident and peak memory of the studio, in MiB.
  double residentMiB(const char* field = "VmRSS:") const {
    std::ifstream in("/proc/" + std::to_string(pid_) + "/status");
    std::string key;
    long kb = 0;
    while (in >> key) {
      if (key == field) {
        in >> kb;
        break;
      }
    }
    return kb / 1024.0;
  }

 private:
  fs::path dir_;
  pid_t pid_ = -1;
  int port_ = 0;
  std::string token_;
};

int connectTo(int port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    ::close(fd);
    return -1;
  }
  int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  return fd;
}

void writeAll(int fd, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n <= 0) throw std::runtime_error("write failed");
    done += static_cast<std::size_t>(n);
  }
}

// Reads until `count` line feeds have come; false on close or error.
bool readLines(int fd, int count, std::string& carry) {
  char buf[65536];
  int seen = static_cast<int>(std::count(carry.begin(), carry.end(), '\n'));
  while (seen < count) {
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) return false;
    seen += static_cast<int>(std::count(buf, buf + n, '\n'));
    carry.append(buf, static_cast<std::size_t>(n));
  }
  // Keep only what follows the last answer asked for.
  std::size_t at = 0;
  for (int k = 0; k < count; ++k) at = carry.find('\n', at) + 1;
  carry.erase(0, at);
  return true;
}

void PingRoundTrip(benchmark::State& state) {
  Studio& studio = Studio::shared();
  const int fd = connectTo(studio.port());
  const std::string ping = studio.line("ping");
  std::vector<double> micros;
  micros.reserve(20000);
  std::string carry;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    writeAll(fd, ping);
    if (!readLines(fd, 1, carry)) state.SkipWithError("connection closed");
    micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
  }
  ::close(fd);
  std::sort(micros.begin(), micros.end());
  state.counters["median_us"] = micros[micros.size() / 2];
  state.counters["p99_us"] = micros[micros.size() * 99 / 100];
}
BENCHMARK(PingRoundTrip)->Iterations(20000)->UseRealTime();

// 100 requests in one write, then their 100 answers.
void PipelinedVerbs(benchmark::State& state) {
  Studio& studio = Studio::shared();
  const int fd = connectTo(studio.port());
  std::string batch;
  for (int i = 0; i < 100; ++i) batch += studio.line("ping");
  std::string carry;
  for (auto _ : state) {
    writeAll(fd, batch);
    if (!readLines(fd, 100, carry)) state.SkipWithError("connection closed");
  }
  ::close(fd);
  state.counters["verbs_per_s"] = benchmark::Counter(100.0 * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(PipelinedVerbs)->Iterations(200)->UseRealTime();

// 200 connections, each 1,000 pings one after another, ten at a time on threads.
void ManyConnections(benchmark::State& state) {
  Studio& studio = Studio::shared();
  const double before = studio.residentMiB();
  std::atomic<int> failures{0};
  for (auto _ : state) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 10; ++t) {
      threads.emplace_back([&] {
        for (int c = 0; c < 20; ++c) {
          const int fd = connectTo(studio.port());
          if (fd < 0) {
            failures++;
            continue;
          }
          std::string carry;
          const std::string ping = studio.line("ping");
          for (int r = 0; r < 1000; ++r) {
            try {
              writeAll(fd, ping);
            } catch (const std::exception&) {
              failures++;
              break;
            }
            if (!readLines(fd, 1, carry)) {
              failures++;
              break;
            }
          }
          ::close(fd);
        }
      });
    }
    for (auto& t : threads) t.join();
  }
  state.counters["failures"] = failures.load();
  state.counters["rss_before_MiB"] = before;
  state.counters["rss_after_MiB"] = studio.residentMiB();
}
BENCHMARK(ManyConnections)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

// Writes two million pings (or as many as the studio takes within ten seconds)
// and never reads an answer; then hangs up. The studio must stay small, give
// the memory back, and go on answering.
void WriterThatNeverReads(benchmark::State& state) {
  Studio& studio = Studio::shared();
  const double before = studio.residentMiB();
  double during = 0;
  long sent = 0;
  for (auto _ : state) {
    const int fd = connectTo(studio.port());
    ::fcntl(fd, F_SETFL, O_NONBLOCK);
    std::string batch;
    for (int i = 0; i < 1000; ++i) batch += studio.line("ping");
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    std::size_t offset = 0;
    while (sent < 2000000 && Clock::now() < deadline) {
      const ssize_t n = ::send(fd, batch.data() + offset, batch.size() - offset, MSG_NOSIGNAL);
      if (n > 0) {
        offset += static_cast<std::size_t>(n);
        if (offset == batch.size()) {
          offset = 0;
          sent += 1000;
        }
        continue;
      }
      if (n < 0 && errno != EAGAIN) break;
      pollfd p{fd, POLLOUT, 0};
      // Blocked for a whole second: the studio has stopped reading this client.
      if (::poll(&p, 1, 1000) == 0) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    during = studio.residentMiB();
    ::close(fd);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const int fd = connectTo(studio.port());
  std::string carry;
  bool answers = fd >= 0;
  if (answers) {
    writeAll(fd, studio.line("ping"));
    answers = readLines(fd, 1, carry);
    ::close(fd);
  }
  state.counters["pings_sent"] = static_cast<double>(sent);
  state.counters["rss_before_MiB"] = before;
  state.counters["rss_during_MiB"] = during;
  state.counters["rss_after_MiB"] = studio.residentMiB();
  state.counters["peak_MiB"] = studio.residentMiB("VmHWM:");
  state.counters["answers_after"] = answers ? 1 : 0;
}
BENCHMARK(WriterThatNeverReads)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
