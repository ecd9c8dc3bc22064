#include "kit/VoiceSpan.hpp"

#include <charconv>

namespace tavorin {

namespace {

// A whole decimal integer of at least 1, with an optional sign.
std::optional<int> positive(std::string_view text) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  int value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || text.empty() || value < 1) return std::nullopt;
  return value;
}

}  // namespace

std::optional<std::string> VoiceSpan::raw() const {
  switch (kind) {
    case Kind::line: return std::nullopt;
    case Kind::characters: return "chars:" + std::to_string(limit);
    case Kind::cue: return "cue";
  }
  return std::nullopt;
}

std::string VoiceSpan::title() const {
  switch (kind) {
    case Kind::line: return "Per line";
    case Kind::characters: return "Up to " + std::to_string(limit) + " characters";
    case Kind::cue: return "Per cue";
  }
  return "Per line";
}

const std::vector<int>& VoiceSpan::sizes() {
  static const std::vector<int> sizes{300, 600, 1000};
  return sizes;
}

std::vector<VoiceSpan> VoiceSpan::all() {
  std::vector<VoiceSpan> spans{line()};
  for (int n : sizes()) spans.push_back(characters(n));
  spans.push_back(cue());
  return spans;
}

std::optional<VoiceSpan> VoiceSpan::named(std::string_view title) {
  for (const auto& span : all())
    if (span.title() == title) return span;
  return std::nullopt;
}

VoiceSpan VoiceSpan::parse(const std::optional<std::string>& raw) {
  if (!raw || raw->empty()) return line();
  std::string_view text = *raw;
  if (text == "cue") return cue();
  static constexpr std::string_view prefix = "chars:";
  if (text.starts_with(prefix)) {
    std::string_view digits = text.substr(prefix.size());
    bool decimal = !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
    if (auto n = decimal ? positive(digits) : std::nullopt) return characters(*n);
    return line();
  }
  if (auto n = positive(text)) return characters(*n);
  return line();
}

}  // namespace tavorin
