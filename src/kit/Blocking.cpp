#include "kit/Blocking.hpp"

#include <algorithm>
#include <array>
#include <charconv>

#include "kit/BlockingText.hpp"

namespace tavorin {

namespace {

using namespace BlockingText;

// From the first double quote to the last; there is no escape, so inner quotes stand.
std::optional<std::string> quotedText(std::string_view line) {
  const size_t first = line.find('"');
  if (first == std::string_view::npos) return std::nullopt;
  const size_t last = line.rfind('"');
  if (last == first) return std::nullopt;
  return std::string(line.substr(first + 1, last - first - 1));
}

std::string deleting(std::string_view text, std::string_view what) {
  std::string out;
  out.reserve(text.size());
  size_t from = 0;
  for (size_t at; (at = text.find(what, from)) != std::string_view::npos; from = at + what.size())
    out.append(text.substr(from, at - from));
  out.append(text.substr(from));
  return out;
}

// A code point that can stand in a cue's name: ASCII letters and digits, "-", "_",
// and beyond ASCII anything outside the blocks of punctuation, symbols and emoji.
bool nameCharacter(char32_t c) {
  if (c < 0x80)
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_';
  if (c < 0xC0 || c == 0xD7 || c == 0xF7) return false;
  if (c >= 0x2000 && c <= 0x2BFF) return false;
  if (c >= 0x3000 && c <= 0x303F) return false;
  if (c >= 0xE000 && c <= 0xF8FF) return false;
  if (c >= 0xFE00 && c <= 0xFE6F) return false;
  if (c >= 0xFF00 && c <= 0xFF0F) return false;
  return c < 0x1F000;
}

bool validName(std::string_view name) {
  if (name.empty()) return false;
  size_t at = 0;
  while (at < name.size()) {
    const auto c = nextCodePoint(name, at);
    if (!c || !nameCharacter(*c)) return false;
  }
  return true;
}

std::optional<double> timeoutSeconds(std::string_view value) {
  if (!value.empty() && value.back() == 'm')
    if (auto minutes = Blocking::number(value.substr(0, value.size() - 1))) return *minutes * 60;
  if (!value.empty() && value.back() == 's')
    if (auto seconds = Blocking::number(value.substr(0, value.size() - 1))) return seconds;
  return Blocking::number(value);
}

bool oneOf(std::string_view value, std::initializer_list<std::string_view> list) {
  for (auto item : list)
    if (item == value) return true;
  return false;
}

}  // namespace

namespace Blocking {

std::string_view name(Mark mark) {
  static constexpr std::array<std::string_view, 13> names{
      "app", "open", "click", "move", "scroll", "type", "key", "wait", "hold", "js", "agent", "cue", "unknown"};
  return names[static_cast<size_t>(mark)];
}

Mark Kind::mark() const {
  // In the order of the alternatives of `Value`.
  static constexpr std::array<Mark, std::variant_size_v<Value>> marks{
      Mark::app,  Mark::open, Mark::click, Mark::scroll, Mark::move,  Mark::type,    Mark::key,
      Mark::wait, Mark::hold, Mark::js,    Mark::agent,  Mark::cue,   Mark::unknown, Mark::unknown};
  return marks[value.index()];
}

std::optional<double> number(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const char* first = text.data();
  const char* last = first + text.size();
  if (*first == '+') ++first;
  const char* body = first != last && *first == '-' ? first + 1 : first;
  // Only digits may open the number: no second sign, no "inf" or "nan".
  if (body == last || !((*body >= '0' && *body <= '9') || *body == '.')) return std::nullopt;
  double value = 0;
  const auto [end, error] = std::from_chars(first, last, value);
  if (error != std::errc{} || end != last) return std::nullopt;
  return value;
}

std::vector<Word> words(std::string_view text) {
  std::vector<Word> out;
  size_t i = 0;
  while (i < text.size()) {
    if (isWhitespace(text[i])) {
      ++i;
    } else if (text[i] == '"') {
      const size_t close = text.find('"', i + 1);
      if (close == std::string_view::npos) {
        out.push_back({std::string(text.substr(i + 1)), false});
        break;
      }
      out.push_back({std::string(text.substr(i + 1, close - i - 1)), true});
      i = close + 1;
    } else {
      size_t j = i;
      while (j < text.size() && !isWhitespace(text[j]) && text[j] != '"') ++j;
      out.push_back({std::string(text.substr(i, j - i)), false});
      i = j;
    }
  }
  return out;
}

std::vector<double> numbers(std::string_view line) {
  std::vector<double> out;
  size_t i = 0;
  while (i < line.size()) {
    if (line[i] == ' ' || line[i] == ',') {
      ++i;
      continue;
    }
    size_t j = i;
    while (j < line.size() && line[j] != ' ' && line[j] != ',') ++j;
    const std::string_view piece = line.substr(i, j - i);
    const auto value =
        piece.find("px") == std::string_view::npos ? number(piece) : number(deleting(piece, "px"));
    if (value) out.push_back(*value);
    i = j;
  }
  return out;
}

std::optional<double> over(const std::vector<std::string_view>& words) {
  for (size_t i = 0; i + 1 < words.size(); ++i)
    if (words[i] == "over") return number(deleting(words[i + 1], "s"));
  return std::nullopt;
}

std::optional<AgentCall> agentCall(std::string_view line) {
  const auto list = words(line);
  if (list.empty() || list.front().text != "agent") return std::nullopt;
  AgentCall call;
  const Word* prompt = nullptr;
  for (const auto& word : list)
    if (word.quoted) {
      prompt = &word;
      break;
    }
  if (!prompt || prompt->text.empty()) return std::nullopt;
  call.prompt = prompt->text;

  for (size_t i = 1; i < list.size();) {
    const Word& word = list[i];
    const Word* next = i + 1 < list.size() ? &list[i + 1] : nullptr;
    if (word.quoted) {
      ++i;
    } else if (word.text == "rules" && next && next->quoted) {
      call.rules = next->text.empty() ? std::nullopt : std::optional(next->text);
      i += 2;
    } else if (word.text == "model" && next && !next->quoted) {
      if (oneOf(next->text, {"sonnet", "opus", "haiku", "fable"})) call.model = next->text;
      i += 2;
    } else if (word.text == "effort" && next && !next->quoted) {
      if (oneOf(next->text, {"low", "medium", "high"})) call.effort = next->text;
      i += 2;
    } else if (word.text == "timeout" && next && !next->quoted) {
      call.timeout = timeoutSeconds(next->text).value_or(defaultAgentTimeout);
      i += 2;
    } else {
      ++i;
    }
  }
  return call;
}

std::optional<std::string> parseCueHeader(std::string_view line) {
  const auto list = splitBlanks(line);
  if (list.size() != 2 || list[0] != "cue" || !validName(list[1])) return std::nullopt;
  return std::string(list[1]);
}

std::optional<Anchor> parseAnchorHeader(std::string_view line) {
  if (line.empty() || line.back() != ':') return std::nullopt;
  const auto list = splitBlanks(line.substr(0, line.size() - 1));
  if (list.size() < 2) return std::nullopt;
  Anchor anchor;
  if (list[0] == "with" || list[0] == "after") {
    anchor.to = std::string(list[1]);
    anchor.edge = list[0] == "after" ? "end" : "start";
    for (size_t i = 2; i < list.size();) {
      if (list[i] == "offset" && i + 1 < list.size()) {
        anchor.offset = number(list[i + 1]);
        i += 2;
      } else if (list[i] == "until" && i + 1 < list.size()) {
        anchor.until = std::string(list[i + 1]);
        i += 2;
      } else {
        ++i;
      }
    }
    return anchor;
  }
  if (list[0] == "at") {
    anchor.offset = number(list[1]);
    if (!anchor.offset) return std::nullopt;
    return anchor;
  }
  return std::nullopt;
}

Kind parseStep(std::string_view line) {
  const auto list = splitBlanks(line);
  if (list.empty()) return Kind::Unknown{};
  const std::string_view verb = list[0];

  if (verb == "app" || verb == "open" || verb == "type" || verb == "js") {
    auto text = quotedText(line);
    if (!text) return Kind::Unknown{};
    if (verb == "app") return Kind::App{std::move(*text)};
    if (verb == "open") return Kind::Open{std::move(*text)};
    if (verb == "type") return Kind::Type{std::move(*text)};
    return Kind::Js{std::move(*text)};
  }
  if (verb == "agent") {
    if (auto call = agentCall(line)) return std::move(*call);
    return Kind::Unknown{};
  }
  if (verb == "key") {
    std::string combo;
    const auto parts = words(line);
    for (size_t i = 1; i < parts.size(); ++i) {
      if (parts[i].text.empty()) continue;
      if (!combo.empty()) combo += ' ';
      combo += parts[i].text;
    }
    if (combo.empty()) return Kind::Unknown{};
    return Kind::Key{std::move(combo)};
  }
  if (verb == "wait" || verb == "hold") {
    const auto seconds = list.size() >= 2 ? number(list[1]) : std::nullopt;
    if (!seconds) return Kind::Unknown{};
    if (verb == "wait") return Kind::Wait{*seconds};
    return Kind::Hold{*seconds};
  }
  if (verb == "click" || verb == "move") {
    const auto values = numbers(line);
    if (values.size() < 2) return Kind::Unknown{};
    if (verb == "click") return Kind::Click{values[0], values[1]};
    return Kind::Move{values[0], values[1], over(list)};
  }
  if (verb == "scroll") {
    const auto values = numbers(line);
    if (values.empty()) return Kind::Unknown{};
    return Kind::Scroll{values[0], over(list)};
  }
  return Kind::Unknown{};
}

std::vector<Step> parse(std::string_view source) {
  std::vector<Step> steps;
  // One allocation up front: steps are large and a script has thousands of them.
  steps.reserve(static_cast<size_t>(std::count(source.begin(), source.end(), '\n')) + 1);
  int counter = 0;
  std::optional<std::string> cue;
  std::optional<Anchor> anchor;
  int lineNumber = 0;
  forEachLine(source, [&](std::string_view line, size_t) {
    ++lineNumber;
    // No quote awareness: a "#" inside quotes cuts the line all the same.
    if (const size_t hash = line.find('#'); hash != std::string_view::npos) line = line.substr(0, hash);
    const std::string_view trimmed = Text::trimBlanks(line);
    if (trimmed.empty()) return;
    const bool indented = line.front() == ' ' || line.front() == '\t';
    if (!indented) anchor.reset();
    ++counter;

    Step step;
    step.id = counter;
    step.raw = std::string(trimmed);
    step.sourceLine = lineNumber;
    if (!indented) {
      if (auto name = parseCueHeader(trimmed)) {
        cue = name;
        step.kind = Kind::Cue{std::move(*name)};
        step.cue = cue;
        steps.push_back(std::move(step));
        return;
      }
      cue.reset();
    }
    step.cue = cue;
    if (auto header = parseAnchorHeader(trimmed)) {
      anchor = header;
      step.anchor = std::move(header);
      step.kind = Kind::AnchorHeader{};
    } else {
      step.indent = indented;
      if (indented) step.anchor = anchor;
      step.kind = parseStep(trimmed);
    }
    steps.push_back(std::move(step));
  });
  return steps;
}

}  // namespace Blocking

}  // namespace tavorin
