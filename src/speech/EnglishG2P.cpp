#include "speech/EnglishG2P.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "speech/BARTG2P.hpp"
#include "speech/PennTag.hpp"
#include "speech/PosTagger.hpp"
#include "speech/TextCase.hpp"
#include "speech/Utf8.hpp"

namespace tavorin {

namespace {

constexpr std::string_view kPunctuations = ";:,.!?—…“”„";
constexpr std::string_view kNonQuotePunctuations = ";:,.!?—…";
constexpr std::string_view kVowels = "AIOQWYaiuæɑɒɔəɛɜɪʊʌᵻ";
constexpr std::string_view kConsonants = "bdfhjklmnpstvwzðŋɡɹɾʃʒʤʧθ";
constexpr std::string_view kSubTokenJunks = "',-._‘’/";
constexpr std::string_view kDipthongs = "AIOQWYʤʧ";
// No word is longer; a longer run of letters and digits is read in pieces of this size, so
// that one pathological "word" costs what a sentence does.
constexpr std::size_t kLongestWord = 64;
// Sub-tokens read together as one word at most: "U.S.A." is six.
constexpr std::size_t kLongestCompound = 12;

const char* const kSubtokenizeRegex =
    "^['''']+|\\p{Lu}(?=\\p{Lu}\\p{Ll})|(?:^-)?(?:\\d?[,.]?\\d)+|[-_]+|['''']{2,}|\\p{L}*?(?:['''']\\p{L})*?\\p{Ll}(?=\\p{Lu})|"
    "\\p{L}+(?:['''']\\p{L})*|[^-_\\p{L}''''\\d]|['''']+$";
const char* const kCamelSplitRegex = "[A-Z]{2,}(?=[A-Z][a-z])|[A-Z]{2,}$|[A-Z][a-z]*|[a-z]+";
const char* const kLinkRegex = "\\[([^\\]]+)\\]\\(([^\\)]*)\\)";

bool isPunctuationTag(std::optional<LexicalClass> t) {
    if (!t) return false;
    switch (*t) {
    case LexicalClass::OpenQuote:
    case LexicalClass::CloseQuote:
    case LexicalClass::OpenParenthesis:
    case LexicalClass::CloseParenthesis:
    case LexicalClass::Punctuation:
    case LexicalClass::SentenceTerminator:
    case LexicalClass::OtherPunctuation: return true;
    default: return false;
    }
}

bool allIn(std::string_view s, std::string_view set) {
    if (s.empty()) return false;
    for (char32_t c : utf8::decode(s))
        if (!utf8::contains(set, c)) return false;
    return true;
}

bool hasDigit(std::string_view s) {
    for (char c : s)
        if (c >= '0' && c <= '9') return true;
    return false;
}

bool isSpace(char32_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v' || u_isUWhiteSpace(static_cast<UChar32>(c)); }

std::string trim(const std::string& s) {
    const auto u = utf8::decode(s);
    std::size_t b = 0, e = u.size();
    while (b < e && isSpace(u[b])) ++b;
    while (e > b && isSpace(u[e - 1])) --e;
    return utf8::encode(std::u32string_view(u).substr(b, e - b));
}

std::string replaceAll(std::string s, std::string_view from, std::string_view to) {
    for (std::size_t p = s.find(from); p != std::string::npos; p = s.find(from, p + to.size())) s.replace(p, from.size(), to);
    return s;
}

void splitSpaces(const std::string& s, std::vector<std::string>& out) {
    std::size_t p = 0;
    while (p < s.size()) {
        const auto q = s.find(' ', p);
        const auto part = s.substr(p, q == std::string::npos ? std::string::npos : q - p);
        if (!part.empty()) out.push_back(part);
        if (q == std::string::npos) break;
        p = q + 1;
    }
}

// The class a punctuation mark or symbol stands in, by the mark itself and its neighbours.
std::optional<LexicalClass> markClass(std::u32string_view mark, bool glued, bool& quoteOpen) {
    if (mark == U"." ) return glued ? LexicalClass::Punctuation : LexicalClass::SentenceTerminator;
    if (mark == U"!" || mark == U"?" || mark == U"…" || mark == U"...") return LexicalClass::SentenceTerminator;
    if (mark == U"“" || mark == U"„" || mark == U"``") return LexicalClass::OpenQuote;
    if (mark == U"”" || mark == U"''") return LexicalClass::CloseQuote;
    if (mark == U"\"") {
        quoteOpen = !quoteOpen;
        return quoteOpen ? LexicalClass::OpenQuote : LexicalClass::CloseQuote;
    }
    if (mark == U"(" || mark == U"[" || mark == U"{") return LexicalClass::OpenParenthesis;
    if (mark == U")" || mark == U"]" || mark == U"}") return LexicalClass::CloseParenthesis;
    if (mark == U"-" || mark == U"—" || mark == U"--") return LexicalClass::Dash;
    if (mark == U"," || mark == U";" || mark == U":" || mark == U"–" || mark == U"/") return LexicalClass::Punctuation;
    if (mark.size() == 1) {
        const auto cat = u_charType(static_cast<UChar32>(mark[0]));
        if (cat == U_CURRENCY_SYMBOL || cat == U_MATH_SYMBOL || cat == U_OTHER_SYMBOL || cat == U_MODIFIER_SYMBOL)
            return LexicalClass::OtherWord;
    }
    return LexicalClass::OtherPunctuation;
}

bool wordChar(char32_t c) {
    if (c < 0x80) return std::isalnum(static_cast<int>(c)) != 0;
    const auto cat = u_charType(static_cast<UChar32>(c));
    return u_isalnum(static_cast<UChar32>(c)) || cat == U_NON_SPACING_MARK || cat == U_COMBINING_SPACING_MARK ||
           cat == U_ENCLOSING_MARK;
}

} // namespace

struct EnglishG2P::Regexes {
    std::unique_ptr<icu::RegexPattern> subtokenize, camel, link;
    Regexes() {
        UErrorCode status = U_ZERO_ERROR;
        UParseError pe;
        subtokenize.reset(icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(kSubtokenizeRegex), pe, status));
        camel.reset(icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(kCamelSplitRegex), pe, status));
        link.reset(icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(kLinkRegex), pe, status));
        if (U_FAILURE(status)) throw std::runtime_error("The phonemiser's patterns did not compile.");
    }
    static std::vector<std::string> matches(const icu::RegexPattern& p, const std::string& text) {
        std::vector<std::string> out;
        UErrorCode status = U_ZERO_ERROR;
        const icu::UnicodeString u = icu::UnicodeString::fromUTF8(text);
        std::unique_ptr<icu::RegexMatcher> m(p.matcher(u, status));
        if (U_FAILURE(status)) return out;
        while (m->find(status) && U_SUCCESS(status)) {
            std::string s;
            m->group(status).toUTF8String(s);
            if (!s.empty()) out.push_back(std::move(s));
        }
        return out;
    }
};

