// Pressing play plans the whole film on the main actor before the first sound.
#include <benchmark/benchmark.h>

#include <string>

#include "kit/Music.hpp"
#include "kit/PlaybackPlan.hpp"

using namespace tavorin;

namespace {

Recording production(int lines, int beds) {
  Recording recording("bench", "Bench");
  for (int i = 1; i <= lines; ++i) {
    TimelineItem item("l" + std::to_string(i), ItemType::line);
    item.start = i * 3.0;
    item.duration = 2.5;
    item.rate = i % 3 ? 1.0 : 1.25;
    if (i % 10) item.audio = "audio/l" + std::to_string(i) + ".wav";
    recording.timeline.push_back(item);
  }
  for (int i = 1; i <= beds; ++i) {
    auto bed = Music::item("m" + std::to_string(i), "music/bed" + std::to_string(i) + ".wav", i * 140.0, 180);
    bed.trimIn = 10;
    bed.trimOut = 150;
    recording.timeline.push_back(bed);
  }
  return recording;
}

void BM_PlaybackPlanMake(benchmark::State& state) {
  const auto recording = production(1000, 20);
  for (auto _ : state) {
    auto plan = PlaybackPlan::make(recording, 1234.5);
    benchmark::DoNotOptimize(plan);
  }
}
BENCHMARK(BM_PlaybackPlanMake)->Unit(benchmark::kMicrosecond);

}  // namespace
