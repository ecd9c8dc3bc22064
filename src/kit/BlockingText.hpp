#pragma once
#include <optional>
#include <string_view>
#include <string>
#include <vector>

#include "base/Text.hpp"

// Small text helpers shared by the script's reader, lexer and rewriter.
namespace tavorin::BlockingText {

// "a, b, c": how the refusals list what would have been understood.
inline std::string joined(const std::vector<std::string>& list) { return Text::join(list, ", "); }

inline bool isWhitespace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}


// Words between blanks (the space character alone), empty ones dropped.
inline std::vector<std::string_view> splitBlanks(std::string_view text) {
  std::vector<std::string_view> out;
  size_t i = 0;
  while (i < text.size()) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    size_t j = text.find(' ', i);
    if (j == std::string_view::npos) j = text.size();
    out.push_back(text.substr(i, j - i));
    i = j;
  }
  return out;
}

// Calls `each(line, offset)` for every piece between line feeds, the last one
// included even when empty; the line feed alone ends a line.
template <class Each>
void forEachLine(std::string_view text, Each&& each) {
  size_t from = 0;
  while (true) {
    const size_t feed = text.find('\n', from);
    if (feed == std::string_view::npos) {
      each(text.substr(from), from);
      return;
    }
    each(text.substr(from, feed - from), from);
    from = feed + 1;
  }
}

// The code point at `at` in UTF-8, advancing past it; absent on a malformed sequence.
inline std::optional<char32_t> nextCodePoint(std::string_view text, size_t& at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  size_t length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
  if (length == 0 || at + length > text.size()) return std::nullopt;
  char32_t c = length == 1 ? lead : lead & (0x7F >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return std::nullopt;
    c = (c << 6) | (byte(at + i) & 0x3F);
  }
  at += length;
  return c;
}

// The first `count` code points of the text (bytes of a broken sequence count one each).
inline std::string_view prefixCodePoints(std::string_view text, size_t count) {
  size_t at = 0;
  for (size_t n = 0; n < count && at < text.size(); ++n)
    if (!nextCodePoint(text, at)) ++at;
  return text.substr(0, at);
}

}  // namespace tavorin::BlockingText