EnglishG2P::EnglishG2P(bool british, std::string unk, std::shared_ptr<G2PModel> bart, const std::filesystem::path& dir)
    : british_(british), unk_(std::move(unk)), tagger_(std::make_unique<PosTagger>(dir / "tagger.txt")),
      lexicon_(british, dir), bart_(bart ? std::move(bart) : BARTG2P::fromBundle(dir)), regexes_(std::make_unique<Regexes>()) {}

EnglishG2P::~EnglishG2P() = default;

std::string EnglishG2P::pennTag(std::optional<LexicalClass> tag, const MToken& token) const { return tavorin::pennTag(tag, token); }

EnglishG2P::Preprocessed EnglishG2P::preprocess(const std::string& input) {
    Preprocessed out;
    std::string text = trim(input);
    // A symbol becomes its word; a space also follows when a word or digit does ("R&D").
    for (const auto& [symbol, word] : {std::pair<char, std::string_view>{'%', " percent"}, {'&', " and"}, {'+', " plus"}, {'@', " at"}}) {
        std::string next;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] != symbol) {
                next += text[i];
                continue;
            }
            next += word;
            if (i + 1 < text.size() && std::isalnum(static_cast<unsigned char>(text[i + 1]))) next += ' ';
        }
        text = std::move(next);
    }
    // Links: "[word](value)": the words stay, the value becomes a feature over them.
    std::size_t pos = 0;
    while (pos < text.size()) {
        const auto open = text.find('[', pos);
        if (open == std::string::npos) break;
        const auto close = text.find(']', open + 1);
        if (close == std::string::npos || close == open + 1 || close + 1 >= text.size() || text[close + 1] != '(') {
            out.text += text.substr(pos, open + 1 - pos);
            splitSpaces(text.substr(pos, open + 1 - pos), out.tokens);
            pos = open + 1;
            continue;
        }
        const auto end = text.find(')', close + 2);
        if (end == std::string::npos) break;
        const std::string before = text.substr(pos, open - pos);
        out.text += before;
        splitSpaces(before, out.tokens);
        const std::string words = text.substr(open + 1, close - open - 1);
        const std::string value = text.substr(close + 2, end - close - 2);
        const TokenRange range{out.text.size(), out.text.size() + words.size()};
        out.text += words;
        out.tokens.push_back(words);
        auto isInt = [](const std::string& v) {
            std::size_t i = (!v.empty() && (v[0] == '-' || v[0] == '+')) ? 1 : 0;
            return i < v.size() && v.size() - i <= 18 &&
                   std::all_of(v.begin() + static_cast<long>(i), v.end(), [](char c) { return c >= '0' && c <= '9'; });
        };
        PreprocessFeature feature;
        feature.tokenRange = range;
        bool recorded = true;
        if (isInt(value)) feature.value.emplace<long long>(std::stoll(value));
        else if (value == "0.5" || value == "+0.5") feature.value.emplace<double>(0.5);
        else if (value == "-0.5") feature.value.emplace<double>(-0.5);
        else if (value.size() >= 2 && ((value.front() == '/' && value.back() == '/') || (value.front() == '#' && value.back() == '#')))
            feature.value.emplace<std::string>(value.substr(0, value.size() - 1));
        else recorded = false;
        if (recorded) out.features.push_back(std::move(feature));
        pos = end + 1;
    }
    if (pos < text.size()) {
        out.text += text.substr(pos);
        splitSpaces(text.substr(pos), out.tokens);
    }
    return out;
}

