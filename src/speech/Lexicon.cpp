#include "speech/Lexicon.hpp"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <unistd.h>

#include "speech/PennTag.hpp"
#include "speech/TextCase.hpp"
#include "speech/Utf8.hpp"

namespace tavorin {

namespace {

constexpr std::string_view kUsVocab = "AIOWYbdfhijklmnpstuvwzæðŋɑɔəɛɜɡɪɹɾʃʊʌʒʤʧˈˌθᵊᵻʔ";
constexpr std::string_view kGbVocab = "AIQWYabdfhijklmnpstuvwzðŋɑɒɔəɛɜɡɪɹʃʊʌʒʤʧˈˌːθᵊ";
constexpr std::string_view kVowelSet = "AIOQWYaiuæɑɒɔəɛɜɪʊʌᵻ";
constexpr std::string_view kUsTaus = "AIOWYiuæɑəɛɪɹʊʌ";
const std::string kPrimary = "ˈ";
const std::string kSecondary = "ˌ";

bool has(std::string_view s, std::string_view part) { return s.find(part) != std::string_view::npos; }
bool endsWith(std::string_view s, std::string_view e) { return s.size() >= e.size() && s.substr(s.size() - e.size()) == e; }

std::string replaceAll(std::string s, std::string_view from, std::string_view to) {
    for (std::size_t p = s.find(from); p != std::string::npos; p = s.find(from, p + to.size())) s.replace(p, from.size(), to);
    return s;
}

bool hasVowel(std::string_view phonemes) {
    for (char32_t c : utf8::decode(phonemes))
        if (utf8::contains(kVowelSet, c)) return true;
    return false;
}

bool lexiconOrdinal(char32_t c) { return c == 39 || c == 45 || (c >= 65 && c <= 90) || (c >= 97 && c <= 122); }

// Reads {"word": "phonemes" | {"TAG": "phonemes" | null, ...}, ...} straight into the
// dictionary, without building a document first: the load is most of the start-up time.
class DictionaryReader : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit DictionaryReader(Lexicon::Dictionary& dict) : dict_(dict) {}
    bool null() override {
        if (depth_ == 2) readings_.emplace_back(std::move(tag_), std::nullopt);
        return true;
    }
    bool boolean(bool) override { return depth_ != 1 || skip(); }
    bool number_integer(number_integer_t) override { return depth_ != 1 || skip(); }
    bool number_unsigned(number_unsigned_t) override { return depth_ != 1 || skip(); }
    bool number_float(number_float_t, const string_t&) override { return depth_ != 1 || skip(); }
    bool string(string_t& val) override {
        if (depth_ == 1) dict_.emplace(std::move(key_), std::move(val));
        else if (depth_ == 2) readings_.emplace_back(std::move(tag_), std::move(val));
        return true;
    }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override {
        ++depth_;
        if (depth_ == 2) readings_.clear();
        return true;
    }
    bool key(string_t& val) override {
        if (depth_ == 1) key_ = std::move(val);
        else if (depth_ == 2) tag_ = std::move(val);
        return true;
    }
    bool end_object() override {
        if (depth_ == 2) dict_.emplace(std::move(key_), std::move(readings_));
        --depth_;
        return true;
    }
    bool start_array(std::size_t) override { return ++depth_ > 1; }
    bool end_array() override {
        --depth_;
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

private:
    bool skip() { return true; }
    Lexicon::Dictionary& dict_;
    int depth_ = 0;
    std::string key_, tag_;
    Lexicon::TaggedReadings readings_;
};

Lexicon::Dictionary loadDictionary(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error("The pronunciation dictionary " + file.string() + " could not be read.");
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Lexicon::Dictionary dict;
    dict.reserve(bytes.size() / 6);  // room for the case variants grown later
    DictionaryReader reader(dict);
    if (!nlohmann::json::sax_parse(bytes, &reader) || dict.empty())
        throw std::runtime_error("The pronunciation dictionary " + file.string() + " is damaged.");
    return dict;
}

const std::optional<std::string>* taggedReading(const Lexicon::TaggedReadings& readings, std::string_view key) {
    for (const auto& [k, v] : readings)
        if (k == key) return &v;
    return nullptr;
}

std::optional<std::string> defaultReading(const Lexicon::Entry& e) {
    if (auto s = std::get_if<std::string>(&e)) return *s;
    if (auto r = taggedReading(std::get<Lexicon::TaggedReadings>(e), "DEFAULT")) return *r;
    return std::nullopt;
}

} // namespace

std::filesystem::path speechDataDirectory() {
    if (const char* env = std::getenv("TAVORIN_SPEECH_DATA"); env && *env) return env;
    std::error_code ec;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        const auto installed = exe.parent_path().parent_path() / "share" / "tavorin" / "speech";
        if (std::filesystem::exists(installed / "us_gold.json", ec)) return installed;
    }
#ifdef TAVORIN_SPEECH_SOURCE_DATA
    return TAVORIN_SPEECH_SOURCE_DATA;
#else
    return "resources/speech";
#endif
}

