#include "speech/PhonemeTrigramLM.hpp"

#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "speech/Utf8.hpp"

namespace tavorin {

namespace {

constexpr char32_t kStart = U'^';

bool ignored(char32_t c) { return c == U'ˈ' || c == U'ˌ' || c == U'ː' || c == U'\u0361' || c == U'\u035C' || c == U' '; }

} // namespace

PhonemeTrigramLM::PhonemeTrigramLM(const std::filesystem::path& url) {
    std::ifstream in(url, std::ios::binary);
    if (!in) throw std::runtime_error("The phoneme language model " + url.string() + " can't be read.");
    parse(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
}

PhonemeTrigramLM PhonemeTrigramLM::fromText(const std::string& text) {
    PhonemeTrigramLM lm;
    lm.parse(text);
    return lm;
}

void PhonemeTrigramLM::parse(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    std::size_t lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        if (line.empty()) continue;
        std::istringstream fields(line);
        if (lineNo == 1) {
            std::string key;
            if (!(fields >> key >> vocabSize_) || key != "vocab" || vocabSize_ <= 0)
                throw std::runtime_error("The phoneme language model doesn't begin with its vocabulary size.");
            continue;
        }
        std::string a, b, c;
        long long n = 0;
        if (!(fields >> a >> b >> c >> n) || n <= 0)
            throw std::runtime_error("The phoneme language model has a bad line " + std::to_string(lineNo) + ".");
        const auto ua = utf8::decode(a), ub = utf8::decode(b), uc = utf8::decode(c);
        if (ua.size() != 1 || ub.size() != 1 || uc.size() != 1)
            throw std::runtime_error("The phoneme language model has a bad line " + std::to_string(lineNo) + ".");
        const std::u32string ctx = ua + ub;
        counts_[ctx][uc[0]] += static_cast<int>(n);
        ctxTotals_[ctx] += n;
    }
    if (vocabSize_ <= 0) throw std::runtime_error("The phoneme language model is empty.");
}

double PhonemeTrigramLM::logProb(const std::string& phonemes) const {
    std::vector<char32_t> seq{kStart};
    for (char32_t c : utf8::decode(phonemes))
        if (!ignored(c)) seq.push_back(c);
    if (seq.size() < 3) return 0.0;
    double sum = 0;
    std::u32string ctx(2, U' ');
    for (std::size_t i = 2; i < seq.size(); ++i) {
        ctx[0] = seq[i - 2];
        ctx[1] = seq[i - 1];
        long long count = 0, total = 0;
        if (auto t = ctxTotals_.find(ctx); t != ctxTotals_.end()) {
            total = t->second;
            const auto& next = counts_.at(ctx);
            if (auto n = next.find(seq[i]); n != next.end()) count = n->second;
        }
        sum += std::log(static_cast<double>(count + 1) / static_cast<double>(total + vocabSize_));
    }
    return sum / static_cast<double>(seq.size() - 2);
}

} // namespace tavorin