std::vector<MToken> EnglishG2P::tokenize(const std::string& text, const std::vector<PreprocessFeature>& features) const {
    // Word units of the text, with their byte ranges: words (with inner apostrophes, dots of
    // abbreviations, and digit groups), runs of whitespace, and single marks.
    struct Unit {
        std::size_t begin, end;
        bool space;
    };
    const std::u32string u = utf8::decode(text);
    std::vector<std::size_t> offset(u.size() + 1, 0);
    for (std::size_t i = 0, b = 0; i < u.size(); ++i) {
        offset[i] = b;
        b += utf8::encode(u[i]).size();
        offset[i + 1] = b;
    }
    std::vector<Unit> units;
    std::size_t i = 0;
    const std::size_t n = u.size();
    auto isApostrophe = [](char32_t c) { return c == U'\'' || c == U'’'; };
    while (i < n) {
        const std::size_t start = i;
        if (isSpace(u[i])) {
            while (i < n && isSpace(u[i])) ++i;
            units.push_back({start, i, true});
            continue;
        }
        const bool signedNumber = (u[i] == U'-' || u[i] == U'+' || u[i] == U'.') && i + 1 < n && u[i + 1] < 0x80 &&
                                  std::isdigit(static_cast<int>(u[i + 1])) && (i == 0 || isSpace(u[i - 1]));
        if (wordChar(u[i]) || signedNumber) {
            ++i;
            while (i < n && i - start < kLongestWord) {
                if (wordChar(u[i])) { ++i; continue; }
                const bool nextWord = i + 1 < n && wordChar(u[i + 1]);
                if (isApostrophe(u[i]) && nextWord && text::isLetter(u[i + 1])) { i += 2; continue; }
                if ((u[i] == U'.' || u[i] == U',' || u[i] == U'/') && nextWord && wordChar(u[i - 1])) { i += 1; continue; }
                if (u[i] == U'_' && nextWord) { ++i; continue; }
                break;
            }
            // The closing dot of an abbreviation written with dots ("U.S.", "e.g.").
            if (i < n && u[i] == U'.') {
                const std::u32string_view w(u.data() + start, i - start);
                bool abbreviation = w.find(U'.') != std::u32string_view::npos;
                for (std::size_t k = 0; abbreviation && k < w.size(); ++k)
                    abbreviation = (k % 2 == 0) ? text::isLetter(w[k]) : w[k] == U'.';
                if (abbreviation) ++i;
            }
            // A possessive plural: "dogs'".
            if (i < n && isApostrophe(u[i]) && (u[i - 1] == U's' || u[i - 1] == U'S') && (i + 1 == n || !wordChar(u[i + 1]))) ++i;
            units.push_back({start, i, false});
            continue;
        }
        // Marks: runs of the same dot or dash stay together ("...", "--").
        ++i;
        if (u[start] == U'.' || u[start] == U'-' || u[start] == U'`' || u[start] == U'\'')
            while (i < n && u[i] == u[start]) ++i;
        units.push_back({start, i, false});
    }

    std::vector<std::string> words;
    for (const auto& un : units)
        if (!un.space) words.push_back(utf8::encode(std::u32string_view(u).substr(un.begin, un.end - un.begin)));
    // The tagger reads contractions as the news text it learned from wrote them, "I 'll",
    // "do n't"; a token takes the tag of its first part.
    std::vector<std::string> tagged;
    std::vector<std::size_t> firstPart;
    for (const auto& word : words) {
        firstPart.push_back(tagged.size());
        const std::string low = text::lower(word);
        std::size_t cut = std::string::npos;
        for (std::string_view clitic : {"n't", "'ll", "'re", "'ve", "'d", "'m", "'s"})
            if (low.size() > clitic.size() && low.compare(low.size() - clitic.size(), clitic.size(), clitic) == 0) {
                cut = low.size() - clitic.size();
                break;
            }
        if (cut == std::string::npos) tagged.push_back(word);
        else {
            tagged.push_back(word.substr(0, cut));
            tagged.push_back(word.substr(cut));
        }
    }
    const std::vector<std::string> tags = tagger_->tag(tagged);
    std::vector<std::string> penn;
    for (std::size_t k = 0; k < words.size(); ++k) penn.push_back(tags[firstPart[k]]);

    std::vector<MToken> tokens;
    bool quoteOpen = false;
    std::size_t w = 0;
    for (std::size_t k = 0; k < units.size(); ++k) {
        const auto& un = units[k];
        const std::u32string_view piece = std::u32string_view(u).substr(un.begin, un.end - un.begin);
        if (un.space) {
            if (!tokens.empty()) tokens.back().whitespace = utf8::encode(piece);
            continue;
        }
        MToken t;
        t.text = words[w];
        t.tokenRange = {offset[un.begin], offset[un.end]};
        const bool word = wordChar(piece[0]) || piece.size() > 1;
        if (word && (wordChar(piece[0]) || std::any_of(piece.begin(), piece.end(), [](char32_t c) { return wordChar(c); }))) {
            t.penn = penn[w];
            t.tag = PosTagger::lexicalClass(penn[w], t.text);
        } else {
            const bool glued = un.begin > 0 && un.end < n && wordChar(u[un.begin - 1]) && wordChar(u[un.end]);
            t.tag = markClass(piece, glued, quoteOpen);
            if (t.tag == LexicalClass::OtherWord) t.penn = "SYM";
            else t.penn = penn[w];
        }
        ++w;
        tokens.push_back(std::move(t));
    }

    for (const auto& f : features) {
        bool first = true;
        for (auto& t : tokens) {
            if (t.tokenRange.end <= f.tokenRange.begin || t.tokenRange.begin >= f.tokenRange.end) continue;
            if (auto d = std::get_if<double>(&f.value)) t.meta.stress = *d;
            else if (auto l = std::get_if<long long>(&f.value)) t.meta.stress = static_cast<double>(*l);
            else if (auto s = std::get_if<std::string>(&f.value)) {
                if (!s->empty() && (*s)[0] == '/') {
                    // One reading for the whole bracket: the first word says it, the rest are silent.
                    t.meta.is_head = true;
                    t.phonemes = first ? s->substr(1) : "";
                    t.meta.rating = 5;
                } else if (!s->empty() && (*s)[0] == '#') {
                    t.meta.num_flags = s->substr(1);
                }
            }
            first = false;
        }
    }
    return tokens;
}

