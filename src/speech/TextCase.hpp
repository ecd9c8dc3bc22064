#pragma once
// Case and character classes over UTF-8 text, by Unicode's rules.
#include <string>
#include <string_view>

namespace tavorin::text {

std::string lower(std::string_view s);
std::string upper(std::string_view s);
bool isLetter(char32_t c);
bool isDigit(char32_t c);
bool isLower(char32_t c);
bool isUpper(char32_t c);
bool allLetters(std::string_view s);
// NFKC, curly apostrophes made straight, and digits of any script made ASCII.
std::string normalizeWord(std::string_view s);

} // namespace tavorin::text
