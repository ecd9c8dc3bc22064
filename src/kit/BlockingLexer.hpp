#pragma once
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// Colours a stage script for the editor; the tokens are also how a step's words
// are found in the text.
namespace BlockingLexer {

enum class Kind { keyword, anchorWord, lineRef, string, number, comment, unknown, plain };

// Byte offsets into the whole source, `end` exclusive.
struct Range {
  size_t begin = 0;
  size_t end = 0;
  bool operator==(const Range&) const = default;
};

struct Token {
  Kind kind = Kind::plain;
  Range range;
  std::string text;  // as written
  bool operator==(const Token&) const = default;
};

inline constexpr std::array<std::string_view, 11> stepKeywords{
    "app", "open", "click", "scroll", "move", "type", "key", "wait", "hold", "js", "agent"};
inline constexpr std::array<std::string_view, 11> anchorKeywords{
    "with", "after", "until", "offset", "over", "at", "cue", "timeout", "rules", "model", "effort"};

std::vector<Token> tokens(std::string_view source);

}  // namespace BlockingLexer

}  // namespace tavorin
