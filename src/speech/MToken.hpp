#pragma once
// A token of the phonemiser's walk, its working notes and what the next word tells it.
#include <cstddef>
#include <optional>
#include <string>

#include "speech/LexicalClass.hpp"

namespace tavorin {

struct Underscore {
    bool is_head = true;
    std::optional<std::string> alias;
    std::optional<double> stress;
    std::optional<std::string> currency;
    std::string num_flags;
    bool prespace = false;
    // 5 user-given, 4 gold or tagged, 3 silver or derived, 2 model, 1 unknown.
    std::optional<int> rating;
};

struct TokenRange {
    std::size_t begin = 0;  // byte offsets into the preprocessed text
    std::size_t end = 0;
};

struct MToken {
    std::string text;
    TokenRange tokenRange;
    std::optional<LexicalClass> tag;
    // The tagger's Penn Treebank tag for the word; empty when it had none.
    std::string penn;
    std::string whitespace;
    std::optional<std::string> phonemes;
    std::optional<double> start_ts, end_ts;
    Underscore meta;
};

struct TokenContext {
    std::optional<bool> futureVowel;
    bool futureTo = false;
};

} // namespace tavorin
