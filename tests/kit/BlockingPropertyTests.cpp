// Randomised checks over generated scripts, with a fixed seed so a failure repeats.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "kit/Blocking.hpp"
#include "kit/BlockingLexer.hpp"
#include "kit/BlockingRewrite.hpp"
#include "kit/Schedule.hpp"

using namespace tavorin;

namespace {

const std::vector<std::string> fragments{
    "app", "open", "click", "scroll", "move", "type", "key", "wait", "hold", "js", "agent", "cue", "with",
    "after", "at", "until", "offset", "over", "timeout", "model", "rules", "effort", "l1", "l2", "l12", "1.5",
    "-3", "0.8s", "2m", "px", "+", "cmd", "\"", "\"hi\"", "#", ":", ",", " ", " ", "  ", "\t", "\n", "\n",
    "\r", "\xC3\xA9", "\xE2\x8C\x98", "\xFF", "\xC3", "x", "1e3", ".", "'"};

std::string randomText(std::mt19937& rng) {
  std::uniform_int_distribution<size_t> pick(0, fragments.size() - 1);
  std::uniform_int_distribution<int> length(0, 60);
  std::string out;
  for (int n = length(rng); n > 0; --n) out += fragments[pick(rng)];
  return out;
}

// The lines with content once the comment is cut, by 1-based number.
std::vector<int> contentLines(const std::string& text) {
  std::vector<int> out;
  int number = 0;
  size_t from = 0;
  while (from <= text.size()) {
    size_t feed = text.find('\n', from);
    if (feed == std::string::npos) feed = text.size();
    ++number;
    const std::string line = text.substr(from, feed - from).substr(0, text.substr(from, feed - from).find('#'));
    if (line.find_first_not_of(" \t") != std::string::npos) out.push_back(number);
    from = feed + 1;
  }
  return out;
}

}  // namespace

TEST(BlockingProperties, EveryLineWithContentIsOneStep) {
  std::mt19937 rng(20240611);
  Recording recording("p", "P");
  for (int i = 1; i <= 3; ++i) {
    TimelineItem item("l" + std::to_string(i), ItemType::line);
    item.start = i * 2.0;
    item.duration = 1.5;
    recording.timeline.push_back(item);
  }
  for (int round = 0; round < 3000; ++round) {
    const std::string text = randomText(rng);
    std::vector<Blocking::Step> steps;
    ASSERT_NO_THROW(steps = Blocking::parse(text)) << text;

    const auto expected = contentLines(text);
    ASSERT_EQ(steps.size(), expected.size()) << text;
    for (size_t i = 0; i < steps.size(); ++i) {
      EXPECT_EQ(steps[i].id, int(i) + 1);
      EXPECT_EQ(steps[i].sourceLine, expected[i]) << text;
      if (steps[i].kind.is<Blocking::Kind::Cue>() || steps[i].kind.is<Blocking::Kind::AnchorHeader>()) {
        EXPECT_FALSE(steps[i].indent);
      }
    }

    // The lexer's tokens lie in order inside the text and spell what they cover.
    size_t previousEnd = 0;
    for (const auto& token : BlockingLexer::tokens(text)) {
      ASSERT_LE(previousEnd, token.range.begin) << text;
      ASSERT_LT(token.range.begin, token.range.end);
      ASSERT_LE(token.range.end, text.size());
      EXPECT_EQ(text.substr(token.range.begin, token.range.end - token.range.begin), token.text);
      previousEnd = token.range.end;
    }
    ASSERT_NO_THROW(Blocking::grouped(Blocking::diagnostics(text, recording))) << text;
    EXPECT_EQ(Schedule::digest(text, recording).size(), 16u);
  }
}

TEST(BlockingProperties, SetOffsetReadsBackRounded) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> small(0, 3);
  std::uniform_real_distribution<double> value(-100, 100);
  auto blanks = [&] { return std::string(small(rng) + 1, ' '); };
  const std::vector<std::string> heads{"with l2", "after l1", "at 4"};
  const std::vector<std::string> bodies{"click 1 2", "wait 1", "type \"a\"", "frobnicate", "key cmd+s"};

  for (int round = 0; round < 3000; ++round) {
    // A header with a random offset, until and comment, then one to three steps under it.
    std::string header = heads[small(rng) % 3];
    if (small(rng) == 0) header += blanks() + "offset" + blanks() + "0.5";
    if (small(rng) == 0) header += blanks() + "until l3";
    std::string text = "app \"x\"\n" + std::string(small(rng), ' ') + header + blanks() + ":";
    if (small(rng) == 0) text += "  # why";
    const int steps = small(rng) % 3 + 1;
    for (int i = 0; i < steps; ++i) text += "\n" + std::string(small(rng) + 1, '\t') + bodies[rng() % bodies.size()];
    if (small(rng) == 0) text += "\n";

    const int ordinal = 2 + int(rng() % (steps + 1));
    const double to = small(rng) == 0 ? value(rng) / 1e5 : value(rng);
    const auto changed = BlockingRewrite::setOffset(text, ordinal, to);
    ASSERT_TRUE(changed) << text;
    const double rounded = std::round(to * 1000) / 1000;
    if (header.starts_with("at"))
      EXPECT_EQ(BlockingRewrite::offset(*changed, ordinal), 4) << *changed;  // its own number rules
    else if (std::abs(rounded) < 0.0005)
      EXPECT_FALSE(BlockingRewrite::offset(*changed, ordinal)) << *changed;
    else
      EXPECT_EQ(BlockingRewrite::offset(*changed, ordinal), rounded) << *changed;
    // Nothing but the header moved: every other line reads as before.
    const auto before = Blocking::parse(text);
    const auto after = Blocking::parse(*changed);
    ASSERT_EQ(before.size(), after.size());
    for (size_t i = 0; i < before.size(); ++i)
      if (before[i].id != 2) {
        EXPECT_EQ(before[i].raw, after[i].raw);
      }
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), std::count(changed->begin(), changed->end(), '\n'));
  }
}
