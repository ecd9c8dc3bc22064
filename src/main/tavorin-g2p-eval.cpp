// tavorin-g2p-eval: how well and how fast the letters-to-phonemes model reads words it was
// not trained on. Reads word<TAB>phonemes lines (the held-out slice that
// tools/build_phoneme_trigram.py writes) and prints the phoneme and word error rates of
// greedy decoding, beam search and the reranked answer, with the time a word takes.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "speech/BARTG2P.hpp"
#include "speech/Utf8.hpp"

namespace {

struct Tally {
    long long errors = 0, length = 0, wrongWords = 0, words = 0;
    double seconds = 0;
    void add(const std::string& got, const std::string& want, double s) {
        const int e = tavorin::BARTG2P::phonemeEditDistance(got, want);
        errors += e;
        length += static_cast<long long>(tavorin::utf8::decode(want).size());
        wrongWords += e > 0;
        ++words;
        seconds += s;
    }
    void print(const char* name) const {
        std::cout << std::left << std::setw(10) << name << std::fixed << std::setprecision(2) << " PER "
                  << 100.0 * static_cast<double>(errors) / static_cast<double>(std::max(1LL, length)) << "%  WER "
                  << 100.0 * static_cast<double>(wrongWords) / static_cast<double>(std::max(1LL, words)) << "%  "
                  << std::setprecision(3) << 1000.0 * seconds / static_cast<double>(std::max(1LL, words)) << " ms/word\n";
    }
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "Usage: tavorin-g2p-eval SLICE.tsv [--limit N] [--beam N] [--candidates OUT.tsv]\n";
        return 2;
    }
    std::size_t limit = 0;
    int beam = 4;
    std::string candidatesPath;
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string a = argv[i];
        if (a == "--limit") limit = std::strtoul(argv[i + 1], nullptr, 10);
        else if (a == "--beam") beam = std::atoi(argv[i + 1]);
        else if (a == "--candidates") candidatesPath = argv[i + 1];
    }
    std::ifstream in(argv[1]);
    if (!in) {
        std::cerr << "The slice " << argv[1] << " can't be read.\n";
        return 1;
    }
    std::vector<std::pair<std::string, std::string>> pairs;
    for (std::string line; std::getline(in, line);)
        if (auto tab = line.find('\t'); tab != std::string::npos) pairs.emplace_back(line.substr(0, tab), line.substr(tab + 1));
    if (limit && pairs.size() > limit) pairs.resize(limit);
    const auto model = tavorin::BARTG2P::fromBundle();
    if (!model) {
        std::cerr << "The model didn't load.\n";
        return 1;
    }
    using Clock = std::chrono::steady_clock;
    const auto timed = [](auto&& f) {
        const auto t0 = Clock::now();
        auto r = f();
        return std::make_pair(std::move(r), std::chrono::duration<double>(Clock::now() - t0).count());
    };
    Tally greedy, beamed, reranked;
    std::ofstream candidates;
    if (!candidatesPath.empty()) candidates.open(candidatesPath);
    model->predictWithLMRescore("warm");
    for (const auto& [word, want] : pairs) {
        auto [g, gs] = timed([&] { return model->predict(word, 1, 0, false); });
        greedy.add(g.value_or(""), want, gs);
        auto [b, bs] = timed([&] { return model->predict(word, beam, 0, false); });
        beamed.add(b.value_or(""), want, bs);
        auto [r, rs] = timed([&] { return model->predictWithLMRescore(word); });
        reranked.add(r.value_or(""), want, rs);
        if (candidates)
            for (const auto& [p, lp] : model->predictNBestScored(word, 8, 0, 1.5f))
                candidates << word << '\t' << want << '\t' << p << '\t' << lp << '\t' << model->trigramScore(p) << '\n';
    }
    std::cout << pairs.size() << " words\n";
    greedy.print("greedy");
    beamed.print(("beam " + std::to_string(beam)).c_str());
    reranked.print("reranked");
    return 0;
}
