#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>

#include "speech/EnglishG2P.hpp"

using namespace tavorin;

namespace {

EnglishG2P& us() {
    static const auto g2p = std::make_unique<EnglishG2P>(false);
    return *g2p;
}

std::string say(const std::string& text) { return us().phonemize(text); }

std::string flapped(std::string s) {
    for (std::size_t p = s.find("ɾ"); p != std::string::npos; p = s.find("ɾ", p + 1)) s.replace(p, std::string("ɾ").size(), "T");
    return s;
}

class CountingModel : public G2PModel {
public:
    std::optional<std::string> predict(const std::string& word) override {
        asked.push_back(word);
        return answer;
    }
    std::vector<std::string> asked;
    std::optional<std::string> answer = "mˈɑdᵊl";
};

} // namespace

TEST(EnglishG2P, GoldWordsPhonemiseToTheirEntries) {
    // A seeded sample through the whole pipeline: tagging, sub-tokens, the walk, the output.
    const auto& golds = us().lexicon().golds();
    std::vector<std::string> words;
    static const std::set<std::string> special{"a", "am", "an", "in", "to", "the", "by", "used", "vs", "i"};
    for (const auto& [word, entry] : golds)
        if (std::all_of(word.begin(), word.end(), [](char c) { return c >= 'a' && c <= 'z'; }) && word.size() > 1 && !special.count(word))
            words.push_back(word);
    std::sort(words.begin(), words.end());
    std::mt19937 rng(20261123);
    std::shuffle(words.begin(), words.end(), rng);
    words.resize(std::min<std::size_t>(words.size(), 20000));
    std::vector<std::string> wrong;
    for (const auto& w : words) {
        const auto& entry = golds.at(w);
        const std::string got = say(w);
        bool ok = false;
        if (auto s = std::get_if<std::string>(&entry)) ok = got == flapped(*s);
        else
            for (const auto& [tag, r] : std::get<Lexicon::TaggedReadings>(entry)) ok = ok || (r && got == flapped(*r));
        if (!ok) wrong.push_back(w + ": " + got);
    }
    EXPECT_TRUE(wrong.empty()) << wrong.size() << " differ, first " << wrong.front();
}

TEST(EnglishG2P, NeighboursDecideTheAndTo) {
    EXPECT_EQ(say("the apple"), "ði ˈæpᵊl");
    EXPECT_EQ(say("the pear"), "ðə pˈɛɹ");
    EXPECT_EQ(say("to eat"), "tʊ ˈit");
    EXPECT_EQ(say("to go"), "tə ɡˈO");
    // A pause after "the" leaves the next word's sound unknown.
    EXPECT_EQ(say("I want to."), "ˈI wˈɑnt tˈu.");
}

TEST(EnglishG2P, HeteronymsFollowTheTagger) {
    EXPECT_EQ(say("I have read the book."), "ˈI hˈæv ɹˈɛd ðə bˈʊk.");
    EXPECT_EQ(say("I will read the book."), "ˈI wˈɪl ɹˈid ðə bˈʊk.");
    EXPECT_EQ(say("a live concert"), "ə lˈIv kˈɑnsəɹt");
    EXPECT_EQ(say("They live here."), "ðˈA lˈɪv hˈɪɹ.");
    EXPECT_EQ(say("We record the record."), "wˈi ɹəkˈɔɹd ðə ɹˈɛkəɹd.");
    EXPECT_EQ(say("I used to go."), "ˈI jˈust tə ɡˈO.");
    EXPECT_EQ(say("It is used."), "ˈɪt ˈɪz jˈuzd.");
}

