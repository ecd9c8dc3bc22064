#pragma once
// UTF-8 to code points and back; bytes that are not UTF-8 read as U+FFFD.
#include <string>
#include <string_view>

namespace tavorin::utf8 {

std::u32string decode(std::string_view s);
std::string encode(std::u32string_view s);
std::string encode(char32_t c);
// Count of code points.
std::size_t length(std::string_view s);
// Last code point, or 0 for an empty text.
char32_t last(std::string_view s);
// Text without its last code point.
std::string dropLast(std::string_view s);
bool contains(std::string_view set, char32_t c);

} // namespace tavorin::utf8
