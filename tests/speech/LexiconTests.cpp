#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "speech/Lexicon.hpp"

using namespace tavorin;

namespace {

const Lexicon& us() {
    static const auto lexicon = std::make_unique<Lexicon>(false, speechDataDirectory());
    return *lexicon;
}
const Lexicon& gb() {
    static const auto lexicon = std::make_unique<Lexicon>(true, speechDataDirectory());
    return *lexicon;
}

std::string read(const Lexicon& lex, const std::string& word, const std::string& penn = "", TokenContext ctx = {}) {
    MToken t;
    t.text = word;
    t.penn = penn;
    auto r = lex.transcribe(t, ctx);
    return r ? *r.phonemes : "(none)";
}

std::string reading(const Lexicon& lex, const std::string& word) {
    auto it = lex.golds().find(word);
    if (it == lex.golds().end()) return "(none)";
    if (auto s = std::get_if<std::string>(&it->second)) return *s;
    for (auto& [k, v] : std::get<Lexicon::TaggedReadings>(it->second))
        if (k == "DEFAULT" && v) return *v;
    return "(none)";
}

} // namespace

TEST(Lexicon, StressMarksMoveOnlyAsTheRulesSay) {
    EXPECT_EQ(Lexicon::applyStress("kˈæt", std::nullopt), "kˈæt");
    EXPECT_EQ(Lexicon::applyStress("kˈæt", 0), "kˌæt");
    EXPECT_EQ(Lexicon::applyStress("kˈæt", -0.5), "kˌæt");
    EXPECT_EQ(Lexicon::applyStress("kˌæt", 0), "kˌæt");
    EXPECT_EQ(Lexicon::applyStress("ˈæbəlˌOni", -2), "æbəlOni");
    EXPECT_EQ(Lexicon::applyStress("ˈæbəlˌOni", -1), "ˌæbəlOni");
    EXPECT_EQ(Lexicon::applyStress("kæt", 0.5), "kˌæt");  // the mark lands before the vowel
    EXPECT_EQ(Lexicon::applyStress("kæt", 2), "kˈæt");
    EXPECT_EQ(Lexicon::applyStress("kˌæt", 1), "kˈæt");
    EXPECT_EQ(Lexicon::applyStress("ʃ", 2), "ʃ");  // no vowel, nothing to stress
    EXPECT_EQ(Lexicon::restress("ˈstɹIk"), "stɹˈIk");
}

TEST(Lexicon, InflectionsComeFromTheirStems) {
    const auto& lex = us();
    // Each derived word is looked up only through its stem here, so the rule is what is tested.
    EXPECT_EQ(lex.pluralizeS("bˈæt"), "bˈæts");
    EXPECT_EQ(lex.pluralizeS("klˈæs"), "klˈæsᵻz");
    EXPECT_EQ(lex.pluralizeS("dˈɔɡ"), "dˈɔɡz");
    EXPECT_EQ(gb().pluralizeS("klˈɑːs"), "klˈɑːsɪz");
    EXPECT_EQ(lex.pastEd("wˈAt"), "wˈAɾᵻd");
    EXPECT_EQ(lex.pastEd("wˈɑnt"), "wˈɑntᵻd");
    EXPECT_EQ(lex.pastEd("nˈid"), "nˈidᵻd");
    EXPECT_EQ(lex.pastEd("wˈɔk"), "wˈɔkt");
    EXPECT_EQ(lex.pastEd("pˈʊl"), "pˈʊld");
    EXPECT_EQ(gb().pastEd("wˈAt"), "wˈAtɪd");
    EXPECT_EQ(lex.progIng("sˈɪt"), "sˈɪɾɪŋ");
    EXPECT_EQ(lex.progIng("ɹˈʌn"), "ɹˈʌnɪŋ");
    EXPECT_FALSE(gb().progIng("kˈɑːə"));

    const TokenContext none;
    EXPECT_EQ(*lex.stem_s("bats", {}, std::nullopt, none).phonemes, *lex.pluralizeS(reading(lex, "bat")));
    EXPECT_EQ(*lex.stem_s("cries", {}, std::nullopt, none).phonemes, *lex.pluralizeS(reading(lex, "cry")));
    EXPECT_EQ(*lex.stem_ed("waited", {}, std::nullopt, none).phonemes, "wˈAɾᵻd");
    EXPECT_EQ(*lex.stem_ing("running", {}, std::nullopt, none).phonemes, *lex.progIng(reading(lex, "run")));
    EXPECT_EQ(*lex.stem_ing("rating", {}, std::nullopt, none).phonemes, *lex.progIng(reading(lex, "rate")));
    EXPECT_FALSE(lex.stem_ing("bring", {}, std::nullopt, none));
    EXPECT_FALSE(lex.stem_s("as", {}, std::nullopt, none));
    // A word missing from both dictionaries but with a known stem reads through it.
    ASSERT_EQ(lex.golds().count("zebraing"), 0u);
    EXPECT_EQ(read(lex, "zebraing"), *lex.progIng(reading(lex, "zebra")));
}

