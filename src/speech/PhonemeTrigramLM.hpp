#pragma once
// A trigram model of phoneme sequences with add-one smoothing, for telling a likely
// pronunciation from an odd one among the model's candidates.
#include <filesystem>
#include <map>
#include <string>
#include <unordered_map>

namespace tavorin {

class PhonemeTrigramLM {
public:
    // The file: a first line "vocab N", then one trigram a line: three symbols and a count,
    // separated by spaces, "^" standing for the start of the word.
    explicit PhonemeTrigramLM(const std::filesystem::path& url);
    static PhonemeTrigramLM fromText(const std::string& text);

    // The mean log-probability of the phonemes (stress, length and tie marks ignored);
    // 0 for a string of under two phonemes.
    double logProb(const std::string& phonemes) const;
    int vocabSize() const { return vocabSize_; }

private:
    PhonemeTrigramLM() = default;
    void parse(const std::string& text);

    std::unordered_map<std::u32string, std::unordered_map<char32_t, int>> counts_;
    std::unordered_map<std::u32string, long long> ctxTotals_;
    int vocabSize_ = 0;
};

} // namespace tavorin