void growDictionary(Lexicon::Dictionary& dict) {
    std::vector<std::pair<std::string, const Lexicon::Entry*>> grown;
    grown.reserve(dict.size());
    std::string variant;
    for (const auto& [key, entry] : dict) {
        if (key.size() < 2) continue;
        const bool ascii = std::all_of(key.begin(), key.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        if (ascii) {
            // Most keys: plain letters, cased without decoding.
            const bool lowerKey = std::none_of(key.begin(), key.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
            variant = key;
            if (lowerKey) {
                variant[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(variant[0])));
            } else {
                const bool capitalised = std::none_of(key.begin() + 1, key.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
                if (!capitalised) continue;
                variant[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(variant[0])));
            }
        } else {
            if (utf8::length(key) < 2) continue;
            const auto u = utf8::decode(key);
            const std::string head = utf8::encode(u.substr(0, 1)), rest = utf8::encode(u.substr(1));
            if (key == text::lower(key)) variant = text::upper(head) + rest;
            else if (key == text::upper(head) + text::lower(rest)) variant = text::lower(key);
            else continue;
        }
        if (variant != key && !dict.count(variant)) grown.emplace_back(variant, &entry);
    }
    std::vector<std::pair<std::string, Lexicon::Entry>> copies;
    copies.reserve(grown.size());
    for (auto& [k, e] : grown) copies.emplace_back(std::move(k), *e);
    for (auto& [k, e] : copies) dict.emplace(std::move(k), std::move(e));
}

Lexicon::Lexicon(bool british, const std::filesystem::path& dir) : british_(british) {
    // The two files are independent: the second loads on its own thread while this one reads the first.
    auto silver = std::async(std::launch::async, [path = dir / (british ? "gb_silver.json" : "us_silver.json")] {
        auto dict = loadDictionary(path);
        growDictionary(dict);
        return dict;
    });
    golds_ = loadDictionary(dir / (british ? "gb_gold.json" : "us_gold.json"));
    growDictionary(golds_);
    silvers_ = silver.get();
    vocab_ = utf8::decode(british ? kGbVocab : kUsVocab);
}

const std::map<std::string, std::pair<std::string, std::string>>& Lexicon::currencies() {
    static const std::map<std::string, std::pair<std::string, std::string>> table{
        {"$", {"dollar", "cent"}}, {"£", {"pound", "pence"}}, {"€", {"euro", "cent"}}};
    return table;
}

bool Lexicon::inVocab(std::string_view phonemes) const {
    // Spaces part the words of a number or an acronym; they are not phonemes.
    for (char32_t c : utf8::decode(phonemes))
        if (c != U' ' && vocab_.find(c) == std::u32string::npos) return false;
    return true;
}

const std::string* Lexicon::goldString(const std::string& word) const {
    auto it = golds_.find(word);
    if (it == golds_.end()) return nullptr;
    if (auto s = std::get_if<std::string>(&it->second)) return s;
    if (auto r = taggedReading(std::get<TaggedReadings>(it->second), "DEFAULT"); r && *r) return &**r;
    return nullptr;
}

std::string Lexicon::restress(const std::string& phonemes) {
    const std::u32string u = utf8::decode(phonemes);
    // Each mark sorts just before the first vowel after it; everything else keeps its place.
    std::vector<std::pair<double, char32_t>> keyed;
    for (std::size_t i = 0; i < u.size(); ++i) {
        double key = static_cast<double>(i);
        if (u[i] == U'ˈ' || u[i] == U'ˌ') {
            for (std::size_t j = i + 1; j < u.size(); ++j)
                if (utf8::contains(kVowelSet, u[j])) {
                    key = static_cast<double>(j) - 0.5;
                    break;
                }
        }
        keyed.emplace_back(key, u[i]);
    }
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::u32string out;
    for (auto& [k, c] : keyed) out.push_back(c);
    return utf8::encode(out);
}

std::string Lexicon::applyStress(const std::string& phonemes, std::optional<double> stress) {
    if (!stress) return phonemes;
    const double s = *stress;
    const bool primary = has(phonemes, kPrimary), secondary = has(phonemes, kSecondary);
    if (s < -1) return replaceAll(replaceAll(phonemes, kPrimary, ""), kSecondary, "");
    if (s == -1 || ((s == 0 || s == -0.5) && primary))
        return replaceAll(replaceAll(phonemes, kSecondary, ""), kPrimary, kSecondary);
    if ((s == 0 || s == 0.5 || s == 1) && !primary && !secondary) {
        if (!hasVowel(phonemes)) return phonemes;
        return restress(kSecondary + phonemes);
    }
    if (s >= 1 && !primary && secondary) return replaceAll(phonemes, kSecondary, kPrimary);
    if (s > 1 && !primary && !secondary) {
        if (!hasVowel(phonemes)) return phonemes;
        return restress(kPrimary + phonemes);
    }
    return phonemes;
}

std::string Lexicon::getParentTag(const WordTag& tag) {
    if (!tag.cls && tag.penn.empty()) return "XX";
    const std::string& p = tag.penn;
    if (p == "DT" || p == "VBD" || p == "VBN" || p == "VBP") return p;
    if (p.rfind("VB", 0) == 0) return "VERB";
    if (p.rfind("NN", 0) == 0) return "NOUN";
    if (p.rfind("ADV", 0) == 0 || p.rfind("RB", 0) == 0) return "ADV";
    if (p.rfind("ADJ", 0) == 0 || p.rfind("JJ", 0) == 0) return "ADJ";
    return "XX";
}

Reading Lexicon::getNNP(const std::string& word) const {
    std::string joined;
    bool any = false;
    for (char32_t c : utf8::decode(word)) {
        if (!text::isLetter(c)) continue;
        const std::string* p = goldString(text::upper(utf8::encode(c)));
        if (!p) return {};
        joined += *p;
        any = true;
    }
    if (!any) return {};
    std::string out = applyStress(joined, 0);
    if (const auto pos = out.rfind(kSecondary); pos != std::string::npos) out.replace(pos, kSecondary.size(), kPrimary);
    return {out, 3};
}

bool Lexicon::isKnown(const std::string& word) const {
    if (golds_.count(word)) return true;
    static const std::map<std::string, std::string> symbols{{"%", "percent"}, {"&", "and"}, {"+", "plus"}, {"@", "at"}};
    if (symbols.count(word) || silvers_.count(word)) return true;
    const std::u32string u = utf8::decode(word);
    if (u.empty()) return false;
    for (char32_t c : u)
        if (!lexiconOrdinal(c)) return false;
    if (u.size() == 1) return true;
    if (word == text::upper(word) && golds_.count(text::lower(word))) return true;
    const std::string rest = utf8::encode(u.substr(1));
    return rest == text::upper(rest);
}

Reading Lexicon::lookup(std::string word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const {
    bool proper = false;
    if (word == text::upper(word) && !golds_.count(word)) {
        word = text::lower(word);
        proper = tag.penn.rfind("NNP", 0) == 0;
    }
    const Entry* entry = nullptr;
    int rating = 4;
    if (auto it = golds_.find(word); it != golds_.end()) entry = &it->second;
    else if (!proper)
        if (auto s = silvers_.find(word); s != silvers_.end()) {
            entry = &s->second;
            rating = 3;
        }
    std::optional<std::string> reading;
    if (entry) {
        if (auto s = std::get_if<std::string>(entry)) reading = *s;
        else {
            const auto& readings = std::get<TaggedReadings>(*entry);
            std::string key = getParentTag(tag);
            if (!ctx.futureVowel && taggedReading(readings, "None")) key = "None";
            if (auto r = taggedReading(readings, key); r && *r) reading = *r;
            else if (auto d = taggedReading(readings, "DEFAULT"); d && *d) reading = *d;
        }
    }
    if (!reading || (proper && !has(*reading, kPrimary))) {
        if (auto nnp = getNNP(word)) return nnp;
    }
    if (!reading) return {};
    return {applyStress(*reading, stress), rating};
}

Reading Lexicon::getSpecialCase(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const {
    static const std::map<std::string, std::string> addSymbols{{".", "dot"}, {"/", "slash"}};
    static const std::map<std::string, std::string> symbolSet{{"%", "percent"}, {"&", "and"}, {"+", "plus"}, {"@", "at"}};
    auto gold = [&](const std::string& w, std::string_view key) -> Reading {
        auto it = golds_.find(w);
        if (it == golds_.end()) return {};
        if (auto s = std::get_if<std::string>(&it->second)) return {*s, 4};
        const auto& readings = std::get<TaggedReadings>(it->second);
        if (auto r = taggedReading(readings, key); r && *r) return {**r, 4};
        if (auto r = taggedReading(readings, "DEFAULT"); r && *r) return {**r, 4};
        return {};
    };
    const auto cls = tag.cls;
    const std::string& penn = tag.penn;
    if (cls == LexicalClass::Punctuation && addSymbols.count(word)) return lookup(addSymbols.at(word), {}, -0.5, ctx);
    if (symbolSet.count(word)) return lookup(symbolSet.at(word), {}, std::nullopt, ctx);
    if (const auto dot = word.find('.'); dot != std::string::npos && dot > 0 && dot + 1 < word.size()) {
        // Abbreviations such as "U.S." or "e.g.": short parts between the dots are spelled.
        std::string letters;
        std::size_t longest = 0, part = 0;
        for (char32_t c : utf8::decode(word)) {
            if (c == U'.') {
                longest = std::max(longest, part);
                part = 0;
            } else {
                letters += utf8::encode(c);
                ++part;
            }
        }
        longest = std::max(longest, part);
        if (text::allLetters(letters) && longest < 3) return getNNP(word);
    }
    if (word == "a" || word == "A") return {cls == LexicalClass::Determiner ? "ɐ" : "ˈA", 4};
    if (word == "am" || word == "Am" || word == "AM") {
        if (penn.rfind("NN", 0) == 0) return getNNP(word);
        if (!ctx.futureVowel || word != "am" || (stress && *stress > 0)) return gold("am", "DEFAULT");
        return {"ɐm", 4};
    }
    if (word == "an" || word == "An" || word == "AN") {
        if (word == "AN" && penn.rfind("NN", 0) == 0) return getNNP(word);
        return {"ɐn", 4};
    }
    if (word == "I" && cls == LexicalClass::Pronoun) return {kSecondary + "I", 4};
    if ((word == "by" || word == "By" || word == "BY") && getParentTag(tag) == "ADV") return {"bˈI", 4};
    if ((word == "to" || word == "To" || word == "TO") && (penn == "TO" || penn == "IN")) {
        if (!ctx.futureVowel) return gold("to", "DEFAULT");
        return {*ctx.futureVowel ? "tʊ" : "tə", 4};
    }
    if ((word == "in" || word == "In" || word == "IN") && penn != "NNP") {
        const bool mark = !ctx.futureVowel || cls != LexicalClass::Preposition;
        return {(mark ? kPrimary : std::string()) + "ɪn", 4};
    }
    if ((word == "the" || word == "The" || word == "THE") && cls == LexicalClass::Determiner)
        return {ctx.futureVowel.value_or(false) ? "ði" : "ðə", 4};
    if (cls == LexicalClass::Preposition) {
        const std::string low = text::lower(word);
        if (low == "vs" || low == "vs.") return lookup("versus", {}, std::nullopt, ctx);
    }
    if (word == "used" || word == "Used" || word == "USED") {
        const bool verbOrAdjective = cls == LexicalClass::Verb || cls == LexicalClass::Adjective ||
                                     penn.rfind("VB", 0) == 0 || penn.rfind("JJ", 0) == 0;
        if (verbOrAdjective && ctx.futureTo) return gold("used", "VBD");
        return gold("used", "DEFAULT");
    }
    return {};
}

Reading Lexicon::getWord(const std::string& word0, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const {
    if (auto special = getSpecialCase(word0, tag, stress, ctx)) return special;
    std::string word = word0;
    const std::string low = text::lower(word);
    if (utf8::length(word) > 1 && word != low) {
        std::string plain;
        for (char c : word)
            if (c != '\'') plain += c;
        const auto u = utf8::decode(word);
        const std::string rest = utf8::encode(u.substr(1));
        const bool shape = word == text::upper(word) || rest == text::lower(rest);
        if (text::allLetters(plain) && (tag.penn != "NNP" || u.size() > 7) && !golds_.count(word) &&
            !silvers_.count(word) && shape &&
            (golds_.count(low) || silvers_.count(low) || stem_s(low, tag, stress, ctx) || stem_ed(low, tag, stress, ctx) ||
             stem_ing(low, tag, stress, ctx)))
            word = low;
    }
    if (isKnown(word)) return lookup(word, tag, stress, ctx);
    if (endsWith(word, "s'") && isKnown(word.substr(0, word.size() - 2) + "'s"))
        return lookup(word.substr(0, word.size() - 2) + "'s", tag, stress, ctx);
    if (endsWith(word, "'") && isKnown(word.substr(0, word.size() - 1)))
        return lookup(word.substr(0, word.size() - 1), tag, stress, ctx);
    if (auto s = stem_s(word, tag, stress, ctx)) return s;
    if (auto e = stem_ed(word, tag, stress, ctx)) return e;
    return stem_ing(word, tag, stress ? stress : std::optional<double>(0.5), ctx);
}

std::optional<std::string> Lexicon::pluralizeS(const std::string& stem) const {
    if (stem.empty()) return std::nullopt;
    const char32_t last = utf8::last(stem);
    if (utf8::contains("ptkfθ", last)) return stem + "s";
    if (utf8::contains("szʃʒʧʤ", last)) return stem + (british_ ? "ɪ" : "ᵻ") + "z";
    return stem + "z";
}

std::optional<std::string> Lexicon::pastEd(const std::string& stem) const {
    if (stem.empty()) return std::nullopt;
    const char32_t last = utf8::last(stem);
    if (utf8::contains("pkfθʃsʧ", last)) return stem + "t";
    if (last == U'd') return stem + (british_ ? "ɪd" : "ᵻd");
    if (last != U't') return stem + "d";
    const std::u32string u = utf8::decode(stem);
    if (british_ || u.size() < 2) return stem + "ɪd";
    if (utf8::contains(kUsTaus, u[u.size() - 2])) return utf8::encode(u.substr(0, u.size() - 1)) + "ɾᵻd";
    return stem + "ᵻd";
}

std::optional<std::string> Lexicon::progIng(const std::string& stem) const {
    const char32_t last = utf8::last(stem);
    if (british_ && (last == U'ə' || last == U'ː')) return std::nullopt;
    const std::u32string u = utf8::decode(stem);
    if (!british_ && u.size() >= 2 && last == U't' && utf8::contains(kUsTaus, u[u.size() - 2]))
        return utf8::encode(u.substr(0, u.size() - 1)) + "ɾɪŋ";
    return stem + "ɪŋ";
}

Reading Lexicon::stem_s(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const {
    if (word.size() < 3 || !endsWith(word, "s")) return {};
    std::string stem;
    if (!endsWith(word, "ss") && isKnown(word.substr(0, word.size() - 1))) stem = word.substr(0, word.size() - 1);
    else if ((endsWith(word, "'s") || (word.size() > 4 && endsWith(word, "es") && !endsWith(word, "ies"))) &&
             isKnown(word.substr(0, word.size() - 2)))
        stem = word.substr(0, word.size() - 2);
    else if (word.size() > 4 && endsWith(word, "ies") && isKnown(word.substr(0, word.size() - 3) + "y"))
        stem = word.substr(0, word.size() - 3) + "y";
    else return {};
    Reading r = lookup(stem, tag, stress, ctx);
    if (!r) return {};
    return {pluralizeS(*r.phonemes), r.rating};
}

Reading Lexicon::stem_ed(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const {
    if (word.size() < 4 || !endsWith(word, "d")) return {};
    std::string stem;
    if (!endsWith(word, "dd") && isKnown(word.substr(0, word.size() - 1))) stem = word.substr(0, word.size() - 1);
    else if (word.size() > 4 && endsWith(word, "ed") && !endsWith(word, "eed") && isKnown(word.substr(0, word.size() - 2)))
        stem = word.substr(0, word.size() - 2);
    else return {};
    Reading r = lookup(stem, tag, stress, ctx);
    if (!r) return {};
    return {pastEd(*r.phonemes), r.rating};
}

Reading Lexicon::stem_ing(const std::string& word, const WordTag& tag, std::optional<double> stress, const TokenContext& ctx) const {
    if (word.size() < 5 || !endsWith(word, "ing")) return {};
    const std::string base = word.substr(0, word.size() - 3);
    std::string stem;
    // English drops a stem's final e before -ing after one vowel and one consonant
    // ("rate", "rating"): such a stem prefers its e form when the dictionary has it.
    const auto vowel = [](char c) { return std::string_view("aeiou").find(c) != std::string_view::npos; };
    const bool eDropped = base.size() >= 2 && !vowel(base.back()) && vowel(base[base.size() - 2]) &&
                          (base.size() < 3 || !vowel(base[base.size() - 3])) && isKnown(base + "e");
    if (eDropped) stem = base + "e";
    else if (word.size() > 5 && isKnown(base)) stem = base;
    else if (isKnown(base + "e")) stem = base + "e";
    else {
        // A doubled consonant before -ing ("running"), or "ck" ("picking").
        bool doubled = false;
        if (word.size() > 5) {
            const char a = word[word.size() - 5], b = word[word.size() - 4];
            doubled = (a == b && std::string_view("bcdgklmnprstvxz").find(a) != std::string_view::npos) ||
                      endsWith(word, "cking");
        }
        if (doubled && isKnown(word.substr(0, word.size() - 4))) stem = word.substr(0, word.size() - 4);
        else return {};
    }
    Reading r = lookup(stem, tag, stress, ctx);
    if (!r) return {};
    auto p = progIng(*r.phonemes);
    if (!p) return {};
    return {p, r.rating};
}

bool Lexicon::isNumber(const std::string& word0, bool isHead) {
    std::string_view word = word0;
    for (std::string_view sfx : {"'s", "'d", "ing", "ed", "st", "nd", "rd", "th", "s"})
        if (endsWith(word, sfx)) {
            word.remove_suffix(sfx.size());
            break;
        }
    if (!word.empty() && (word[0] == '-' || word[0] == '+') && isHead) word.remove_prefix(1);
    bool digit = false;
    for (char c : word) {
        if (c >= '0' && c <= '9') digit = true;
        else if (c != ',' && c != '.') return false;
    }
    return digit;
}

bool Lexicon::isCurrency(const std::string& word) {
    // Whole amounts count too: "$5" reads as five dollars.
    const auto dot = word.find('.');
    if (dot != std::string::npos && word.size() - dot - 1 > 2) return false;
    bool digit = false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        const char c = word[i];
        if (c >= '0' && c <= '9') digit = true;
        else if (!(c == ',' || (c == '.' && i == dot))) return false;
    }
    return digit;
}

std::optional<std::string> Lexicon::numberWords(const std::string& words) const {
    // Each word's reading; the first keeps its stress, the rest are lowered to secondary.
    std::string out;
    bool first = true;
    std::size_t start = 0;
    while (start <= words.size()) {
        std::size_t end = words.find_first_of(" -", start);
        if (end == std::string::npos) end = words.size();
        std::string w = words.substr(start, end - start);
        while (!w.empty() && w.back() == ',') w.pop_back();
        start = end + 1;
        if (w.empty()) continue;
        Reading r = lookup(w, {}, std::nullopt, {});
        if (!r) r = getNNP(w);
        if (!r) return std::nullopt;
        std::string p = first ? *r.phonemes : applyStress(*r.phonemes, -1);
        if (!out.empty()) out += " ";
        out += p;
        first = false;
    }
    return out;
}

std::optional<std::string> Lexicon::appendCurrency(const std::string& phonemes, const std::string& currencyWord, bool plural) const {
    Reading unit = plural && currencyWord != "pence" ? stem_s(currencyWord + "s", {}, std::nullopt, {})
                                                      : lookup(currencyWord, {}, std::nullopt, {});
    if (!unit) return std::nullopt;
    return phonemes + " " + applyStress(*unit.phonemes, -1);
}

Reading Lexicon::getNumber(std::string word, const std::optional<std::string>& currency, bool isHead, const std::string& numFlags) const {
    std::string suffix;
    {
        std::size_t cut = word.size();
        while (cut > 0 && ((word[cut - 1] >= 'a' && word[cut - 1] <= 'z') || word[cut - 1] == '\'')) --cut;
        suffix = word.substr(cut);
        word.resize(cut);
    }
    std::string prefix;
    if (!word.empty() && word[0] == '-') {
        prefix = "minus";
        word.erase(0, 1);
    } else if (!word.empty() && word[0] == '+' && isHead) {
        word.erase(0, 1);
    }
    std::string digits;  // without the grouping commas
    for (char c : word)
        if (c != ',') digits += c;
    if (digits.empty() || digits.find_first_of("0123456789") == std::string::npos) return {};
    const auto dot = digits.find('.');
    const std::string whole = digits.substr(0, dot);
    const std::string fraction = dot == std::string::npos ? "" : digits.substr(dot + 1);
    if (digits.find('.', dot == std::string::npos ? digits.size() : dot + 1) != std::string::npos) return {};
    auto fits = [](const std::string& s) { return !s.empty() && s.size() <= 18; };
    auto spellDigits = [&](const std::string& s) {
        std::string out;
        for (char c : s)
            if (c >= '0' && c <= '9') out += (out.empty() ? "" : " ") + num2Words_.toCardinal(c - '0');
        return out;
    };
    const bool ordinal = suffix == "st" || suffix == "nd" || suffix == "rd" || suffix == "th";
    std::string words;
    if (ordinal && fits(whole) && fraction.empty()) {
        auto o = num2Words_.toOrdinal(std::stoll(whole));
        if (!o) return {};
        words = *o;
        suffix.clear();
    } else if (currency && Lexicon::currencies().count(*currency) && isCurrency(digits) && fits(whole.empty() ? "0" : whole)) {
        const auto& [big, small] = Lexicon::currencies().at(*currency);
        const long long units = whole.empty() ? 0 : std::stoll(whole);
        std::string cents = fraction;
        if (cents.size() == 1) cents += "0";
        const long long sub = cents.empty() ? 0 : std::stoll(cents);
        auto amount = numberWords(num2Words_.toCardinal(units));
        if (!amount) return {};
        auto out = appendCurrency(*amount, big, units != 1);
        if (!out) return {};
        if (sub != 0) {
            auto fr = numberWords("and " + num2Words_.toCardinal(sub));
            if (!fr) return {};
            auto small_ = appendCurrency(*fr, small, sub != 1);
            if (!small_) return {};
            *out += " " + *small_;
        }
        if (!prefix.empty()) *out = *numberWords(prefix) + " " + applyStress(*out, -1);
        return {*out, 4};
    } else if (dot == std::string::npos && whole.size() == 4 && whole[0] != '0' && whole.substr(1) != "000" &&
               !(whole[0] == '2' && whole[1] == '0' && whole[2] == '0') && numFlags.find('c') == std::string::npos &&
               prefix.empty()) {
        words = num2Words_.toYear(std::stoll(whole));
    } else if (fraction.empty() && dot == std::string::npos) {
        words = fits(whole) ? num2Words_.toCardinal(std::stoll(whole)) : spellDigits(whole);
    } else {
        if (whole.size() > 18) words = spellDigits(whole) + " " + num2Words_.pointWord + " " + spellDigits(fraction);
        else words = num2Words_.toDecimal(whole + "." + fraction);
        if (fraction.empty()) words.resize(words.size() - num2Words_.pointWord.size() - 1);
    }
    if (numFlags.find('n') != std::string::npos) words = replaceAll(words, " and ", " ");
    if (!prefix.empty()) words = prefix + " " + words;
    auto out = numberWords(words);
    if (!out) return {};
    std::optional<std::string> withSuffix = *out;
    if (suffix == "ing") withSuffix = progIng(*out);
    else if (suffix == "ed" || suffix == "'d") withSuffix = pastEd(*out);
    else if (suffix == "s" || suffix == "'s") {
        // "1990s": a ten's name ending in -y takes -ies in writing, -z in sound.
        withSuffix = pluralizeS(*out);
    }
    if (!withSuffix) return {};
    return {*withSuffix, 4};
}

std::optional<std::string> Lexicon::phonemesForWord(const std::string& word) const {
    const std::string low = text::lower(word);
    for (const Dictionary* d : {&golds_, &silvers_}) {
        if (auto it = d->find(low); it != d->end())
            if (auto s = std::get_if<std::string>(&it->second)) return *s;
        if (auto it = d->find(word); it != d->end())
            if (auto s = std::get_if<std::string>(&it->second)) return *s;
        if (auto it = d->find(low); it != d->end())
            if (auto r = defaultReading(it->second)) return r;
    }
    return std::nullopt;
}

Reading Lexicon::transcribe(const MToken& token, const TokenContext& ctx) const {
    const std::string word = text::normalizeWord(token.meta.alias ? *token.meta.alias : token.text);
    std::optional<double> stress = token.meta.stress;
    if (!stress) {
        if (word == text::lower(word)) stress = std::nullopt;
        else if (word == text::upper(word)) stress = capStresses.second;
        else stress = capStresses.first;
    }
    const WordTag tag{token.tag, pennTag(token.tag, token)};
    Reading r = getWord(word, tag, stress, ctx);
    if (r) r.phonemes = applyStress(*r.phonemes, stress);
    else if (isNumber(word, token.meta.is_head)) r = getNumber(word, token.meta.currency, token.meta.is_head, token.meta.num_flags);
    if (r && !inVocab(*r.phonemes)) return {};
    return r;
}

} // namespace tavorin