std::vector<MToken> EnglishG2P::foldLeft(std::vector<MToken> tokens) {
    std::vector<MToken> out;
    for (auto& t : tokens) {
        if (!out.empty() && !t.meta.is_head) out.back() = mergeTokens({out.back(), t});
        else out.push_back(std::move(t));
    }
    return out;
}

std::vector<std::string> EnglishG2P::subtokenize(const std::string& text) const { return Regexes::matches(*regexes_->subtokenize, text); }

std::vector<EnglishG2P::RetokenizedItem> EnglishG2P::retokenize(std::vector<MToken> tokens) const {
    std::vector<RetokenizedItem> items;
    std::optional<std::string> currency;
    // Split every token first, so a sub-token can see whether a number follows it.
    std::vector<std::vector<MToken>> split;
    for (auto& token : tokens) {
        std::vector<MToken> subs;
        if (!token.meta.alias && !token.phonemes) {
            const auto parts = subtokenize(token.text);
            for (std::size_t k = 0; k < parts.size(); ++k) {
                MToken s = token;
                s.text = parts[k];
                s.meta.is_head = k == 0;
                s.meta.prespace = false;
                s.whitespace = k + 1 == parts.size() ? token.whitespace : "";
                subs.push_back(std::move(s));
            }
        }
        if (subs.empty()) subs.push_back(std::move(token));
        split.push_back(std::move(subs));
    }
    for (std::size_t ti = 0; ti < split.size(); ++ti) {
        auto& subs = split[ti];
        for (std::size_t k = 0; k < subs.size(); ++k) {
            MToken& t = subs[k];
            if (t.meta.alias || t.phonemes) continue;
            const bool lastOfText = k + 1 == subs.size() && ti + 1 == split.size();
            if (t.tag == LexicalClass::OtherWord && Lexicon::currencies().count(t.text)) {
                currency = t.text;
                t.phonemes = "";
                t.meta.rating = 4;
            } else if (t.tag == LexicalClass::Dash || (t.tag == LexicalClass::Punctuation && t.text == "–")) {
                const bool spaceBefore = k == 0 && ti > 0 && !split[ti - 1].back().whitespace.empty();
                t.phonemes = (t.text == "-" && t.whitespace.empty() && !spaceBefore && !lastOfText && ti > 0) ? " " : "—";
                t.meta.rating = 3;
            } else if (isPunctuationTag(t.tag) &&
                       !std::all_of(t.text.begin(), t.text.end(), [](char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; })) {
                static const std::map<std::string, std::string> tagPhonemes{{"``", "“"}, {"\"\"", "”"}, {"''", "”"}};
                if (auto it = tagPhonemes.find(t.text); it != tagPhonemes.end()) t.phonemes = it->second;
                else {
                    std::string kept;
                    for (char32_t c : utf8::decode(t.text))
                        if (utf8::contains(kPunctuations, c)) kept += utf8::encode(c);
                    t.phonemes = kept;
                }
                t.meta.rating = 4;
            } else if (currency) {
                // The amount is the last numeric sub-token: "$20/month" is twenty dollars.
                const bool numberFollows = std::any_of(subs.begin() + static_cast<long>(k) + 1, subs.end(),
                                                       [](const MToken& s) { return hasDigit(s.text); });
                if (!hasDigit(t.text) && t.tag != LexicalClass::Number) currency.reset();
                else if (!numberFollows) t.meta.currency = currency;
            }
            if (t.text == "2" && k > 0 && k + 1 < subs.size() && !subs[k - 1].text.empty() && !subs[k + 1].text.empty() &&
                text::isLetter(utf8::last(subs[k - 1].text)) && text::isLetter(utf8::decode(subs[k + 1].text)[0]))
                t.meta.alias = "to";
        }
        // Sub-tokens of one token read together; one with its own reading stands alone.
        std::vector<MToken> compound;
        const bool many = subs.size() > 1;
        for (auto& t : subs) {
            if (t.meta.alias || t.phonemes) {
                if (!compound.empty()) items.emplace_back(std::move(compound));
                compound.clear();
                items.emplace_back(std::move(t));
            } else if (many) {
                compound.push_back(std::move(t));
            } else {
                items.emplace_back(std::move(t));
            }
        }
        if (!compound.empty()) items.emplace_back(std::move(compound));
    }
    return items;
}

