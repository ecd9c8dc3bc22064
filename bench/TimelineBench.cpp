// timeline.items recomputes every block of the timeline and reports it on each call,
// as does the canvas on each frame: it must stay well under a millisecond.
#include <benchmark/benchmark.h>

#include <string>

#include "operator/JSONValue.hpp"
#include "app/service/TimelineReport.hpp"
#include "kit/TimelineGeometry.hpp"

using namespace tavorin;

namespace {

Recording productionOf(int lines, int segments, int zooms) {
  Recording r("bench", "Bench");
  for (int i = 1; i <= lines; ++i) {
    TimelineItem item("l" + std::to_string(i), ItemType::line);
    item.start = i * 3.0;
    item.duration = 2.5;
    item.text = "Line number " + std::to_string(i) + " of the narration.";
    r.timeline.push_back(item);
  }
  std::vector<Segment> cut;
  for (int i = 0; i < segments; ++i) cut.push_back({"s" + std::to_string(i + 1), {}, i * 16.0, i * 16.0 + 15, {}});
  r.segments = cut;
  std::vector<Zoom> zs;
  for (int i = 0; i < zooms; ++i) zs.push_back({"z" + std::to_string(i + 1), i * 30.0, i * 30.0 + 2, 2, {}, {}, {}});
  r.zooms = zs;
  return r;
}

void TimelineItems(benchmark::State& state) {
  const Recording r = productionOf(1000, 200, 100);
  const auto lanes = TimelineGeometry::offered(false);
  for (auto _ : state) {
    // What the verb does on each call: the geometry, then the report from it.
    TimelineGeometry g(r, 3200, 40, lanes);
    JSONValue items = TimelineReport::items(g, r);
    benchmark::DoNotOptimize(items);
  }
}
BENCHMARK(TimelineItems)->Unit(benchmark::kMicrosecond);

void HitTest(benchmark::State& state) {
  const Recording r = productionOf(1000, 200, 100);
  TimelineGeometry g(r, 3200, 40, TimelineGeometry::offered(false));
  double x = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(g.hit(x, 140));
    x = x > 120000 ? 0 : x + 997;
  }
}
BENCHMARK(HitTest);

}  // namespace

namespace {

// The blocks alone, without the report: what the canvas pays on each frame.
void GeometryOnly(benchmark::State& state) {
  const Recording r = productionOf(1000, 200, 100);
  const auto lanes = TimelineGeometry::offered(false);
  for (auto _ : state) {
    TimelineGeometry g(r, 3200, 40, lanes);
    benchmark::DoNotOptimize(g);
  }
}
BENCHMARK(GeometryOnly)->Unit(benchmark::kMicrosecond);

}  // namespace
