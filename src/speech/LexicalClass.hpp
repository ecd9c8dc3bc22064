#pragma once
// The word classes the phonemiser reads, with the name kinds a tagger may give instead.
#include <string_view>

namespace tavorin {

enum class LexicalClass {
    Noun, Verb, Adjective, Adverb, Pronoun, Determiner, Particle, Preposition, Number, Conjunction,
    Interjection, Classifier, Idiom, OtherWord, SentenceTerminator, OpenQuote, CloseQuote, OpenParenthesis,
    CloseParenthesis, WordJoiner, Dash, OtherPunctuation, ParagraphBreak, Whitespace, Punctuation, Word,
    PersonalName, PlaceName, OrganizationName
};

std::string_view lexicalClassName(LexicalClass c);

} // namespace tavorin
