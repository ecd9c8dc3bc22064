#include "kit/BlockingRewrite.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "kit/Blocking.hpp"
#include "kit/BlockingText.hpp"

namespace tavorin::BlockingRewrite {

namespace {

const Blocking::Step* stepWithId(const std::vector<Blocking::Step>& steps, int ordinal) {
  for (const auto& step : steps)
    if (step.id == ordinal) return &step;
  return nullptr;
}

}  // namespace

std::optional<double> offset(std::string_view source, int ordinal) {
  const auto steps = Blocking::parse(source);
  const auto* step = stepWithId(steps, ordinal);
  if (!step || !step->anchor) return std::nullopt;
  return step->anchor->offset;
}

std::string number(double value) {
  const double rounded = std::round(value * 1000) / 1000;
  if (!(std::abs(rounded) >= 0.0005)) return "";
  char buffer[400];
  if (rounded == std::trunc(rounded))
    std::snprintf(buffer, sizeof buffer, "%.0f", rounded);
  else
    std::snprintf(buffer, sizeof buffer, "%g", rounded);
  return buffer;
}

std::optional<std::string> rewriteHeader(std::string_view line, std::string_view number) {
  const size_t hash = line.find('#');
  const std::string_view head = line.substr(0, hash);
  const std::string_view comment = hash == std::string_view::npos ? std::string_view{} : line.substr(hash);

  const std::string_view trimmed = Text::trimBlanks(head);
  if (trimmed.empty() || trimmed.back() != ':') return std::nullopt;
  const size_t leadLength = static_cast<size_t>(trimmed.data() - head.data());
  const std::string_view lead = head.substr(0, leadLength);
  const std::string_view trailing = head.substr(leadLength + trimmed.size());

  std::vector<std::string> words;
  for (auto word : BlockingText::splitBlanks(trimmed.substr(0, trimmed.size() - 1))) words.emplace_back(word);
  if (words.empty() || (words[0] != "with" && words[0] != "after" && words[0] != "at")) return std::nullopt;

  const auto offsetWord = std::find(words.begin(), words.end(), "offset");
  if (offsetWord != words.end()) {
    if (offsetWord + 1 == words.end()) return std::nullopt;
    if (number.empty())
      words.erase(offsetWord, offsetWord + 2);
    else
      *(offsetWord + 1) = std::string(number);
  } else if (!number.empty()) {
    const auto until = std::find(words.begin(), words.end(), "until");
    words.insert(words.insert(until, std::string(number)), "offset");
  }

  std::string out(lead);
  for (size_t i = 0; i < words.size(); ++i) {
    if (i) out += ' ';
    out += words[i];
  }
  out += ':';
  out += trailing;
  out += comment;
  return out;
}

std::optional<std::string> setOffset(std::string_view source, int ordinal, double to) {
  const auto steps = Blocking::parse(source);
  const auto* step = stepWithId(steps, ordinal);
  if (!step) return std::nullopt;
  const Blocking::Step* header = nullptr;
  if (step->kind.is<Blocking::Kind::AnchorHeader>()) {
    header = step;
  } else {
    if (!step->indent) return std::nullopt;
    for (const auto& candidate : steps)
      if (candidate.sourceLine < step->sourceLine && candidate.kind.is<Blocking::Kind::AnchorHeader>())
        header = &candidate;
  }
  if (!header) return std::nullopt;

  std::string out;
  out.reserve(source.size() + 16);
  bool rewritten = true;
  int lineNumber = 0;
  BlockingText::forEachLine(source, [&](std::string_view line, size_t offsetInSource) {
    ++lineNumber;
    if (offsetInSource) out += '\n';
    if (lineNumber != header->sourceLine) {
      out += line;
      return;
    }
    const auto changed = rewriteHeader(line, number(to));
    if (!changed) {
      rewritten = false;
      return;
    }
    out += *changed;
  });
  if (!rewritten) return std::nullopt;
  return out;
}

}  // namespace tavorin::BlockingRewrite