MToken EnglishG2P::mergeTokens(const std::vector<MToken>& tokens, const std::optional<std::string>& unk) {
    MToken m;
    if (tokens.empty()) return m;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        m.text += tokens[i].text;
        if (i + 1 < tokens.size()) m.text += tokens[i].whitespace;
    }
    int best = -1;
    for (const auto& t : tokens) {
        int score = 0;
        for (char32_t c : utf8::decode(t.text)) score += static_cast<char32_t>(u_tolower(static_cast<UChar32>(c))) == c ? 1 : 2;
        if (score > best) {
            best = score;
            m.tag = t.tag;
            m.penn = t.penn;
        }
    }
    m.whitespace = tokens.back().whitespace;
    m.tokenRange = {tokens.front().tokenRange.begin, tokens.back().tokenRange.end};
    if (unk) {
        std::string p;
        for (const auto& t : tokens) {
            if (t.meta.prespace && !p.empty() && p.back() != ' ' && t.phonemes && !t.phonemes->empty()) p += ' ';
            p += t.phonemes ? *t.phonemes : *unk;
        }
        m.phonemes = p;
    }
    m.start_ts = tokens.front().start_ts;
    m.end_ts = tokens.back().end_ts;
    m.meta.is_head = tokens.front().meta.is_head;
    m.meta.prespace = tokens.front().meta.prespace;
    std::optional<double> stress;
    bool agree = true;
    for (const auto& t : tokens)
        if (t.meta.stress) {
            if (stress && *stress != *t.meta.stress) agree = false;
            stress = t.meta.stress;
        }
    m.meta.stress = agree ? stress : std::nullopt;
    for (const auto& t : tokens)
        if (t.meta.currency && (!m.meta.currency || *t.meta.currency > *m.meta.currency)) m.meta.currency = t.meta.currency;
    std::set<char> flags;
    for (const auto& t : tokens) flags.insert(t.meta.num_flags.begin(), t.meta.num_flags.end());
    m.meta.num_flags.assign(flags.begin(), flags.end());
    std::optional<int> rating;
    bool none = false;
    for (const auto& t : tokens) {
        if (!t.meta.rating) none = true;
        else if (!rating || *t.meta.rating < *rating) rating = t.meta.rating;
    }
    m.meta.rating = none ? std::nullopt : rating;
    return m;
}