TEST(EnglishG2P, NumbersCurrencyAndAbbreviations) {
    EXPECT_EQ(say("$5.50"), "fˈIv dˌɑləɹz ˈænd fˌɪfti sˌɛnts");
    EXPECT_EQ(say("£2.10"), "tˈu pˌWndz ˈænd tˌɛn pˌɛns");
    EXPECT_EQ(say("$1"), "wˈʌn dˌɑləɹ");
    EXPECT_EQ(say("$20/month"), "twˈɛnti dˌɑləɹz mˈʌnθ");
    // A word between the symbol and a number ends the symbol's reach.
    EXPECT_EQ(say("$ off 5"), " ˈɔf fˈIv");
    EXPECT_EQ(say("in 1905"), "ɪn nˈIntˌin ˌO fˌIv");
    EXPECT_EQ(say("the 21st"), "ðə twˈɛnti fˌɜɹst");
    EXPECT_EQ(say("50%"), "fˈɪfti pəɹsˈɛnt");
    EXPECT_EQ(say("the U.S."), "ðə jˌuˈɛs");
    EXPECT_EQ(say("R&D"), "ˈɑɹ ˈænd dˈi");
    EXPECT_EQ(say("-5"), "mˈInəs fˌIv");
}

TEST(EnglishG2P, SubTokensHyphensAndCamelCase) {
    EXPECT_EQ(say("well-known"), "wˈɛl nˈOn");
    EXPECT_EQ(say("yes - no"), "jˈɛs — nˈO");
    EXPECT_EQ(say("wait-"), "wˈAt—");
    EXPECT_EQ(say("me2you"), "mˈitˈujˈu");
    // Unknown to both dictionaries: the camel case pieces read on their own.
    EXPECT_EQ(say("zebraQuokka"), say("zebra") + " " + say("quokka"));
    // "ɾ" in a dictionary entry comes out as "T".
    EXPECT_EQ(say("water"), "wˈɔTəɹ");
}

TEST(EnglishG2P, GivenPhonemesAndStressFromLinks) {
    auto [text, tokens] = us().phonemize("[Kokoro](/kˈOkəɹO/) speaks", true);
    EXPECT_EQ(text, "kˈOkəɹO spˈiks");
    ASSERT_FALSE(tokens.empty());
    EXPECT_EQ(tokens[0].meta.rating, 5);
    // A stress value lowers a word's mark.
    EXPECT_EQ(say("[cat](-0.5)"), "kˌæt");
    EXPECT_EQ(say("[cat](-2)"), "kæt");
    EXPECT_EQ(say("[cat](2)"), "kˈæt");
}

TEST(EnglishG2P, UnknownWordsSpellOrAskTheModel) {
    EnglishG2P g2p(false, "❓");
    // Capitals unknown to the dictionaries are spelled; other unknown words go to the model first.
    auto model = std::make_shared<CountingModel>();
    g2p.setModel(model);
    EXPECT_EQ(g2p.phonemize("QXZJ"), "kjˌuˌɛkszˌiʤˈA");
    EXPECT_EQ(g2p.phonemize("QXZJV"), "kjˌuˌɛkszˌiʤˌAvˈi");
    EXPECT_TRUE(model->asked.empty());
    EXPECT_EQ(g2p.phonemize("qxzjv"), "mˈɑdᵊl");
    EXPECT_EQ(model->asked, std::vector<std::string>{"qxzjv"});
    // With no answer from the model, and none without one, letters are read by name.
    model->answer.reset();
    EXPECT_EQ(g2p.phonemize("qxzjv"), "kjˌuˌɛkszˌiʤˌAvˈi");
    g2p.setModel(nullptr);
    EXPECT_EQ(g2p.phonemize("qxzjv"), "kjˌuˌɛkszˌiʤˌAvˈi");
    EXPECT_EQ(model->asked.size(), 2u);
    // Nothing readable at all stands as the unknown mark.
    EXPECT_EQ(g2p.phonemize("ʘ"), "❓");
}

