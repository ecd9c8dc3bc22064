#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// Small text helpers shared by every layer. ASCII only: names, keys and words
// of the protocol, never prose that needs a locale.
namespace Text {

// Any of `characters` from both ends.
std::string_view trim(std::string_view text, std::string_view characters);
// Blanks and tabs only: a carriage return stays part of a line.
std::string_view trimBlanks(std::string_view text);
// Any ASCII white space (space, tab, newlines, vertical tab, form feed).
std::string_view trimSpace(std::string_view text);
std::string lower(std::string_view text);
bool equalsIgnoringCase(std::string_view a, std::string_view b);
std::string join(const std::vector<std::string>& parts, std::string_view glue);
// Pieces between separators, empty ones kept.
std::vector<std::string_view> split(std::string_view text, char separator);

}  // namespace Text

}  // namespace tavorin
