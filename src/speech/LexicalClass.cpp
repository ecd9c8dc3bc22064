#include "speech/LexicalClass.hpp"

namespace tavorin {

std::string_view lexicalClassName(LexicalClass c) {
    static constexpr std::string_view names[] = {
        "Noun", "Verb", "Adjective", "Adverb", "Pronoun", "Determiner", "Particle", "Preposition", "Number",
        "Conjunction", "Interjection", "Classifier", "Idiom", "OtherWord", "SentenceTerminator", "OpenQuote",
        "CloseQuote", "OpenParenthesis", "CloseParenthesis", "WordJoiner", "Dash", "OtherPunctuation",
        "ParagraphBreak", "Whitespace", "Punctuation", "Word", "PersonalName", "PlaceName", "OrganizationName"};
    return names[static_cast<int>(c)];
}

} // namespace tavorin