TEST(EnglishG2P, TokensCarryTagsAndRatings) {
    auto [text, tokens] = us().phonemize("The cat sat.", true);
    ASSERT_EQ(tokens.size(), 4u);
    EXPECT_EQ(tokens[0].tag, LexicalClass::Determiner);
    EXPECT_EQ(tokens[1].tag, LexicalClass::Noun);
    EXPECT_EQ(tokens[2].tag, LexicalClass::Verb);
    EXPECT_EQ(tokens[3].tag, LexicalClass::SentenceTerminator);
    EXPECT_EQ(tokens[1].meta.rating, 4);
    EXPECT_EQ(tokens[1].whitespace, " ");
    // A capitalised word is stressed a little.
    EXPECT_EQ(text, "ðˌə kˈæt sˈæt.");
}

TEST(EnglishG2P, BritishUsesItsOwnVowels) {
    EnglishG2P gb(true);
    const std::string water = gb.phonemize("water");
    EXPECT_NE(water.find("ː"), std::string::npos) << water;
    EXPECT_EQ(water.find("T"), std::string::npos) << water;
    EXPECT_EQ(gb.phonemize("waited").find("ɪd"), gb.phonemize("waited").size() - std::string("ɪd").size());
    EXPECT_EQ(gb.phonemize("I have read a book."), "ˈI hˈav ɹˈɛd ə bˈʊk.");
    EXPECT_EQ(gb.phonemize("We record the record."), "wˈiː ɹɪkˈɔːd ðə ɹˈɛkɔːd.");
}

TEST(EnglishG2P, BadInputNeverCrashesOrHangs) {
    EXPECT_EQ(say(""), "");
    EXPECT_TRUE(us().phonemize("", true).second.empty());
    EXPECT_EQ(say("   \n\t "), "");
    EXPECT_EQ(say("?!..."), "?!...");
    EXPECT_EQ(say("$"), "");
    EXPECT_FALSE(say("1e309").empty());
    EXPECT_FALSE(say(std::string(500, '9')).empty());
    EXPECT_EQ(say(std::string(500, '9')).find("❓"), std::string::npos);
    EXPECT_NO_THROW(say("caf\xC3\xA9 \xFF\xFE bad \xC3 bytes"));
    EXPECT_NO_THROW(say("bell\x07 null\x01 tab\x1B"));
    EXPECT_NO_THROW(say("hello 😀🎉 world"));
    EXPECT_NO_THROW(say("hello мир 世界 مرحبا"));
    EXPECT_NO_THROW(say("[unclosed](link [x]( ]("));
    // A megabyte on one line.
    std::string big;
    while (big.size() < 1000000) big += "The quick brown fox, 42 times, jumps over 3.5 lazy dogs! ";
    const std::string out = say(big);
    EXPECT_GT(out.size(), big.size() / 2);
}

TEST(EnglishG2P, PreprocessTurnsLinksIntoFeatures) {
    const auto pre = EnglishG2P::preprocess("  say [this](0.5) and [that](-2) as [it](/ɪt/) or [2](#n#) [x](junk)  ");
    EXPECT_EQ(pre.text, "say this and that as it or 2 x");
    ASSERT_EQ(pre.features.size(), 4u);
    EXPECT_EQ(std::get<double>(pre.features[0].value), 0.5);
    EXPECT_EQ(pre.text.substr(pre.features[0].tokenRange.begin, pre.features[0].tokenRange.end - pre.features[0].tokenRange.begin), "this");
    EXPECT_EQ(std::get<long long>(pre.features[1].value), -2);
    EXPECT_EQ(std::get<std::string>(pre.features[2].value), "/ɪt");
    EXPECT_EQ(std::get<std::string>(pre.features[3].value), "#n");
    EXPECT_EQ(pre.tokens, (std::vector<std::string>{"say", "this", "and", "that", "as", "it", "or", "2", "x"}));
    // The "n" flag drops the connecting "and" of a number.
    EXPECT_EQ(say("[101](#n#)"), "wˈʌn hˌʌndɹᵻd wˌʌn");
}

