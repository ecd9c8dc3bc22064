// The script editor re-reads the whole script and re-places its cues on every edit.
#include <benchmark/benchmark.h>

#include <string>

#include "kit/Blocking.hpp"
#include "kit/BlockingLexer.hpp"
#include "kit/Schedule.hpp"

using namespace tavorin;

namespace {

Recording productionOf(int lines) {
  Recording recording("bench", "Bench");
  for (int i = 1; i <= lines; ++i) {
    TimelineItem item(std::string("l").append(std::to_string(i)), ItemType::line);
    item.start = i * 3.0;
    item.duration = 2.5;
    item.text = "Line number " + std::to_string(i) + " of the narration.";
    recording.timeline.push_back(item);
  }
  return recording;
}

// Cue sections of anchored blocks, each block a header and a handful of steps, with
// comments and blank lines as people write them: 2,000 lines in all.
std::string scriptOf(int lines, int productionLines) {
  static const char* steps[] = {
      "        click 1736 88               # Add, in the top bar",
      "        wait 0.8",
      "        type \"Dishwasher receipt bought in March\"",
      "        move 1240 610 over 0.8s",
      "        key cmd+shift+p",
      "        scroll -480 over 1.2s",
  };
  std::string script = "app \"Firefox\"\nopen \"https://halden.example/home\"\nwait 1\n";
  int written = 3;
  for (int block = 0; written < lines; ++block) {
    if (block % 4 == 0) {
      script += "\ncue section-" + std::to_string(block / 4) + "\n";
      written += 2;
    }
    script += "    with l" + std::to_string(block % productionLines + 1) + " offset 0.4:\n";
    ++written;
    for (int i = 0; i < 6 && written < lines; ++i, ++written) script += std::string(steps[i]) + "\n";
  }
  return script;
}

const Recording production = productionOf(1000);
const std::string script = scriptOf(2000, 1000);

void ParseAndCue(benchmark::State& state) {
  for (auto _ : state) {
    auto cues = Schedule::cues(Blocking::parse(script), production);
    benchmark::DoNotOptimize(cues);
  }
}
BENCHMARK(ParseAndCue)->Unit(benchmark::kMillisecond);

void Parse(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Blocking::parse(script));
}
BENCHMARK(Parse)->Unit(benchmark::kMillisecond);

void Tokens(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(BlockingLexer::tokens(script));
}
BENCHMARK(Tokens)->Unit(benchmark::kMillisecond);

void Diagnostics(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Blocking::diagnostics(script, production));
}
BENCHMARK(Diagnostics)->Unit(benchmark::kMillisecond);

}  // namespace
