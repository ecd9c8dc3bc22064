#include <filesystem>
#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "kit/BlockingRewrite.hpp"

using namespace tavorin;

TEST(BlockingRewrite, ReadsTheOffsetOfABlock) {
  const std::string script = "with l2 offset 0.5:\n  click 1 2\nafter l3:\n  wait 1\nwait 2";
  EXPECT_EQ(BlockingRewrite::offset(script, 1), 0.5);
  EXPECT_EQ(BlockingRewrite::offset(script, 2), 0.5);
  EXPECT_FALSE(BlockingRewrite::offset(script, 4));  // a block without one
  EXPECT_FALSE(BlockingRewrite::offset(script, 5));
  EXPECT_FALSE(BlockingRewrite::offset(script, 9));
}

TEST(BlockingRewrite, SetsTheOneTokenAndKeepsEveryOtherByte) {
  const std::string script =
      "app \"x\"\r\n"
      "\n"
      "cue a\n"
      "    with  l2   until l4:   # the greeting\n"
      "        click 1 2\n"
      "wait 1\n";
  auto changed = BlockingRewrite::setOffset(script, 4, 1.5);
  ASSERT_TRUE(changed);
  EXPECT_EQ(*changed,
            "app \"x\"\r\n"
            "\n"
            "cue a\n"
            "    with l2 offset 1.5 until l4:   # the greeting\n"
            "        click 1 2\n"
            "wait 1\n");
  // Nearly nothing removes the token instead of writing 0.
  EXPECT_EQ(BlockingRewrite::setOffset(*changed, 3, 0.0004),
            "app \"x\"\r\n\ncue a\n    with l2 until l4:   # the greeting\n        click 1 2\nwait 1\n");
  EXPECT_EQ(BlockingRewrite::setOffset("at 3 offset 1:", 1, -2.25), "at 3 offset -2.25:");
  EXPECT_EQ(BlockingRewrite::setOffset("after l1:\n\tkey cmd+s", 2, 2), "after l1 offset 2:\n\tkey cmd+s");

  // An unindented step outside any block, an unknown step id, a header with a dangling "offset".
  EXPECT_FALSE(BlockingRewrite::setOffset(script, 5, 1));
  EXPECT_FALSE(BlockingRewrite::setOffset(script, 99, 1));
  EXPECT_FALSE(BlockingRewrite::setOffset("with l1 offset:\n  wait 1", 2, 1));
  EXPECT_FALSE(BlockingRewrite::rewriteHeader("click 1 2:", "1"));
}

TEST(BlockingRewrite, Numbers) {
  EXPECT_EQ(BlockingRewrite::number(2.0), "2");
  EXPECT_EQ(BlockingRewrite::number(0.1234), "0.123");
  EXPECT_EQ(BlockingRewrite::number(0.0005), "0.001");
  EXPECT_EQ(BlockingRewrite::number(-0.0004), "");
  EXPECT_EQ(BlockingRewrite::number(-1.5), "-1.5");
  EXPECT_EQ(BlockingRewrite::number(120), "120");
}

// Found by fuzzing: a line at the margin ends the block, and the indented steps
// after it belong to none, so there is no header of theirs to rewrite.
TEST(BlockingRewrite, AStepCutOffFromItsBlockHasNoOffsetToSet) {
  const std::string script = "cue welcome\n    with l2 offset 0.4:\n        wait 1\nclick 1 2\n        wait 1.2\n";
  EXPECT_EQ(BlockingRewrite::offset(script, 3), 0.4);
  EXPECT_FALSE(BlockingRewrite::offset(script, 5));
  EXPECT_FALSE(BlockingRewrite::setOffset(script, 5, 2.0));
  EXPECT_EQ(BlockingRewrite::setOffset(script, 3, 2.0),
            "cue welcome\n    with l2 offset 2:\n        wait 1\nclick 1 2\n        wait 1.2\n");

  // The fuzzer's own input: every step that can be set reads back what was set.
  const std::string found =
      test::readFile(std::filesystem::path(TAVORIN_TEST_DATA) / "fuzz" / "blocking-margin-line-inside-a-block.stage");
  for (int id = 1; id < 80; ++id) {
    const double before = BlockingRewrite::offset(found, id).value_or(0);
    const auto rewritten = BlockingRewrite::setOffset(found, id, before + 1.25);
    if (!rewritten) continue;
    const auto after = BlockingRewrite::offset(*rewritten, id);
    ASSERT_TRUE(after) << "step " << id;
    EXPECT_NEAR(*after, before + 1.25, 0.0005) << "step " << id;
  }
}
