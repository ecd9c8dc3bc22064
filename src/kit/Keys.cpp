#include "kit/Keys.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "base/Text.hpp"
#include "kit/BlockingText.hpp"

namespace tavorin {

using BlockingText::joined;

namespace {

struct KeyName {
  std::string_view name;
  std::uint16_t code;
};

// US-layout virtual key codes, as the desktop's own numbering has them.
constexpr std::array<KeyName, 91> table{{
    {"a", 0},         {"s", 1},          {"d", 2},          {"f", 3},
    {"h", 4},         {"g", 5},          {"z", 6},          {"x", 7},
    {"c", 8},         {"v", 9},          {"b", 11},         {"q", 12},
    {"w", 13},        {"e", 14},         {"r", 15},         {"y", 16},
    {"t", 17},        {"o", 31},         {"u", 32},         {"i", 34},
    {"p", 35},        {"l", 37},         {"j", 38},         {"k", 40},
    {"n", 45},        {"m", 46},         {"1", 18},         {"2", 19},
    {"3", 20},        {"4", 21},         {"5", 23},         {"6", 22},
    {"7", 26},        {"8", 28},         {"9", 25},         {"0", 29},
    {"equal", 24},    {"=", 24},         {"minus", 27},     {"-", 27},
    {"bracketright", 30}, {"]", 30},     {"bracketleft", 33}, {"[", 33},
    {"quote", 39},    {"'", 39},         {"semicolon", 41}, {";", 41},
    {"backslash", 42}, {"\\", 42},       {"comma", 43},     {",", 43},
    {"slash", 44},    {"/", 44},         {"period", 47},    {".", 47},
    {"grave", 50},    {"`", 50},         {"return", 36},    {"enter", 36},
    {"tab", 48},      {"space", 49},     {"delete", 51},    {"backspace", 51},
    {"escape", 53},   {"esc", 53},       {"forwarddelete", 117}, {"fwddelete", 117},
    {"home", 115},    {"end", 119},      {"pageup", 116},   {"pgup", 116},
    {"pagedown", 121}, {"pgdown", 121},  {"help", 114},     {"left", 123},
    {"right", 124},   {"down", 125},     {"up", 126},       {"f1", 122},
    {"f2", 120},      {"f3", 99},        {"f4", 118},       {"f5", 96},
    {"f6", 97},       {"f7", 98},        {"f8", 100},       {"f9", 101},
    {"f10", 109},     {"f11", 103},      {"f12", 111},
}};

bool trimmedAtEnds(char c) { return c == ' ' || c == '\t' || c == '"' || c == '\''; }

std::vector<std::string_view> pieces(std::string_view text) {
  std::vector<std::string_view> out;
  size_t from = 0;
  while (from <= text.size()) {
    size_t plus = text.find('+', from);
    if (plus == std::string_view::npos) plus = text.size();
    if (plus > from) out.push_back(text.substr(from, plus - from));
    from = plus + 1;
  }
  return out;
}

std::string inQuotes(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '\'';
  out += text;
  out += '\'';
  return out;
}


}  // namespace

namespace Keys {

std::string_view name(Modifier modifier) {
  switch (modifier) {
    case Modifier::command: return "command";
    case Modifier::shift: return "shift";
    case Modifier::option: return "option";
    case Modifier::control: return "control";
  }
  return "";
}

std::string clean(std::string_view text) {
  while (!text.empty() && trimmedAtEnds(text.front())) text.remove_prefix(1);
  while (!text.empty() && trimmedAtEnds(text.back())) text.remove_suffix(1);
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

std::optional<Modifier> modifier(std::string_view word) {
  const std::string w = clean(word);
  if (w == "cmd" || w == "command" || w == "\u2318") return Modifier::command;
  if (w == "shift" || w == "\u21E7") return Modifier::shift;
  if (w == "opt" || w == "option" || w == "alt" || w == "\u2325") return Modifier::option;
  if (w == "ctrl" || w == "control" || w == "\u2303") return Modifier::control;
  return std::nullopt;
}

std::optional<std::uint16_t> code(std::string_view name) {
  for (const auto& key : table)
    if (key.name == name) return key.code;
  return std::nullopt;
}

std::optional<Combo> parse(std::string_view text) {
  const auto parts = pieces(text);
  if (parts.empty()) return std::nullopt;
  Combo combo;
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    const auto m = modifier(parts[i]);
    if (!m) return std::nullopt;
    if (std::find(combo.modifiers.begin(), combo.modifiers.end(), *m) != combo.modifiers.end())
      return std::nullopt;
    combo.modifiers.push_back(*m);
  }
  combo.name = clean(parts.back());
  const auto keyCode = code(combo.name);
  if (!keyCode) return std::nullopt;
  combo.code = *keyCode;
  return combo;
}

std::optional<std::string> refusal(std::string_view text) {
  text = Text::trimBlanks(text);
  const auto parts = pieces(text);
  if (parts.empty()) return std::string("`key` needs a key to press");
  for (size_t i = 0; i + 1 < parts.size(); ++i)
    if (!modifier(parts[i]))
      return inQuotes(clean(parts[i])) + " is not a modifier. Try: cmd, shift, alt, ctrl";
  std::vector<Modifier> seen;
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    const Modifier m = *modifier(parts[i]);
    if (std::find(seen.begin(), seen.end(), m) != seen.end())
      return inQuotes(name(m)) + " is named twice in " + inQuotes(text);
    seen.push_back(m);
  }
  const std::string last = clean(parts.back());
  if (!code(last))
    return inQuotes(last) + " is not a key this computer can press. Try: " + joined(hint());
  return std::nullopt;
}

std::vector<std::string> names() {
  std::vector<std::string> out;
  out.reserve(table.size());
  for (const auto& key : table) out.emplace_back(key.name);
  std::sort(out.begin(), out.end());
  return out;
}

const std::vector<std::string>& hint() {
  static const std::vector<std::string> list{"a-z",   "0-9",  "return", "tab",         "space",
                                             "delete", "escape", "left", "right",      "up",
                                             "down",  "bracketleft", "bracketright"};
  return list;
}

}  // namespace Keys

}  // namespace tavorin
