#include "kit/BlockingLexer.hpp"

#include <algorithm>

#include "kit/Blocking.hpp"
#include "kit/BlockingText.hpp"

namespace tavorin {

namespace {

using namespace BlockingText;

template <class List>
bool contains(const List& list, std::string_view word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

// What the line would be if it stood alone in a script.
bool isUnknown(std::string_view trimmed) {
  if (trimmed.empty()) return false;
  if (Blocking::parseCueHeader(trimmed) || Blocking::parseAnchorHeader(trimmed)) return false;
  return Blocking::parseStep(trimmed).is<Blocking::Kind::Unknown>();
}

// The word as classed: ":" and "," trimmed from its ends, lower-cased.
std::string classed(std::string_view word) {
  while (!word.empty() && (word.front() == ':' || word.front() == ',')) word.remove_prefix(1);
  while (!word.empty() && (word.back() == ':' || word.back() == ',')) word.remove_suffix(1);
  std::string out(word);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

bool isLineRef(std::string_view word) {
  return word.size() >= 2 && word[0] == 'l' &&
         std::all_of(word.begin() + 1, word.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool readsAsNumber(const std::string& word) {
  if (word.find('s') == std::string::npos) return Blocking::number(word).has_value();
  std::string digits = word;
  std::erase(digits, 's');
  return Blocking::number(digits).has_value();
}

BlockingLexer::Kind classOf(std::string_view word, bool unknownLine) {
  using Kind = BlockingLexer::Kind;
  const std::string w = classed(word);
  if (contains(BlockingLexer::stepKeywords, w)) return unknownLine ? Kind::unknown : Kind::keyword;
  if (contains(BlockingLexer::anchorKeywords, w)) return Kind::anchorWord;
  if (isLineRef(w)) return Kind::lineRef;
  if (readsAsNumber(w)) return Kind::number;
  return unknownLine ? Kind::unknown : Kind::plain;
}

void scan(std::string_view part, size_t offset, bool unknownLine, std::vector<BlockingLexer::Token>& out) {
  using Kind = BlockingLexer::Kind;
  size_t i = 0;
  while (i < part.size()) {
    if (isWhitespace(part[i])) {
      ++i;
      continue;
    }
    size_t j = i + 1;
    Kind kind;
    if (part[i] == '"') {
      const size_t close = part.find('"', i + 1);
      j = close == std::string_view::npos ? part.size() : close + 1;
      kind = Kind::string;
    } else {
      while (j < part.size() && !isWhitespace(part[j]) && part[j] != '"') ++j;
      kind = classOf(part.substr(i, j - i), unknownLine);
    }
    out.push_back({kind, {offset + i, offset + j}, std::string(part.substr(i, j - i))});
    i = j;
  }
}

}  // namespace

namespace BlockingLexer {

std::vector<Token> tokens(std::string_view source) {
  std::vector<Token> out;
  forEachLine(source, [&](std::string_view line, size_t offset) {
    const size_t hash = line.find('#');
    const std::string_view part = hash == std::string_view::npos ? line : line.substr(0, hash);
    scan(part, offset, isUnknown(Text::trimBlanks(part)), out);
    if (hash != std::string_view::npos)
      out.push_back({Kind::comment, {offset + hash, offset + line.size()}, std::string(line.substr(hash))});
  });
  return out;
}

}  // namespace BlockingLexer

}  // namespace tavorin
