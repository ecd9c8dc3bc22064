#include "base/Text.hpp"

namespace tavorin {

namespace {
bool blank(char c) { return c == ' ' || c == '\t'; }
bool space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
char lowerChar(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

template <typename Pred>
std::string_view trimBy(std::string_view text, Pred pred) {
  while (!text.empty() && pred(text.front())) text.remove_prefix(1);
  while (!text.empty() && pred(text.back())) text.remove_suffix(1);
  return text;
}
}  // namespace

std::string_view Text::trim(std::string_view text, std::string_view characters) {
  return trimBy(text, [characters](char c) { return characters.find(c) != std::string_view::npos; });
}

std::string_view Text::trimBlanks(std::string_view text) { return trimBy(text, blank); }

std::string_view Text::trimSpace(std::string_view text) { return trimBy(text, space); }

std::string Text::lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = lowerChar(c);
  return out;
}

bool Text::equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (lowerChar(a[i]) != lowerChar(b[i])) return false;
  return true;
}

std::string Text::join(const std::vector<std::string>& parts, std::string_view glue) {
  std::string out;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i) out += glue;
    out += parts[i];
  }
  return out;
}

std::vector<std::string_view> Text::split(std::string_view text, char separator) {
  std::vector<std::string_view> out;
  std::size_t from = 0;
  while (true) {
    const std::size_t at = text.find(separator, from);
    if (at == std::string_view::npos) {
      out.push_back(text.substr(from));
      return out;
    }
    out.push_back(text.substr(from, at - from));
    from = at + 1;
  }
}

}  // namespace tavorin