TokenContext EnglishG2P::tokenContext(const TokenContext& ctx, const std::optional<std::string>& phonemes, const MToken& token) {
    TokenContext out = ctx;
    if (phonemes) {
        for (char32_t c : utf8::decode(*phonemes)) {
            if (utf8::contains(kNonQuotePunctuations, c)) { out.futureVowel.reset(); break; }
            if (utf8::contains(kVowels, c)) { out.futureVowel = true; break; }
            if (utf8::contains(kConsonants, c)) { out.futureVowel = false; break; }
        }
    }
    out.futureTo = token.text == "to" || token.text == "To" ||
                   (token.text == "TO" && (token.tag == LexicalClass::Particle || token.tag == LexicalClass::Preposition));
    return out;
}

int EnglishG2P::stressWeight(const std::optional<std::string>& phonemes) {
    if (!phonemes) return 0;
    int w = 0;
    for (char32_t c : utf8::decode(*phonemes)) w += utf8::contains(kDipthongs, c) ? 2 : 1;
    return w;
}

std::pair<std::string, int> EnglishG2P::resolvePart(const std::string& word) {
    if (auto p = lexicon_.phonemesForWord(word)) return {*p, 3};
    const auto u = utf8::decode(word);
    if (u.size() <= 4 && text::allLetters(word) && word == text::upper(word))
        if (auto r = lexicon_.getNNP(word)) return {*r.phonemes, r.rating.value_or(2)};
    if (bart_)
        if (auto p = bart_->predict(text::lower(word)); p && !p->empty()) return {*p, 2};
    if (auto r = lexicon_.getNNP(word)) return {*r.phonemes, r.rating.value_or(2)};
    return {unk_, 1};
}

