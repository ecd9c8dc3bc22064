#pragma once
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// Line-by-line comparison of two texts, for the raw view of a version file.
namespace TextDiff {

struct Line {
  enum class Kind { same, added, removed };
  Kind kind = Kind::same;
  std::string text;

  static Line same(std::string text) { return {Kind::same, std::move(text)}; }
  static Line added(std::string text) { return {Kind::added, std::move(text)}; }
  static Line removed(std::string text) { return {Kind::removed, std::move(text)}; }
  bool operator==(const Line&) const = default;
};

// The lines of a text: split at line feeds; a final line feed ends the last line
// rather than starting an empty one, and an empty text has no lines.
std::vector<std::string> lines(std::string_view text);

// A longest-common-subsequence walk from the start; where either way is as good,
// the removal comes first.
std::vector<Line> between(std::string_view a, std::string_view b);

// Only the changed lines, each with up to `context` unchanged lines around it.
// An unchanged text gives nothing.
std::vector<Line> condensed(const std::vector<Line>& lines, int context);

}  // namespace TextDiff
}  // namespace tavorin
