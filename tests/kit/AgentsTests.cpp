#include <gtest/gtest.h>

#include <algorithm>

#include "kit/Agents.hpp"

using namespace tavorin;

namespace {

AgentPolicy policy(std::optional<std::string> rules, std::optional<std::string> model,
                   std::optional<std::vector<std::string>> fences, std::optional<double> pace = std::nullopt) {
  return AgentPolicy{std::move(rules), std::move(model), std::move(fences), pace};
}

// The value after a flag, or nothing when the flag is absent.
std::optional<std::string> after(const std::vector<std::string>& args, const std::string& flag) {
  const auto it = std::find(args.begin(), args.end(), flag);
  if (it == args.end() || it + 1 == args.end()) return std::nullopt;
  return *(it + 1);
}

}  // namespace

TEST(Agents, APlainStepWithNoPolicyRunsOnSonnetWithNothingAdded) {
  Blocking::AgentCall call;
  call.prompt = "open the bug tracker";
  const auto args = Agents::arguments(call, std::nullopt);
  ASSERT_GE(args.size(), 2u);
  EXPECT_EQ(args[0], "-p");
  EXPECT_NE(args[1].find("The task: open the bug tracker\n\nDo the task, then exit."), std::string::npos);
  EXPECT_EQ(args[1].rfind("You are driving a screen recording that is rolling right now.", 0), 0u);
  EXPECT_EQ(std::vector<std::string>(args.begin() + 2, args.end()),
            (std::vector<std::string>{"--output-format", "text", "--chrome", "--permission-mode", "dontAsk",
                                      "--model", "sonnet"}));
}

TEST(Agents, EffortRulesAndFencesReachTheCommandLineResolved) {
  Blocking::AgentCall call;
  call.prompt = "x";
  call.model = "haiku";
  call.effort = "high";
  call.rules = "  Never close tabs.\n";
  const auto p = policy("Stay on staging.", "opus", std::vector<std::string>{"shell", "bogus", "fileEdits", "shell"});
  const auto args = Agents::arguments(call, p);
  EXPECT_EQ(after(args, "--model"), "haiku");
  EXPECT_EQ(after(args, "--effort"), "high");
  EXPECT_EQ(after(args, "--append-system-prompt"), "Stay on staging.\nNever close tabs.");
  EXPECT_EQ(after(args, "--disallowedTools"), "Edit,Write,NotebookEdit,Bash,BashOutput,KillShell");
  // The order of the optional flags is fixed.
  const auto at = [&](const std::string& f) { return std::find(args.begin(), args.end(), f) - args.begin(); };
  EXPECT_LT(at("--model"), at("--effort"));
  EXPECT_LT(at("--effort"), at("--append-system-prompt"));
  EXPECT_LT(at("--append-system-prompt"), at("--disallowedTools"));

  call.effort = "extreme";
  EXPECT_FALSE(after(Agents::arguments(call, p), "--effort"));
}

TEST(Agents, TheModelIsTheStepsThenThePolicysThenSonnet) {
  EXPECT_EQ(Agents::model(policy({}, "opus", {}), std::string("haiku")), "haiku");
  EXPECT_EQ(Agents::model(policy({}, "opus", {}), std::nullopt), "opus");
  EXPECT_EQ(Agents::model(policy({}, "gpt-9", {}), std::nullopt), "sonnet");
  EXPECT_EQ(Agents::model(policy({}, "opus", {}), std::string("nonsense")), "opus");
  EXPECT_EQ(Agents::model(std::nullopt, std::nullopt), "sonnet");
}

TEST(Agents, RulesAddUpAndBlanksVanish) {
  EXPECT_EQ(Agents::rules(std::nullopt, std::nullopt), std::nullopt);
  EXPECT_EQ(Agents::rules(policy(" \n\t", {}, {}), std::string("  ")), std::nullopt);
  EXPECT_EQ(Agents::rules(policy("a", {}, {}), std::nullopt), "a");
  EXPECT_EQ(Agents::rules(std::nullopt, std::string("\nb\n")), "b");
}

TEST(Agents, PaceIsHeldBetweenNoneAndTwoSeconds) {
  EXPECT_DOUBLE_EQ(Agents::pace(std::nullopt), 0.15);
  EXPECT_DOUBLE_EQ(Agents::pace(policy({}, {}, {})), 0.15);
  EXPECT_DOUBLE_EQ(Agents::pace(policy({}, {}, {}, -3)), 0);
  EXPECT_DOUBLE_EQ(Agents::pace(policy({}, {}, {}, 9)), 2);
  EXPECT_DOUBLE_EQ(Agents::pace(policy({}, {}, {}, 0.4)), 0.4);
}

TEST(Agents, SummaryNamesTheModelAndTheFencesUp) {
  EXPECT_EQ(Agents::summary(std::nullopt), "sonnet · full access");
  EXPECT_EQ(Agents::summary(policy({}, "opus", std::vector<std::string>{"shell"})), "opus · Deny shell");
  EXPECT_EQ(Agents::summary(policy({}, {}, std::vector<std::string>{"shell", "fileEdits"})),
            "sonnet · Deny file edits, Deny shell");
}

TEST(Agents, TimeoutWordsUseMinutesOnlyForWholeMinutes) {
  EXPECT_EQ(Agents::timeoutWords(300), "5m");
  EXPECT_EQ(Agents::timeoutWords(120), "2m");
  EXPECT_EQ(Agents::timeoutWords(90), "90s");
  EXPECT_EQ(Agents::timeoutWords(59), "59s");
  EXPECT_EQ(Agents::timeoutWords(60), "1m");
  EXPECT_EQ(AgentStepError::timedOut(300).what(),
            std::string("the agent ran past 5m and was stopped. Give it longer with `timeout`, or ask for less in "
                        "one step."));
}

TEST(Agents, TheChildSeesNoKeyAndNoStudioSwitches) {
  const auto env = Agents::sanitizedEnvironment({{"HOME", "/home/a"},
                                                 {"ANTHROPIC_API_KEY", "sk"},
                                                 {"TAVORIN_ROOT", "/x"},
                                                 {"TAVORIN_", "y"},
                                                 {"MY_TAVORIN_NOTE", "kept"},
                                                 {"PATH", "/bin"}});
  EXPECT_EQ(env, (std::map<std::string, std::string>{{"HOME", "/home/a"}, {"MY_TAVORIN_NOTE", "kept"},
                                                     {"PATH", "/bin"}}));
}

TEST(Agents, ErrorsSayWhatHappened) {
  EXPECT_STREQ(AgentStepError::noClaude("/h/.local/bin/claude").what(),
               "claude isn't where Tavorin expects it (/h/.local/bin/claude).");
  EXPECT_STREQ(AgentStepError::failed("boom").what(), "the agent stopped: boom");
  EXPECT_STREQ(AgentStepError::aborted().what(), "the agent step was cut");
  EXPECT_EQ(Agents::claudePath("/home/a"), "/home/a/.local/bin/claude");
}