std::pair<std::string, int> EnglishG2P::fallback(const MToken& token) {
    const auto pieces = Regexes::matches(*regexes_->camel, token.text);
    if (pieces.size() < 2) return resolvePart(token.text);
    std::string out;
    int rating = 5;
    for (const auto& p : pieces) {
        auto [ph, r] = resolvePart(p);
        if (!out.empty()) out += " ";
        out += ph;
        rating = std::min(rating, r);
    }
    return {out, rating};
}

void EnglishG2P::resolveTokens(std::vector<MToken>& list) const {
    std::string joined;
    for (std::size_t i = 0; i < list.size(); ++i) joined += list[i].text + (i + 1 < list.size() ? list[i].whitespace : "");
    bool prespace = joined.find(' ') != std::string::npos || joined.find('/') != std::string::npos;
    if (!prespace) {
        int kinds = 0;
        bool letters = false, digits = false, others = false;
        for (char32_t c : utf8::decode(joined)) {
            if (utf8::contains(kSubTokenJunks, c)) continue;
            if (text::isLetter(c)) letters = true;
            else if (text::isDigit(c)) digits = true;
            else others = true;
        }
        kinds = letters + digits + others;
        prespace = kinds > 1;
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        MToken& t = list[i];
        if (!t.phonemes) {
            if (i + 1 == list.size() && allIn(t.text, kNonQuotePunctuations)) {
                t.phonemes = t.text;
                t.meta.rating = 3;
            } else if (allIn(t.text, kSubTokenJunks)) {
                t.phonemes = "";
                t.meta.rating = 3;
            }
        } else if (i > 0) {
            t.meta.prespace = prespace;
        }
    }
    if (prespace) return;
    struct Triple {
        bool primary;
        int weight;
        std::size_t index;
    };
    std::vector<Triple> triples;
    for (std::size_t i = 0; i < list.size(); ++i)
        if (list[i].phonemes && !list[i].phonemes->empty())
            triples.push_back({list[i].phonemes->find("ˈ") != std::string::npos, stressWeight(list[i].phonemes), i});
    if (triples.size() == 2 && utf8::length(list[triples[0].index].text) == 1) {
        auto& p = list[triples[1].index].phonemes;
        p = Lexicon::applyStress(*p, -0.5);
        return;
    }
    const std::size_t primaries = static_cast<std::size_t>(std::count_if(triples.begin(), triples.end(), [](const Triple& t) { return t.primary; }));
    if (triples.size() < 2 || primaries <= (triples.size() + 1) / 2) return;
    std::sort(triples.begin(), triples.end(), [](const Triple& a, const Triple& b) {
        return std::tie(a.primary, a.weight, a.index) < std::tie(b.primary, b.weight, b.index);
    });
    for (std::size_t k = 0; k < triples.size() / 2; ++k) {
        auto& p = list[triples[k].index].phonemes;
        p = Lexicon::applyStress(*p, -0.5);
    }
}

