// Saving a version reads and rewrites the manifest, which lists every version, so
// a save costs more the longer the history: about 1 ms for the first versions and
// 3 to 5.6 ms at 2,000 (`versions` about 4.4 ms); here, on a loaded two-core
// machine, 0.65 ms CPU (2.2 ms wall) at 1 and 3.1 ms CPU (11 ms wall) at 2,000.
// Fine for people's histories; this benchmark is here so it does not get worse.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "kit/Recording.hpp"
#include "kit/RecordingStore.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

Recording film() {
  Recording r("bench", "Bench");
  for (int i = 1; i <= 40; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.text = "Line number " + std::to_string(i) + " of the narration.";
    line.start = i * 3.0;
    line.hold = 2.5;
    r.timeline.push_back(line);
  }
  return r;
}

// A save on top of a history of `state.range(0)` versions.
void SaveWithHistory(benchmark::State& state) {
  const fs::path dir = fs::temp_directory_path() / ("tavorin-save-bench-" + std::to_string(::getpid()));
  fs::remove_all(dir);
  const RecordingStore store(dir);
  const Recording r = film();
  auto when = std::chrono::system_clock::now();
  for (long i = 0; i < state.range(0); ++i) store.saveNewVersion(r, when += std::chrono::seconds(1));
  // Each round adds one more; a few hundred rounds on 2,000 barely move the figure.
  for (auto _ : state) store.saveNewVersion(r, when += std::chrono::seconds(1));
  fs::remove_all(dir);
}
BENCHMARK(SaveWithHistory)->Arg(1)->Arg(2000)->Unit(benchmark::kMillisecond);

}  // namespace
