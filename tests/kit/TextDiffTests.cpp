#include <gtest/gtest.h>

#include <algorithm>

#include "kit/TextDiff.hpp"

namespace tavorin {
namespace {

using TextDiff::Line;

TEST(TextDiff, InsertionsDeletionsAndReplacements) {
  EXPECT_EQ(TextDiff::between("a\nb\nc\n", "a\nx\nb\nc\n"),
            (std::vector{Line::same("a"), Line::added("x"), Line::same("b"), Line::same("c")}));
  EXPECT_EQ(TextDiff::between("a\nb\nc", "a\nc"), (std::vector{Line::same("a"), Line::removed("b"), Line::same("c")}));
  // A replaced line is removed before it is added.
  EXPECT_EQ(TextDiff::between("a\nb\nc", "a\nB\nc"),
            (std::vector{Line::same("a"), Line::removed("b"), Line::added("B"), Line::same("c")}));
  EXPECT_EQ(TextDiff::between("", "a\n\nb"), (std::vector{Line::added("a"), Line::added(""), Line::added("b")}));
  EXPECT_TRUE(TextDiff::between("", "").empty());
}

TEST(TextDiff, KeepsALongestCommonSubsequence) {
  const std::string a = "{\n  x\n  y\n  x\n}", b = "{\n  y\n  x\n  y\n}";
  const auto lines = TextDiff::between(a, b);
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](const Line& l) { return l.kind == Line::Kind::same; }), 4);
  std::vector<std::string> rebuilt;
  for (const auto& line : lines)
    if (line.kind != Line::Kind::removed) rebuilt.push_back(line.text);
  EXPECT_EQ(rebuilt, TextDiff::lines(b));
}

TEST(TextDiff, CondensedKeepsContextAroundEachChange) {
  std::string a, b;
  for (int i = 1; i <= 20; ++i) {
    a += std::to_string(i) + "\n";
    b += (i == 5 ? "five" : i == 15 ? "fifteen" : std::to_string(i)) + "\n";
  }
  const auto all = TextDiff::between(a, b);
  std::vector<std::string> shown;
  for (const auto& line : TextDiff::condensed(all, 2)) shown.push_back(line.text);
  EXPECT_EQ(shown, (std::vector<std::string>{"3", "4", "5", "five", "6", "7", "13", "14", "15", "fifteen", "16", "17"}));
  EXPECT_EQ(TextDiff::condensed(all, 0).size(), 4u);
  EXPECT_EQ(TextDiff::condensed(all, 100).size(), all.size());

  // Clipped at the ends; nothing at all when nothing changed.
  EXPECT_EQ(TextDiff::condensed(TextDiff::between("a\nb\nc", "x\nb\nc"), 1),
            (std::vector{Line::removed("a"), Line::added("x"), Line::same("b")}));
  EXPECT_TRUE(TextDiff::condensed(TextDiff::between("a\nb", "a\nb"), 3).empty());
}

}  // namespace
}  // namespace tavorin
