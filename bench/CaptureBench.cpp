// What filming costs: the whole of a 1920x1080 Xvfb screen at 30 frames a second for
// 20 seconds, while an xterm prints the time thirty times a second, so every frame
// differs and the terminal itself costs little.
// Reported: frames written and dropped by the recorder's own count (target: under 1%
// dropped), and the CPU seconds this process spent, grab and encoder together.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "Processes.hpp"
#include "TestSupport.hpp"
#include "VirtualDisplay.hpp"
#include "platform/camera/X11Recorder.hpp"

using namespace tavorin;

namespace {

double cpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

void BM_Capture1080p30(benchmark::State& state) {
  test::VirtualDisplay display(1920, 1080);
  if (display.missing()) {
    state.SkipWithError(display.missing()->c_str());
    return;
  }
  test::TempDir dir;
  const auto xterm = test::spawn("/usr/bin/xterm", {"-geometry", "200x60+0+0", "-e", "sh", "-c", "while :; do date +%T.%N; sleep 0.03; done"},
                                 {"DISPLAY=" + display.name()}, dir.path());
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const double seconds = static_cast<double>(state.range(0));
  FilmedSpan span;
  double cpu = 0;
  for (auto _ : state) {
    X11Recorder camera(display.name());
    CaptureConfig capture;
    capture.fps = 30;
    const double before = cpuSeconds();
    camera.roll(dir.path() / "take.mp4", capture);
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    span = camera.cut();
    cpu = cpuSeconds() - before;
  }
  ::kill(xterm.pid, SIGKILL);
  test::waitFor(xterm.pid, std::chrono::seconds(2));
  const double offered = static_cast<double>(span.frames + span.dropped);
  state.counters["frames"] = static_cast<double>(span.frames);
  state.counters["dropped"] = static_cast<double>(span.dropped);
  state.counters["dropped_pct"] = offered > 0 ? 100.0 * span.dropped / offered : 0;
  state.counters["filmed_s"] = span.seconds;
  state.counters["cpu_s"] = cpu;
  state.counters["cpu_per_film_s"] = span.seconds > 0 ? cpu / span.seconds : 0;
  // The work one frame costs, grab to file: what a machine with CPU to spare pays 30 times a second.
  state.counters["cpu_ms_per_frame"] = span.frames > 0 ? 1000 * cpu / static_cast<double>(span.frames) : 0;
  std::fprintf(stderr, "frames %lld, dropped %lld (%.2f%%), filmed %.2fs, cpu %.2fs (%.2f per filmed second)\n",
               span.frames, span.dropped, offered > 0 ? 100.0 * span.dropped / offered : 0.0, span.seconds, cpu,
               span.seconds > 0 ? cpu / span.seconds : 0.0);
  if (offered > 0 && span.dropped / offered >= 0.01) state.SkipWithError("1% or more of the frames were dropped");
}

}  // namespace

BENCHMARK(BM_Capture1080p30)->Arg(20)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