std::pair<std::string, std::vector<MToken>> EnglishG2P::phonemize(const std::string& input, bool performPreprocess) {
    Preprocessed pre;
    if (performPreprocess) pre = preprocess(input);
    else pre.text = input;
    std::vector<MToken> tokens = foldLeft(tokenize(pre.text, pre.features));
    std::vector<RetokenizedItem> items = retokenize(std::move(tokens));

    TokenContext ctx;
    for (std::size_t idx = items.size(); idx-- > 0;) {
        if (auto* single = std::get_if<MToken>(&items[idx])) {
            MToken& t = *single;
            if (!t.phonemes) {
                Reading r = lexicon_.transcribe(t, ctx);
                if (r) {
                    t.phonemes = r.phonemes;
                    t.meta.rating = r.rating;
                } else {
                    auto [p, rating] = fallback(t);
                    t.phonemes = p;
                    t.meta.rating = rating;
                }
            }
            ctx = tokenContext(ctx, t.phonemes, t);
            continue;
        }
        auto& list = std::get<std::vector<MToken>>(items[idx]);
        std::size_t left = 0, right = list.size();
        bool shouldFallback = false;
        while (left < right) {
            if (right - left > kLongestCompound ||
                std::any_of(list.begin() + static_cast<long>(left), list.begin() + static_cast<long>(right),
                            [](const MToken& t) { return t.meta.alias || t.phonemes; })) {
                ++left;
                continue;
            }
            const MToken merged = mergeTokens({list.begin() + static_cast<long>(left), list.begin() + static_cast<long>(right)});
            Reading r = lexicon_.transcribe(merged, ctx);
            if (r) {
                list[left].phonemes = r.phonemes;
                list[left].meta.rating = r.rating;
                for (std::size_t k = left + 1; k < right; ++k) {
                    list[k].phonemes = "";
                    list[k].meta.rating = r.rating;
                }
                ctx = tokenContext(ctx, r.phonemes, merged);
                right = left;
                left = 0;
            } else if (left + 1 < right) {
                ++left;
            } else if (allIn(list[left].text, kSubTokenJunks)) {
                list[left].phonemes = "";
                list[left].meta.rating = 3;
                right = left;
                left = 0;
            } else {
                shouldFallback = true;
                break;
            }
        }
        if (shouldFallback) {
            const MToken merged = mergeTokens(list);
            auto [p, rating] = fallback(merged);
            list[0].phonemes = p;
            list[0].meta.rating = rating;
            for (std::size_t k = 1; k < list.size(); ++k) {
                list[k].phonemes = "";
                list[k].meta.rating = rating;
            }
            ctx = tokenContext(ctx, p, merged);
        } else {
            resolveTokens(list);
        }
    }

    std::vector<MToken> out;
    out.reserve(items.size());
    for (auto& item : items) {
        if (auto* single = std::get_if<MToken>(&item)) out.push_back(std::move(*single));
        else out.push_back(mergeTokens(std::get<std::vector<MToken>>(item), unk_));
    }
    std::string result;
    for (auto& t : out) {
        if (t.phonemes && !t.phonemes->empty()) t.phonemes = replaceAll(replaceAll(*t.phonemes, "ɾ", "T"), "ʔ", "t");
        result += t.phonemes ? *t.phonemes : unk_;
        result += t.whitespace;
    }
    return {result, out};
}

} // namespace tavorin
