#include <gtest/gtest.h>

#include <algorithm>

#include "kit/TextDiff.hpp"

namespace tavorin {
namespace {

using TextDiff::Line;

TEST(TextDiff, SplitsAtLineFeedsOnly) {
  EXPECT_TRUE(TextDiff::lines("").empty());
  EXPECT_EQ(TextDiff::lines("a\nb\n"), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(TextDiff::lines("a\n\nb"), (std::vector<std::string>{"a", "", "b"}));
  EXPECT_EQ(TextDiff::lines("a\r\nb"), (std::vector<std::string>{"a\r", "b"}));
}

TEST(TextDiff, InsertionsAndDeletions) {
  EXPECT_EQ(TextDiff::between("a\nb\nc", "a\nx\nb\nc"),
            (std::vector{Line::same("a"), Line::added("x"), Line::same("b"), Line::same("c")}));
  EXPECT_EQ(TextDiff::between("a\nb\nc", "a\nc"), (std::vector{Line::same("a"), Line::removed("b"), Line::same("c")}));
  EXPECT_EQ(TextDiff::between("", "a\nb"), (std::vector{Line::added("a"), Line::added("b")}));
  EXPECT_EQ(TextDiff::between("a\nb", ""), (std::vector{Line::removed("a"), Line::removed("b")}));
  EXPECT_TRUE(TextDiff::between("", "").empty());
}

TEST(TextDiff, AReplacedLineIsRemovedBeforeItIsAdded) {
  EXPECT_EQ(TextDiff::between("a\nb\nc", "a\nB\nc"),
            (std::vector{Line::same("a"), Line::removed("b"), Line::added("B"), Line::same("c")}));
}

TEST(TextDiff, KeepsALongestCommonSubsequence) {
  // A line moved from the end to the front: the two that stay in order are kept.
  const auto lines = TextDiff::between("a\nb\nc", "c\na\nb");
  EXPECT_EQ(std::ranges::count(lines, Line::Kind::same, &Line::kind), 2);
  EXPECT_EQ(lines.size(), 4u);

  // Repeated lines in the middle, where the table does the work.
  const auto repeated = TextDiff::between("{\n  x\n  y\n  x\n}", "{\n  y\n  x\n  y\n}");
  EXPECT_EQ(std::ranges::count(repeated, Line::Kind::same, &Line::kind), 4);
  std::vector<std::string> rebuiltB;
  for (const auto& line : repeated)
    if (line.kind != Line::Kind::removed) rebuiltB.push_back(line.text);
  EXPECT_EQ(rebuiltB, TextDiff::lines("{\n  y\n  x\n  y\n}"));
}

TEST(TextDiff, CondensedKeepsContextAroundEachChange) {
  std::string a, b;
  for (int i = 1; i <= 20; ++i) {
    a += std::to_string(i) + "\n";
    b += (i == 5 ? "five" : i == 15 ? "fifteen" : std::to_string(i)) + "\n";
  }
  const auto all = TextDiff::between(a, b);
  const auto shown = TextDiff::condensed(all, 2);
  std::vector<std::string> texts;
  for (const auto& line : shown) texts.push_back(line.text);
  EXPECT_EQ(texts, (std::vector<std::string>{"3", "4", "5", "five", "6", "7", "13", "14", "15", "fifteen", "16", "17"}));

  // Near neighbours share their context rather than repeating it; no context shows only changes.
  EXPECT_EQ(TextDiff::condensed(all, 0).size(), 4u);
  EXPECT_EQ(TextDiff::condensed(all, 100).size(), all.size());
}

TEST(TextDiff, CondensedClipsAtTheEndsAndIsEmptyWhenNothingChanged) {
  EXPECT_EQ(TextDiff::condensed(TextDiff::between("a\nb\nc", "x\nb\nc"), 1),
            (std::vector{Line::removed("a"), Line::added("x"), Line::same("b")}));
  EXPECT_TRUE(TextDiff::condensed(TextDiff::between("a\nb", "a\nb"), 3).empty());
}

}  // namespace
}  // namespace tavorin
