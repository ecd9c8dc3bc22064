// An export's time is ffmpeg's; ours is the plan, the painting and the handling of the
// child. The whole export is timed against the same command lines run bare.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <mutex>

#include "app/export/Exporter.hpp"
#include "kit/ExportPlan.hpp"
#include "kit/Looks.hpp"

extern char** environ;

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

double filmSeconds() {
  const char* s = std::getenv("TAVORIN_BENCH_FILM_SECONDS");
  return s ? std::atof(s) : 60;
}

// A 1080p take with a tone, a line, a bed, a cut at two speeds, a zoom, a look and captions.
struct Production {
  fs::path folder = fs::temp_directory_path() / "tavorin-export-bench";
  Recording recording{"bench", "Bench"};
  Take take;

  Production() {
    const double seconds = filmSeconds();
    fs::create_directories(folder / "takes/t1");
    fs::create_directories(folder / "audio");
    fs::create_directories(folder / "music");
    const fs::path film = folder / "takes/t1/film.mp4";
    const std::string tag = folder / ("made-" + std::to_string(int(seconds)));
    if (!fs::exists(tag)) {
      const std::string lavfi = "ffmpeg -v error -y -f lavfi -i ";
      std::system((lavfi + "testsrc2=size=1920x1080:rate=30 -f lavfi -i sine=frequency=300:sample_rate=48000 -t " +
                   std::to_string(seconds + 1) + " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest " +
                   film.string()).c_str());
      std::system((lavfi + "sine=frequency=660:sample_rate=48000 -t 4 " + (folder / "audio/l1.wav").string()).c_str());
      std::system((lavfi + "sine=frequency=220:sample_rate=44100 -t 30 " + (folder / "music/bed.wav").string()).c_str());
      std::system(("touch " + tag).c_str());
    }
    take.id = "t1";
    take.video = "film.mp4";
    take.seconds = seconds + 1;
    take.pads = {0.5, 0.5};
    take.status = Take::Status::complete;
    for (int i = 0; i < int(seconds / 6); ++i) {
      TimelineItem line("l" + std::to_string(i + 1), ItemType::line);
      line.start = i * 6.0;
      line.duration = 4;
      line.audio = "audio/l1.wav";
      line.text = "Line " + std::to_string(i + 1) + " of the narration";
      recording.timeline.push_back(line);
    }
    TimelineItem bed("m1", ItemType::audio);
    bed.start = 0;
    bed.file = "music/bed.wav";
    bed.duration = 30;
    bed.gain = -12;
    recording.timeline.push_back(bed);
    const double half = seconds / 2;
    recording.segments = std::vector<Segment>{{"s1", std::nullopt, 0, half, std::nullopt},
                                              {"s2", std::nullopt, half, seconds, 2}};
    recording.zooms = std::vector<Zoom>{{"z1", 2, 6, 2, Zoom::Anchor{0.3, 0.3}, std::nullopt, std::nullopt}};
    recording.look = Look{true, 0.06, 0.02, true, Look::Background{"field-dusk", std::nullopt, std::nullopt}};
    recording.subtitles = SubtitleStyle{};
    recording.subtitles->burn = true;
  }
};

Production& production() {
  static Production p;
  return p;
}

// The take is made before any clock starts.
const bool made = (production(), true);

struct Actor {
  std::mutex lock;
  std::condition_variable ready;
  std::deque<std::function<void()>> queue;
  Exporter::Post post() {
    return [this](std::function<void()> work) {
      std::lock_guard guard(lock);
      queue.push_back(std::move(work));
      ready.notify_one();
    };
  }
  void pumpUntil(const std::function<bool()>& done) {
    while (!done()) {
      std::unique_lock guard(lock);
      ready.wait(guard, [&] { return !queue.empty(); });
      auto work = std::move(queue.front());
      queue.pop_front();
      guard.unlock();
      work();
    }
  }
};

const fs::path fonts = fs::path(TAVORIN_SOURCE_DIR) / "resources/fonts";

std::vector<std::vector<std::string>> lastPasses;

void ours(benchmark::State& state) {
  auto& p = production();
  for (auto _ : state) {
    Actor actor;
    Exporter exporter(actor.post(), {}, fonts);
    const fs::path out = exporter.exportFilm(ExportPlan::make(p.recording, p.take), p.folder, "bench",
                                             p.recording.subtitles, 0.0);
    actor.pumpUntil([&] { return exporter.phase() != Exporter::Phase::running; });
    if (exporter.phase() != Exporter::Phase::done) state.SkipWithError(exporter.failure().value_or("?").c_str());
    lastPasses = exporter.lastPasses();
    // Keep the sheets for the bare run: the exporter removed its own scratch.
    fs::remove(out);
  }
}

// The same command line, with the same inputs, spawned and waited on with nothing else.
void bare(benchmark::State& state) {
  auto& p = production();
  if (lastPasses.empty()) {
    state.SkipWithError("run ours first");
    return;
  }
  for (auto _ : state) {
    state.PauseTiming();
    // The sheets and captions the recorded command line reads, made again outside the clock.
    const fs::path scratch = fs::path(lastPasses[0].back()).parent_path();
    fs::create_directories(scratch);
    const ExportPlan plan = ExportPlan::make(p.recording, p.take);
    const auto rect = Looks::pixels(1920, 1080, plan.look);
    LookPainter::write(LookPainter::background(*plan.look, {1920, 1080}, rect, p.folder), scratch / "look-bg.png");
    LookPainter::write(LookPainter::mask({int(rect.width), int(rect.height)},
                                         Looks::corner(rect.width, rect.height, plan.look)),
                       scratch / "look-mask.png");
    if (FILE* f = std::fopen((scratch / "captions.ass").c_str(), "w")) {
      const std::string ass = Subtitles::ass(plan.captions, p.recording.subtitles, 1920, 1080);
      std::fwrite(ass.data(), 1, ass.size(), f);
      std::fclose(f);
    }
    state.ResumeTiming();
    for (const auto& pass : lastPasses) {
      std::vector<char*> argv = {const_cast<char*>("/usr/bin/ffmpeg")};
      for (const auto& a : pass) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      posix_spawn_file_actions_t quiet;
      posix_spawn_file_actions_init(&quiet);
      posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
      pid_t pid;
      posix_spawn(&pid, "/usr/bin/ffmpeg", &quiet, nullptr, argv.data(), environ);
      posix_spawn_file_actions_destroy(&quiet);
      int status = 0;
      waitpid(pid, &status, 0);
      if (status != 0) state.SkipWithError("bare ffmpeg failed");
    }
    state.PauseTiming();
    fs::remove_all(scratch);
    state.ResumeTiming();
  }
}

// Planning and painting the sheets of a 1080p look, the work before ffmpeg starts.
void planAndPaint(benchmark::State& state) {
  auto& p = production();
  const fs::path out = fs::temp_directory_path() / "tavorin-bench-sheets";
  fs::create_directories(out);
  for (auto _ : state) {
    const ExportPlan plan = ExportPlan::make(p.recording, p.take);
    const auto rect = Looks::pixels(1920, 1080, plan.look);
    LookPainter::write(LookPainter::background(*plan.look, {1920, 1080}, rect, p.folder), out / "bg.png");
    LookPainter::write(LookPainter::mask({int(rect.width), int(rect.height)}, Looks::corner(rect.width, rect.height, plan.look)),
                       out / "mask.png");
  }
}

}  // namespace

BENCHMARK(planAndPaint)->Unit(benchmark::kMillisecond);
BENCHMARK(ours)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(bare)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
