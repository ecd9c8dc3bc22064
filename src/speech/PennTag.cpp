#include "speech/PennTag.hpp"

#include <set>

#include "speech/TextCase.hpp"

namespace tavorin {

namespace {
bool endsWith(const std::string& s, const std::string& e) { return s.size() >= e.size() && s.compare(s.size() - e.size(), e.size(), e) == 0; }
} // namespace

std::string pennTag(std::optional<LexicalClass> tag, const MToken& token) {
    if (!token.penn.empty()) return token.penn;
    if (!tag) return "";
    const std::string w = text::lower(token.text);
    static const std::set<std::string> whWords{"what", "which", "who", "whom", "whose", "when", "where", "why", "how"};
    static const std::set<std::string> possessives{"my", "your", "his", "her", "its", "our", "their", "thy"};
    static const std::set<std::string> subordinators{"because", "although", "though", "if", "while", "since", "unless",
                                                     "whether", "that", "until", "once", "as", "than", "whereas"};
    switch (*tag) {
    case LexicalClass::Noun: return endsWith(w, "s") && !endsWith(w, "ss") ? "NNS" : "NN";
    case LexicalClass::PersonalName:
    case LexicalClass::OrganizationName:
    case LexicalClass::PlaceName: return "NNP";
    case LexicalClass::Verb:
        if (endsWith(w, "ing")) return "VBG";
        if (endsWith(w, "ed")) return "VBD";
        if (endsWith(w, "s") && !endsWith(w, "ss")) return "VBZ";
        return "VB";
    case LexicalClass::Adjective: return endsWith(w, "est") ? "JJS" : endsWith(w, "er") ? "JJR" : "JJ";
    case LexicalClass::Adverb:
        if (whWords.count(w)) return "WRB";
        return endsWith(w, "est") ? "RBS" : endsWith(w, "er") ? "RBR" : "RB";
    case LexicalClass::Pronoun:
        if (w == "whose") return "WP$";
        if (whWords.count(w)) return "WP";
        if (possessives.count(w)) return "PRP$";
        if (w == "there") return "EX";
        return "PRP";
    case LexicalClass::Determiner: return whWords.count(w) ? "WDT" : "DT";
    case LexicalClass::Preposition: return w == "to" ? "TO" : "IN";
    case LexicalClass::Conjunction: return subordinators.count(w) ? "IN" : "CC";
    case LexicalClass::Number: return "CD";
    case LexicalClass::Interjection: return "UH";
    case LexicalClass::Particle: return w == "to" ? "TO" : "RP";
    case LexicalClass::Whitespace:
    case LexicalClass::ParagraphBreak:
    case LexicalClass::WordJoiner: return "XX";
    case LexicalClass::Classifier:
    case LexicalClass::Idiom:
    case LexicalClass::Dash:
    case LexicalClass::Word:
    case LexicalClass::OtherWord: return "FW";
    default: return "";
    }
}

} // namespace tavorin