TEST(EnglishG2P, MergedTokensCombineTheirNotes) {
    MToken a, b;
    a.text = "Kokoro";
    a.whitespace = " ";
    a.tag = LexicalClass::PersonalName;
    a.meta.stress = 1;
    a.meta.num_flags = "n";
    a.meta.rating = 4;
    a.phonemes = "kˈOkəɹO";
    b.text = "tts";
    b.whitespace = "\n";
    b.tag = LexicalClass::Noun;
    b.meta.stress = 1;
    b.meta.num_flags = "a";
    b.meta.rating = 3;
    b.meta.prespace = true;
    b.meta.currency = "$";
    const MToken m = EnglishG2P::mergeTokens({a, b}, std::string("?"));
    EXPECT_EQ(m.text, "Kokoro tts");
    EXPECT_EQ(m.whitespace, "\n");
    EXPECT_EQ(m.tag, LexicalClass::PersonalName);  // the more capitalised text decides
    EXPECT_EQ(m.meta.stress, 1.0);
    EXPECT_EQ(m.meta.num_flags, "an");
    EXPECT_EQ(m.meta.rating, 3);
    EXPECT_EQ(m.meta.currency, "$");
    EXPECT_EQ(*m.phonemes, "kˈOkəɹO?");  // no reading of its own: the unknown mark, no space
    b.meta.stress = 2;
    b.phonemes = "tˌitˌiˈɛs";
    const MToken n = EnglishG2P::mergeTokens({a, b}, std::string("?"));
    EXPECT_FALSE(n.meta.stress);
    EXPECT_EQ(*n.phonemes, "kˈOkəɹO tˌitˌiˈɛs");
    EXPECT_FALSE(EnglishG2P::mergeTokens({a, b}).phonemes);
}

TEST(EnglishG2P, ContextLooksAtTheFirstSoundThatCounts) {
    MToken t;
    t.text = "x";
    EXPECT_EQ(EnglishG2P::tokenContext({}, "ˈæpᵊl", t).futureVowel, true);
    EXPECT_EQ(EnglishG2P::tokenContext({}, "ˈpɛɹ", t).futureVowel, false);
    EXPECT_FALSE(EnglishG2P::tokenContext({true, false}, ", ə", t).futureVowel);
    EXPECT_EQ(EnglishG2P::tokenContext({true, false}, "", t).futureVowel, true);  // nothing said: unchanged
    t.text = "TO";
    EXPECT_FALSE(EnglishG2P::tokenContext({}, "tu", t).futureTo);
    t.tag = LexicalClass::Particle;
    EXPECT_TRUE(EnglishG2P::tokenContext({}, "tu", t).futureTo);
    EXPECT_EQ(EnglishG2P::stressWeight("ˈAʧ"), 5);
    EXPECT_EQ(EnglishG2P::stressWeight(std::nullopt), 0);
}

TEST(EnglishG2P, DictionariesGrowCaseVariantsWithoutReplacing) {
    Lexicon::Dictionary d{{"apple", std::string("ˈæpᵊl")}, {"Bob", std::string("bˈɑb")}, {"bob", std::string("bˈOb")},
                          {"Paris", std::string("pˈæɹɪs")}, {"x", std::string("ˈɛks")}, {"NASA", std::string("nˈæsə")},
                          {"élan", std::string("Alˈɑn")}};
    growDictionary(d);
    EXPECT_EQ(std::get<std::string>(d.at("Apple")), "ˈæpᵊl");
    EXPECT_EQ(std::get<std::string>(d.at("bob")), "bˈOb");  // kept, not replaced by "Bob"
    EXPECT_EQ(std::get<std::string>(d.at("paris")), "pˈæɹɪs");
    EXPECT_EQ(std::get<std::string>(d.at("Élan")), "Alˈɑn");
    EXPECT_FALSE(d.count("X"));
    EXPECT_FALSE(d.count("nasa"));  // neither lower nor capitalised: nothing added
}
