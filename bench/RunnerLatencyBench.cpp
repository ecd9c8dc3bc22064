// How late a step reaches the desktop: from the moment the runner's clock says a
// `key` step is due to the moment a window on the display receives its key press.
// 200 key steps, each anchored to its own line so the runner waits for its time, on
// an Xvfb of the bench's own. Targets: median and 99th percentile under 10 ms.
#include <X11/Xlib.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "VirtualDisplay.hpp"
#include "app/process/AsioMainActor.hpp"
#include "app/shoot/FakeAgentStep.hpp"
#include "app/shoot/PerformerThread.hpp"
#include "app/shoot/Runner.hpp"
#include "platform/X11Performer.hpp"

using namespace tavorin;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int steps = 200;
constexpr double spacing = 0.15;  // seconds between steps: more than a key's own 0.08

// A window that has the focus and notes when each key press reaches it.
class Listener {
 public:
  explicit Listener(const std::string& display) {
    d_ = XOpenDisplay(display.c_str());
    const Window w = XCreateSimpleWindow(d_, DefaultRootWindow(d_), 0, 0, 800, 600, 0, 0, 0);
    XSelectInput(d_, w, KeyPressMask | StructureNotifyMask);
    XMapWindow(d_, w);
    for (XEvent e;;) {
      XNextEvent(d_, &e);
      if (e.type == MapNotify) break;
    }
    XSetInputFocus(d_, w, RevertToParent, CurrentTime);
    XSync(d_, False);
    thread_ = std::thread([this] {
      const int fd = ConnectionNumber(d_);
      while (!stop_) {
        while (XPending(d_)) {
          XEvent e;
          XNextEvent(d_, &e);
          if (e.type == KeyPress) {
            std::lock_guard g(lock_);
            arrivals_.push_back(Clock::now());
          }
        }
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval tv{0, 1000};
        select(fd + 1, &set, nullptr, nullptr, &tv);
      }
    });
  }
  ~Listener() {
    stop_ = true;
    thread_.join();
    XCloseDisplay(d_);
  }
  std::vector<Clock::time_point> arrivals() {
    std::lock_guard g(lock_);
    return arrivals_;
  }

 private:
  Display* d_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::mutex lock_;
  std::vector<Clock::time_point> arrivals_;
};

void RunnerKeyLatency(benchmark::State& state) {
  test::VirtualDisplay display;
  if (display.missing()) {
    state.SkipWithError(display.missing()->c_str());
    return;
  }
  Recording rec("bench", "Bench");
  std::string script;
  for (int i = 1; i <= steps; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.start = 0.5 + i * spacing;
    line.duration = spacing / 2;
    rec.timeline.push_back(line);
    script += "with l" + std::to_string(i) + ":\n  key a\n";
  }
  // No pace: each step's due moment is its own time on the runner's clock.
  rec.agent = AgentPolicy{std::nullopt, std::nullopt, std::nullopt, 0.0};

  std::vector<double> medians, p99s;
  for (auto _ : state) {
    Listener listener(display.name());
    asio::io_context context;
    auto busy = asio::make_work_guard(context);
    AsioMainActor actor(context);
    X11Performer::Options options;
    options.display = display.name();
    X11Performer performer(options);
    PerformerThread lane(actor);
    FakeAgentStep agents(actor);
    Runner runner(actor, lane, performer, agents);
    std::vector<Clock::time_point> due;
    runner.onStep = [&](const RunPlan::Event&, Clock::time_point at) { due.push_back(at); };
    runner.run(script, rec, Runner::Mode::rehearse, false);
    while (runner.isRunning()) context.run_for(std::chrono::milliseconds(50));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto arrivals = listener.arrivals();
    if (runner.failure() || arrivals.size() != due.size() || due.size() != static_cast<std::size_t>(steps)) {
      state.SkipWithError(("the run did not deliver every key: " + runner.report()).c_str());
      return;
    }
    std::vector<double> late;
    for (std::size_t i = 0; i < due.size(); ++i)
      late.push_back(std::chrono::duration<double, std::milli>(arrivals[i] - due[i]).count());
    std::sort(late.begin(), late.end());
    medians.push_back(late[late.size() / 2]);
    p99s.push_back(late[static_cast<std::size_t>(0.99 * static_cast<double>(late.size())) - 1]);
    state.counters["min_ms"] = late.front();
    state.counters["max_ms"] = late.back();
  }
  state.counters["median_ms"] = medians.back();
  state.counters["p99_ms"] = p99s.back();
}

}  // namespace

BENCHMARK(RunnerKeyLatency)->Iterations(1)->Unit(benchmark::kSecond);
