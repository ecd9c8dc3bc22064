#pragma once
// The Penn Treebank tag of a token: the tagger's own when it gave one, else one made
// from the word class and the word's form.
#include <optional>
#include <string>

#include "speech/MToken.hpp"

namespace tavorin {

std::string pennTag(std::optional<LexicalClass> tag, const MToken& token);

} // namespace tavorin