TEST(Lexicon, NumbersCurrenciesAndYears) {
    const auto& lex = us();
    auto number = [&](const std::string& w, std::optional<std::string> currency = std::nullopt) {
        auto r = lex.getNumber(w, currency, true, "");
        return r ? *r.phonemes : "(none)";
    };
    EXPECT_EQ(number("5.50", "$"), "fˈIv dˌɑləɹz ˈænd fˌɪfti sˌɛnts");
    EXPECT_EQ(number("1", "$"), "wˈʌn dˌɑləɹ");
    EXPECT_NE(number("2.10", "£").find("pˌɛns"), std::string::npos);
    EXPECT_EQ(number("2.01", "£").find("pˌɛni"), std::string::npos);  // "pence" stays "pence"
    EXPECT_EQ(number("1905"), "nˈIntˌin ˌO fˌIv");
    EXPECT_EQ(number("1900"), "nˈIntˌin hˌʌndɹᵻd");
    EXPECT_EQ(number("21st"), "twˈɛnti fˌɜɹst");
    EXPECT_EQ(number("-5"), "mˈInəs fˌIv");
    EXPECT_EQ(number("3.5"), "θɹˈi pˌYnt fˌIv");
    EXPECT_EQ(number("1,000"), "wˈʌn θˌWzənd");
    EXPECT_EQ(number("1990s"), "nˈIntˌin nˌIntiz");
    EXPECT_EQ(number("3rd"), "θˈɜɹd");
    // Longer than any cardinal: digit by digit, never a crash or an overflow.
    const auto huge = number(std::string(500, '7'));
    EXPECT_NE(huge, "(none)");
    EXPECT_TRUE(Lexicon::isNumber("1,000.5", true));
    EXPECT_TRUE(Lexicon::isNumber("-3", true));
    EXPECT_TRUE(Lexicon::isNumber("80s", true));
    EXPECT_FALSE(Lexicon::isNumber("-3", false));
    EXPECT_FALSE(Lexicon::isNumber("3x", true));
    EXPECT_FALSE(Lexicon::isNumber(".", true));
    EXPECT_TRUE(Lexicon::isCurrency("5.50"));
    EXPECT_FALSE(Lexicon::isCurrency("5.505"));
}

TEST(Lexicon, SpecialWordsDependOnWhatFollows) {
    const auto& lex = us();
    MToken the;
    the.text = "the";
    the.tag = LexicalClass::Determiner;
    EXPECT_EQ(*lex.transcribe(the, {true, false}).phonemes, "ði");
    EXPECT_EQ(*lex.transcribe(the, {false, false}).phonemes, "ðə");
    MToken to;
    to.text = "to";
    to.penn = "TO";
    EXPECT_EQ(*lex.transcribe(to, {true, false}).phonemes, "tʊ");
    EXPECT_EQ(*lex.transcribe(to, {false, false}).phonemes, "tə");
    EXPECT_EQ(*lex.transcribe(to, {}).phonemes, reading(lex, "to"));
    EXPECT_EQ(read(lex, "U.S."), "jˌuˈɛs");
    EXPECT_EQ(read(lex, "read", "VBD"), "ɹˈɛd");
    EXPECT_EQ(read(lex, "read", "VBP"), "ɹˈid");
    EXPECT_EQ(read(lex, "record", "NN"), "ɹˈɛkəɹd");
    EXPECT_EQ(read(lex, "record", "VB"), "ɹəkˈɔɹd");
    EXPECT_EQ(read(lex, "live", "JJ"), "lˈIv");
    EXPECT_EQ(read(lex, "live", "VBP"), "lˈɪv");
    // An all-capital word the dictionary has in lower case reads as the word, stressed.
    EXPECT_EQ(read(lex, "CAT"), "kˈæt");
    // Known in any case, whatever the case it is written in.
    EXPECT_EQ(read(lex, "Hello"), read(lex, "hello"));
    EXPECT_EQ(lex.getNNP("TTS").phonemes, "tˌitˌiˈɛs");
    EXPECT_EQ(read(lex, "ʘʘ"), "(none)");
}

TEST(Lexicon, EveryGoldWordReadsAsItsEntry) {
    // By construction: a plain gold entry is exactly what the word reads as, stress and all.
    const auto& lex = us();
    std::size_t checked = 0;
    std::vector<std::string> wrong;
    for (const auto& [word, entry] : lex.golds()) {
        const auto* s = std::get_if<std::string>(&entry);
        if (!s) continue;
        const bool lowerWord = std::all_of(word.begin(), word.end(), [](char c) { return (c >= 'a' && c <= 'z') || c == '\''; });
        // These read by their neighbours and their tag before any dictionary.
        static const std::set<std::string> special{"a", "am", "an", "in", "to", "the", "by", "used", "vs"};
        if (!lowerWord || special.count(word)) continue;
        ++checked;
        if (read(lex, word) != *s) wrong.push_back(word + " " + read(lex, word) + " != " + *s);
    }
    EXPECT_GT(checked, 90000u);
    EXPECT_TRUE(wrong.empty()) << wrong.size() << " first: " << (wrong.empty() ? "" : wrong[0]);
}

TEST(Lexicon, BritishReadsItsOwnDictionary) {
    const auto& lex = gb();
    EXPECT_TRUE(lex.british());
    const std::string water = read(lex, "water");
    EXPECT_NE(water.find("ː"), std::string::npos) << water;
    EXPECT_EQ(water.find("ɾ"), std::string::npos) << water;
    EXPECT_TRUE(lex.inVocab(water));
}

TEST(Lexicon, MissingDictionaryIsFatalWithAPlainSentence) {
    try {
        Lexicon lex(false, "/nonexistent/speech");
        FAIL() << "a missing dictionary loaded";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("could not be read"), std::string::npos) << e.what();
    }
}
