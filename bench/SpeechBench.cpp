// The phonemiser's speed: loading its data, and running English through the whole pipeline.
// Targets: dictionaries load in under 300 ms; at least 50,000 words a second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>

#include "speech/EnglishG2P.hpp"

using namespace tavorin;

namespace {

// 10,000 words of running English: word-list words between common function words, with
// numbers, money, years and ordinals among them. Seeded, so every run reads the same text.
std::string runningText(const EnglishG2P& g2p, std::size_t words) {
    std::vector<std::string> pool;
    std::ifstream list("/usr/share/dict/american-english");
    for (std::string w; std::getline(list, w);)
        if (!w.empty() && w.find('\'') == std::string::npos) pool.push_back(w);
    if (pool.empty())
        for (const auto& [w, e] : g2p.lexicon().golds()) pool.push_back(w);
    std::sort(pool.begin(), pool.end());
    static const char* function[] = {"the", "a", "of", "to", "and", "in", "is", "that", "it", "for", "was", "on", "with", "as", "by"};
    static const char* numbers[] = {"1,234", "$5.50", "1905", "21st", "3.14", "42", "£20", "1990s", "7th", "2024"};
    std::mt19937 rng(7);
    std::ostringstream out;
    for (std::size_t i = 0; i < words; ++i) {
        const auto r = rng() % 20;
        if (r < 8) out << function[rng() % std::size(function)];
        else if (r == 8) out << numbers[rng() % std::size(numbers)];
        else out << pool[rng() % pool.size()];
        out << ((i + 1) % 14 == 0 ? ". " : (i + 1) % 5 == 0 ? ", " : " ");
    }
    return out.str();
}

EnglishG2P& shared() {
    static EnglishG2P g2p(false);
    return g2p;
}

} // namespace

static void BM_LoadLexicon(benchmark::State& state) {
    for (auto _ : state) {
        Lexicon lexicon(false, speechDataDirectory());
        benchmark::DoNotOptimize(lexicon.golds().size());
    }
}
BENCHMARK(BM_LoadLexicon)->Unit(benchmark::kMillisecond)->Iterations(3);

static void BM_LoadPhonemiser(benchmark::State& state) {
    for (auto _ : state) {
        EnglishG2P g2p(false);
        benchmark::DoNotOptimize(&g2p);
    }
}
BENCHMARK(BM_LoadPhonemiser)->Unit(benchmark::kMillisecond)->Iterations(3);

static void BM_Phonemize10kWords(benchmark::State& state) {
    auto& g2p = shared();
    const std::string text = runningText(g2p, 10000);
    for (auto _ : state) benchmark::DoNotOptimize(g2p.phonemize(text));
    state.counters["words/s"] = benchmark::Counter(10000.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Phonemize10kWords)->Unit(benchmark::kMillisecond);

// Every lower-case gold word through the whole pipeline; "differ" counts the words whose
// reading is not their entry (the unit test checks a seeded sample of the same).
static void BM_WholeGoldDictionary(benchmark::State& state) {
    auto& g2p = shared();
    std::vector<std::pair<std::string, const Lexicon::Entry*>> words;
    for (const auto& [w, e] : g2p.lexicon().golds())
        if (w.size() > 1 && std::all_of(w.begin(), w.end(), [](char c) { return c >= 'a' && c <= 'z'; })) words.emplace_back(w, &e);
    static const char* special[] = {"am", "an", "in", "to", "the", "by", "used", "vs"};
    double differ = 0;
    for (auto _ : state) {
        differ = 0;
        for (const auto& [w, e] : words) {
            if (std::find(std::begin(special), std::end(special), w) != std::end(special)) continue;
            std::string got = g2p.phonemize(w);
            for (std::size_t p = got.find('T'); p != std::string::npos; p = got.find('T', p + 1)) got.replace(p, 1, "ɾ");
            bool ok = false;
            if (auto s = std::get_if<std::string>(e)) ok = got == *s;
            else
                for (const auto& [tag, r] : std::get<Lexicon::TaggedReadings>(*e)) ok = ok || (r && got == *r);
            differ += ok ? 0 : 1;
        }
    }
    state.counters["words"] = static_cast<double>(words.size());
    state.counters["differ"] = differ;
}
BENCHMARK(BM_WholeGoldDictionary)->Unit(benchmark::kMillisecond)->Iterations(1);
