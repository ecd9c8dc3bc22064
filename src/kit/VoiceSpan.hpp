#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// How far a production packs neighbouring lines into one generation.
struct VoiceSpan {
  enum class Kind { line, characters, cue };
  Kind kind = Kind::line;
  int limit = 0;  // characters of joined text, for Kind::characters only

  static VoiceSpan line() { return {}; }
  static VoiceSpan characters(int n) { return {Kind::characters, n}; }
  static VoiceSpan cue() { return {Kind::cue, 0}; }

  // The stored word: nothing for per-line, "chars:<n>", "cue".
  std::optional<std::string> raw() const;
  std::string title() const;
  bool groups() const { return kind != Kind::line; }

  // The menu's order.
  static std::vector<VoiceSpan> all();
  static const std::vector<int>& sizes();
  static std::optional<VoiceSpan> named(std::string_view title);
  // A damaged setting never fails: what cannot be read is per-line rendering.
  static VoiceSpan parse(const std::optional<std::string>& raw);

  bool operator==(const VoiceSpan&) const = default;
};

}  // namespace tavorin
