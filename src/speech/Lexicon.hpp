#pragma once
// What a word sounds like: two pronunciation dictionaries (gold, then silver) and the rules
// on top of them: special words, -s/-ed/-ing derived from stems, numbers, currencies,
// acronyms and stress.
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "speech/EnglishNum2Word.hpp"
#include "speech/MToken.hpp"

namespace tavorin {

// A word's reading and how sure it is (see Underscore::rating).
struct Reading {
    std::optional<std::string> phonemes;
    std::optional<int> rating;
    explicit operator bool() const { return phonemes.has_value(); }
};

// The tag a look-up is asked under: the word class and the Penn tag.
struct WordTag {
    std::optional<LexicalClass> cls;
    std::string penn;
};

class Lexicon {
public:
    // One reading, or readings keyed by tag ("DEFAULT" the general one; a null reading says none).
    using TaggedReadings = std::vector<std::pair<std::string, std::optional<std::string>>>;
    using Entry = std::variant<std::string, TaggedReadings>;
    using Dictionary = std::unordered_map<std::string, Entry>;

    // Reads the dictionaries of the chosen variety from dataDirectory; a missing or damaged
    // file throws, since the library ships them.
    Lexicon(bool british, const std::filesystem::path& dataDirectory);

    Reading transcribe(const MToken& token, const TokenContext& ctx) const;
    std::optional<std::string> phonemesForWord(const std::string& word) const;
    Reading getNNP(const std::string& word) const;
    bool isKnown(const std::string& word) const;
    bool british() const { return british_; }
    bool inVocab(std::string_view phonemes) const;

    Reading getWord(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const;
    Reading lookup(std::string word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const;
    Reading getSpecialCase(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const;
    Reading getNumber(std::string word, const std::optional<std::string>& currency, bool isHead, const std::string& numFlags) const;
    Reading stem_s(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const;
    Reading stem_ed(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const;
    Reading stem_ing(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const;
    std::optional<std::string> pluralizeS(const std::string& stem) const;
    std::optional<std::string> pastEd(const std::string& stem) const;
    std::optional<std::string> progIng(const std::string& stem) const;

    static std::string applyStress(const std::string& phonemes, std::optional<double> stress);
    static std::string restress(const std::string& phonemes);
    static std::string getParentTag(const WordTag& tag);
    static bool isNumber(const std::string& word, bool isHead);
    static bool isCurrency(const std::string& word);
    // Symbol to the names of its large and small unit.
    static const std::map<std::string, std::pair<std::string, std::string>>& currencies();

    const Dictionary& golds() const { return golds_; }
    const Dictionary& silvers() const { return silvers_; }
    const EnglishNum2Word& num2Words() const { return num2Words_; }
    static constexpr std::pair<double, double> capStresses{0.5, 2.0};

private:
    const std::string* goldString(const std::string& word) const;
    std::optional<std::string> appendCurrency(const std::string& phonemes, const std::string& currencyWord, bool plural) const;
    std::optional<std::string> numberWords(const std::string& words) const;

    bool british_;
    EnglishNum2Word num2Words_;
    Dictionary golds_;
    Dictionary silvers_;
    std::u32string vocab_;
};

// Words the dictionary lists in lower case also stand capitalised, and the other way round.
void growDictionary(Lexicon::Dictionary& dict);

// The folder of the speech data: $TAVORIN_SPEECH_DATA, the installed share/tavorin/speech
// beside the program, or the source tree's resources/speech.
std::filesystem::path speechDataDirectory();

} // namespace tavorin
