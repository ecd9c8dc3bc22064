#pragma once
// A part-of-speech tagger: a hidden Markov model over tag trigrams, decoded by Viterbi.
//
// Its data (tagger.txt, built from festival's poslex lexicon and tag trigram counts) gives
// log P(word | tag) for known words and smoothed counts of tag trigrams. Words the lexicon
// lacks are guessed from their last letters, their shape (digits, capitals) and the
// open-class tags only.
//
// Tags come out as Penn Treebank tags in upper case. festival's own marks map as:
// "punc" to the punctuation itself (",", ".", ":", "``", "''", "(", ")"), "of" to "IN",
// "to" to "TO"; the rest are Penn's names.
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "speech/LexicalClass.hpp"

namespace tavorin {

class PosTagger {
public:
    explicit PosTagger(const std::filesystem::path& file);

    // One Penn tag for each word, in order.
    std::vector<std::string> tag(const std::vector<std::string>& words) const;

    // The word class the phonemiser reads, from a Penn tag and the word:
    //   NN NNS: Noun; NNP NNPS: PersonalName (the tagger cannot tell kinds of names);
    //   VB*, MD: Verb; JJ*: Adjective; RB*, WRB: Adverb; PRP PRP$ WP WP$ EX: Pronoun;
    //   DT PDT WDT: Determiner; IN: Preposition; TO, RP, POS: Particle; CC: Conjunction;
    //   CD: Number; UH: Interjection; FW SYM LS: OtherWord; punctuation by its character.
    static LexicalClass lexicalClass(std::string_view penn, std::string_view word);

private:
    struct Emission {
        std::uint8_t tag;
        float logp;
    };
    std::vector<Emission> candidates(const std::string& word, bool sentenceStart) const;
    std::vector<Emission> guess(const std::string& lowerWord) const;
    std::string pennName(std::uint8_t tag, const std::string& word) const;

    std::vector<std::string> tags_;
    std::size_t n_ = 0;
    std::vector<float> trigram_;  // log P(t3 | t1, t2), index (t1 * n + t2) * n + t3
    std::unordered_map<std::string, std::vector<Emission>> lexicon_;
    // log P(tag | last letters) for suffixes of 1 to 3 letters, over open-class tags.
    std::unordered_map<std::string, std::vector<Emission>> suffixes_;
    std::vector<float> openPrior_;
    std::vector<std::uint8_t> open_;
    std::uint8_t punc_ = 0, nnp_ = 0, cd_ = 0, nn_ = 0;
};

} // namespace tavorin
