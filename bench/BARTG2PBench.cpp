// The letters-to-phonemes model per word: greedy under 2 ms and the reranked beam under
// 10 ms are the targets.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "speech/BARTG2P.hpp"

namespace {

const std::vector<std::string> kWords{"zorblax", "quintessentially", "tavorinian", "brexiteer", "photobombing",
                                      "cryptocurrency", "unfollowing", "glamping", "hangry", "mansplain"};

tavorin::BARTG2P& model() {
    static const auto m = tavorin::BARTG2P::fromBundle();
    return *m;
}

void greedyWord(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(model().predict(kWords[i++ % kWords.size()], 1, 0, false));
}
BENCHMARK(greedyWord)->Unit(benchmark::kMillisecond);

void beamWord(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(model().predict(kWords[i++ % kWords.size()], 4, 0, false));
}
BENCHMARK(beamWord)->Unit(benchmark::kMillisecond);

void rerankedWord(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(model().predictWithLMRescore(kWords[i++ % kWords.size()]));
}
BENCHMARK(rerankedWord)->Unit(benchmark::kMillisecond);

void loadModel(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(tavorin::BARTG2P::fromBundle());
}
BENCHMARK(loadModel)->Unit(benchmark::kMillisecond);

} // namespace
