#include "speech/PosTagger.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "speech/Utf8.hpp"

namespace tavorin {

namespace {

constexpr std::size_t kMaxCandidates = 6;
// Log-probability mass a tag gives to any one word it has never been seen with.
constexpr float kUnknownWord = -13.0f;

bool isPunctuationText(std::string_view w) {
    if (w.empty()) return false;
    for (char32_t c : utf8::decode(w))
        if (c < 0x80 ? std::isalnum(static_cast<int>(c)) : (c != U'“' && c != U'”' && c != U'‘' && c != U'’' &&
                                                             c != U'—' && c != U'–' && c != U'…' && c != U'„'))
            return false;
    return true;
}

std::string lower(std::string_view s) {
    std::string out(s);
    for (auto& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

} // namespace

PosTagger::PosTagger(const std::filesystem::path& file) {
    std::ifstream in(file);
    if (!in) throw std::runtime_error("The part-of-speech data at " + file.string() + " could not be read.");
    std::string line;
    std::getline(in, line);
    {
        std::istringstream ls(line);
        std::string word;
        ls >> word;
        while (ls >> word) tags_.push_back(word);
    }
    n_ = tags_.size();
    if (n_ == 0 || n_ > 255) throw std::runtime_error("The part-of-speech data at " + file.string() + " is damaged.");
    auto index = [&](std::string_view name) {
        auto it = std::find(tags_.begin(), tags_.end(), name);
        return static_cast<std::uint8_t>(it == tags_.end() ? 0 : it - tags_.begin());
    };
    punc_ = index("punc");
    nnp_ = index("nnp");
    cd_ = index("cd");
    nn_ = index("nn");

    trigram_.assign(n_ * n_ * n_, 0.0f);
    for (std::size_t ctx = 0; ctx < n_ * n_; ++ctx) {
        if (!std::getline(in, line)) throw std::runtime_error("The part-of-speech data at " + file.string() + " is damaged.");
        std::istringstream ls(line);
        double total = 0;
        std::vector<double> row(n_);
        for (auto& v : row) {
            ls >> v;
            total += v;
        }
        for (std::size_t t = 0; t < n_; ++t)
            trigram_[ctx * n_ + t] = total > 0 && row[t] > 0 ? static_cast<float>(std::log(row[t] / total)) : -30.0f;
    }

    for (const char* t : {"nn", "nns", "nnp", "nnps", "jj", "jjr", "jjs", "vb", "vbd", "vbg", "vbn", "vbp", "vbz", "rb", "cd", "fw"})
        if (auto i = index(t); tags_[i] == t) open_.push_back(i);
    std::vector<bool> isOpen(n_, false);
    for (auto t : open_) isOpen[t] = true;

    std::unordered_map<std::string, std::vector<double>> suffixCounts;
    std::vector<double> prior(n_, 0.0);
    while (std::getline(in, line)) {
        const auto tab = line.find('\t');
        if (tab == std::string::npos) continue;
        std::string word = line.substr(0, tab);
        std::istringstream ls(line.substr(tab + 1));
        std::string pair;
        std::vector<Emission> ems;
        while (ls >> pair) {
            const auto colon = pair.rfind(':');
            if (colon == std::string::npos) continue;
            const auto t = index(pair.substr(0, colon));
            // "1" and "2" are festival's own marks, not word classes.
            if (tags_[t] != pair.substr(0, colon) || tags_[t] == "1" || tags_[t] == "2") continue;
            ems.push_back({t, std::stof(pair.substr(colon + 1))});
        }
        if (ems.empty()) continue;
        // The news text saw many verbs in one of their two bare forms only; either may stand
        // for the other ("We record", "to record").
        for (const auto& [have, lack] : {std::pair<const char*, const char*>{"vb", "vbp"}, {"vbp", "vb"}}) {
            const auto h = index(have), l = index(lack);
            auto it = std::find_if(ems.begin(), ems.end(), [&](const Emission& e) { return e.tag == h; });
            if (it != ems.end() && std::none_of(ems.begin(), ems.end(), [&](const Emission& e) { return e.tag == l; }))
                ems.push_back({l, it->logp - 1.0f});
        }
        std::sort(ems.begin(), ems.end(), [](const Emission& a, const Emission& b) { return a.logp > b.logp; });
        // Rare words stand for the unknown ones: their endings teach the guesser.
        const bool alpha = std::all_of(word.begin(), word.end(), [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; });
        if (alpha && word.size() > 3 && std::islower(static_cast<unsigned char>(word[0]))) {
            for (const auto& e : ems) {
                if (!isOpen[e.tag]) continue;
                prior[e.tag] += 1;
                const std::string lw = lower(word);
                for (std::size_t k = 1; k <= 3 && k < lw.size(); ++k) {
                    auto& counts = suffixCounts[lw.substr(lw.size() - k)];
                    if (counts.empty()) counts.assign(n_, 0.0);
                    counts[e.tag] += 1;
                }
            }
        }
        if (ems.size() > kMaxCandidates) ems.resize(kMaxCandidates);
        lexicon_.emplace(std::move(word), std::move(ems));
    }
    double priorTotal = 0;
    for (auto t : open_) priorTotal += prior[t] + 1;
    openPrior_.assign(n_, 0.0f);
    for (auto t : open_) openPrior_[t] = static_cast<float>(std::log((prior[t] + 1) / priorTotal));
    for (auto& [suffix, counts] : suffixCounts) {
        double total = 0;
        for (auto t : open_) total += counts[t];
        if (total < 3) continue;
        std::vector<Emission> ems;
        for (auto t : open_)
            ems.push_back({t, static_cast<float>(std::log((counts[t] + 0.1) / (total + 0.1 * static_cast<double>(open_.size()))))});
        std::sort(ems.begin(), ems.end(), [](const Emission& a, const Emission& b) { return a.logp > b.logp; });
        ems.resize(std::min<std::size_t>(ems.size(), 5));
        suffixes_.emplace(suffix, std::move(ems));
    }
}

std::vector<PosTagger::Emission> PosTagger::candidates(const std::string& word, bool sentenceStart) const {
    const std::string lw = lower(word);
    if (auto it = lexicon_.find(word); it != lexicon_.end()) {
        // A lower-case word the news text knew only as a name ("cat", a ticker) is
        // guessed as an unknown word too.
        const bool onlyName = std::all_of(it->second.begin(), it->second.end(), [&](const Emission& e) {
            return tags_[e.tag] == "nnp" || tags_[e.tag] == "nnps";
        });
        if (!onlyName || lw != word) return it->second;
        auto ems = guess(lw);
        ems.insert(ems.end(), it->second.begin(), it->second.end());
        return ems;
    }
    if (lw != word)
        if (auto it = lexicon_.find(lw); it != lexicon_.end()) {
            // A known word capitalised in mid-sentence may still be a name.
            auto ems = it->second;
            if (!sentenceStart && std::none_of(ems.begin(), ems.end(), [&](const Emission& e) { return e.tag == nnp_; }))
                ems.push_back({nnp_, kUnknownWord});
            return ems;
        }
    if (isPunctuationText(word)) return {{punc_, -3.0f}};
    const bool digit = !word.empty() && std::isdigit(static_cast<unsigned char>(word[0]));
    if (digit || (word.size() > 1 && (word[0] == '-' || word[0] == '+' || word[0] == '.') && std::isdigit(static_cast<unsigned char>(word[1]))))
        return {{cd_, kUnknownWord + 4}};
    const bool capital = !word.empty() && std::isupper(static_cast<unsigned char>(word[0]));
    if (capital && !sentenceStart) return {{nnp_, kUnknownWord}};
    std::vector<Emission> ems = guess(lw);
    if (capital) ems.push_back({nnp_, kUnknownWord});
    return ems;
}

std::vector<PosTagger::Emission> PosTagger::guess(const std::string& lw) const {
    std::vector<Emission> ems;
    for (std::size_t k = std::min<std::size_t>(3, lw.size() > 0 ? lw.size() - 1 : 0); k >= 1; --k) {
        if (auto it = suffixes_.find(lw.substr(lw.size() - k)); it != suffixes_.end()) {
            for (const auto& e : it->second) ems.push_back({e.tag, e.logp - openPrior_[e.tag] + kUnknownWord});
            break;
        }
    }
    if (ems.empty()) ems.push_back({nn_, kUnknownWord});
    return ems;
}

std::string PosTagger::pennName(std::uint8_t tag, const std::string& word) const {
    const std::string& t = tags_[tag];
    if (t == "punc") {
        if (word == "," ) return ",";
        if (word == "." || word == "!" || word == "?" || word == "…") return ".";
        if (word == ":" || word == ";" || word == "-" || word == "--" || word == "—" || word == "–") return ":";
        if (word == "(" || word == "[" || word == "{") return "-LRB-";
        if (word == ")" || word == "]" || word == "}") return "-RRB-";
        if (word == "``" || word == "“" || word == "„" || word == "‘" || word == "`") return "``";
        if (word == "''" || word == "”" || word == "\"" || word == "’" || word == "'") return "''";
        if (word == "$" || word == "#") return word;
        return ":";
    }
    if (t == "of") return "IN";
    std::string out = t;
    for (auto& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::vector<std::string> PosTagger::tag(const std::vector<std::string>& words) const {
    const std::size_t m = words.size();
    std::vector<std::string> out;
    if (m == 0) return out;
    std::vector<std::vector<Emission>> cand(m);
    bool start = true;
    for (std::size_t i = 0; i < m; ++i) {
        cand[i] = candidates(words[i], start);
        start = cand[i].size() == 1 && cand[i][0].tag == punc_ &&
                (words[i] == "." || words[i] == "!" || words[i] == "?" || words[i] == ":" || words[i] == "\"");
    }
    // A state is the pair (candidate index at i-1, candidate index at i); before the text
    // stand two sentence boundaries.
    constexpr float kNone = -std::numeric_limits<float>::infinity();
    std::vector<std::vector<float>> score(m);
    std::vector<std::vector<std::uint8_t>> back(m);
    auto prevCands = [&](std::size_t i) -> std::size_t { return i == 0 ? 1 : cand[i - 1].size(); };
    auto tagAt = [&](std::size_t i, std::size_t k) -> std::size_t { return cand[i][k].tag; };
    for (std::size_t i = 0; i < m; ++i) {
        const std::size_t P = prevCands(i), C = cand[i].size();
        score[i].assign(P * C, kNone);
        back[i].assign(P * C, 0);
        for (std::size_t a = 0; a < P; ++a) {
            const std::size_t ta = i == 0 ? punc_ : tagAt(i - 1, a);
            for (std::size_t b = 0; b < C; ++b) {
                const std::size_t tb = cand[i][b].tag;
                const float emit = cand[i][b].logp;
                if (i == 0) {
                    score[i][a * C + b] = trigram_[(punc_ * n_ + punc_) * n_ + tb] + emit;
                    continue;
                }
                const std::size_t PP = prevCands(i - 1);
                float best = kNone;
                std::uint8_t arg = 0;
                for (std::size_t x = 0; x < PP; ++x) {
                    const float prev = score[i - 1][x * P + a];
                    if (prev == kNone) continue;
                    const std::size_t tx = i == 1 ? punc_ : tagAt(i - 2, x);
                    const float s = prev + trigram_[(tx * n_ + ta) * n_ + tb];
                    if (s > best) { best = s; arg = static_cast<std::uint8_t>(x); }
                }
                score[i][a * C + b] = best == kNone ? kNone : best + emit;
                back[i][a * C + b] = arg;
            }
        }
    }
    // Best final state, then follow the pointers back.
    std::size_t a = 0, b = 0;
    {
        const std::size_t P = prevCands(m - 1), C = cand[m - 1].size();
        float best = kNone;
        for (std::size_t x = 0; x < P; ++x)
            for (std::size_t y = 0; y < C; ++y)
                if (score[m - 1][x * C + y] > best) { best = score[m - 1][x * C + y]; a = x; b = y; }
    }
    std::vector<std::size_t> chosen(m);
    for (std::size_t i = m; i-- > 0;) {
        chosen[i] = b;
        if (i == 0) break;
        const std::size_t C = cand[i].size();
        const std::size_t x = back[i][a * C + b];
        b = a;
        a = x;
    }
    out.reserve(m);
    for (std::size_t i = 0; i < m; ++i) out.push_back(pennName(cand[i][chosen[i]].tag, words[i]));
    // festival's tags have one class for personal and possessive pronouns; Penn has two.
    for (std::size_t i = 0; i < m; ++i) {
        if (out[i] != "PRP") continue;
        const std::string w = lower(words[i]);
        const bool beforeNoun = i + 1 < m && (out[i + 1].rfind("NN", 0) == 0 || out[i + 1].rfind("JJ", 0) == 0 || out[i + 1] == "CD");
        if (w == "my" || w == "our" || w == "your" || w == "their" || w == "its" || w == "his" || (w == "her" && beforeNoun))
            out[i] = "PRP$";
    }
    return out;
}

LexicalClass PosTagger::lexicalClass(std::string_view penn, std::string_view word) {
    auto starts = [&](std::string_view p) { return penn.substr(0, p.size()) == p; };
    if (penn == "NNP" || penn == "NNPS") return LexicalClass::PersonalName;
    if (starts("NN")) return LexicalClass::Noun;
    if (starts("VB") || penn == "MD") return LexicalClass::Verb;
    if (starts("JJ")) return LexicalClass::Adjective;
    if (starts("RB") || penn == "WRB") return LexicalClass::Adverb;
    if (starts("PRP") || starts("WP") || penn == "EX") return LexicalClass::Pronoun;
    if (penn == "DT" || penn == "PDT" || penn == "WDT") return LexicalClass::Determiner;
    if (penn == "IN") return LexicalClass::Preposition;
    if (penn == "TO" || penn == "RP" || penn == "POS") return LexicalClass::Particle;
    if (penn == "CC") return LexicalClass::Conjunction;
    if (penn == "CD") return LexicalClass::Number;
    if (penn == "UH") return LexicalClass::Interjection;
    if (penn == "FW" || penn == "SYM" || penn == "LS" || penn == "$" || penn == "#") return LexicalClass::OtherWord;
    if (penn == ",") return LexicalClass::Punctuation;
    if (penn == ".") return LexicalClass::SentenceTerminator;
    if (penn == "-LRB-") return LexicalClass::OpenParenthesis;
    if (penn == "-RRB-") return LexicalClass::CloseParenthesis;
    if (penn == "``") return LexicalClass::OpenQuote;
    if (penn == "''") return LexicalClass::CloseQuote;
    if (penn == ":") {
        if (word == "-" || word == "—" || word == "--") return LexicalClass::Dash;
        if (word == ";" || word == ":" || word == "–") return LexicalClass::Punctuation;
        return LexicalClass::OtherPunctuation;
    }
    return LexicalClass::OtherWord;
}

} // namespace tavorin
