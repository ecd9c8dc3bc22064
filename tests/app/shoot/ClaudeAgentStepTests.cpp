#include <gtest/gtest.h>
#include <sys/stat.h>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <chrono>

#include "TestSupport.hpp"
#include "app/process/AsioMainActor.hpp"
#include "app/shoot/ClaudeAgentStep.hpp"
#include "kit/Agents.hpp"

using namespace tavorin;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// A home with a `claude` of the test's own: a shell script that writes down its
// arguments and environment, then does what `body` says.
struct FakeClaude {
  test::TempDir home;
  fs::path log = home / "log";
  asio::io_context context;
  // Completions come from the child's thread; the context waits for them as the studio's does.
  asio::executor_work_guard<asio::io_context::executor_type> busy = asio::make_work_guard(context);
  AsioMainActor actor{context};
  ClaudeAgentStep step{actor, home.path()};

  void install(const std::string& body) {
    fs::create_directories(home / ".local/bin");
    const auto program = home / ".local/bin/claude";
    test::writeFile(program, "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n--\\n' \"$a\"; done > '" + log.string() +
                                 ".args'\nenv > '" + log.string() + ".env'\n" + body + "\n");
    ::chmod(program.c_str(), 0755);
  }

  // Runs one step to its end and gives its words, or "" when it finished cleanly.
  std::string run(Blocking::AgentCall call, std::optional<AgentPolicy> policy = std::nullopt,
                  std::chrono::milliseconds limit = 10s) {
    bool finished = false;
    std::string words;
    step.run(call, policy, [&](std::exception_ptr error) {
      finished = true;
      if (!error) return;
      try {
        std::rethrow_exception(error);
      } catch (const std::exception& e) {
        words = e.what();
      }
    });
    const auto until = std::chrono::steady_clock::now() + limit;
    while (!finished && std::chrono::steady_clock::now() < until) context.run_for(10ms);
    EXPECT_TRUE(finished) << "the step never came back";
    return words;
  }
};

Blocking::AgentCall call(std::string prompt, double timeout = 30) {
  Blocking::AgentCall c;
  c.prompt = std::move(prompt);
  c.timeout = timeout;
  return c;
}

}  // namespace

TEST(ClaudeAgentStep, AnAnswerEndsTheStepAndTheChildGotItsWordsAsArguments) {
  FakeClaude claude;
  claude.install("echo working; exit 0");
  test::ScopedEnv secret("ANTHROPIC_API_KEY", "sk-secret");
  test::ScopedEnv own("TAVORIN_ROOT", "/somewhere");
  auto c = call("type `rm -rf ~` \"quoted\" $(date) into the box");
  c.model = "opus";
  EXPECT_EQ(claude.run(c, AgentPolicy{std::string("be careful"), {}, std::vector<std::string>{"shell"}, {}}), "");
  const std::string args = test::readFile(claude.log.string() + ".args");
  // Every word arrived as it was, never through a shell.
  EXPECT_NE(args.find("The task: type `rm -rf ~` \"quoted\" $(date) into the box"), std::string::npos) << args;
  EXPECT_NE(args.find("--model\n--\nopus\n--\n"), std::string::npos);
  EXPECT_NE(args.find("--append-system-prompt\n--\nbe careful\n--\n"), std::string::npos);
  EXPECT_NE(args.find("--disallowedTools\n--\nBash,BashOutput,KillShell\n--\n"), std::string::npos);
  const std::string env = test::readFile(claude.log.string() + ".env");
  EXPECT_EQ(env.find("ANTHROPIC_API_KEY"), std::string::npos);
  EXPECT_EQ(env.find("TAVORIN_"), std::string::npos);
  EXPECT_NE(env.find("HOME="), std::string::npos);
}

TEST(ClaudeAgentStep, AFailureGivesTheLastLineItWroteOrItsStatus) {
  FakeClaude claude;
  claude.install("echo 'first problem' >&2; echo 'rate limited, try later' >&2; echo >&2; exit 3");
  EXPECT_EQ(claude.run(call("x")), "the agent stopped: rate limited, try later");
  claude.install("exit 7");
  EXPECT_EQ(claude.run(call("x")), "the agent stopped: exit status 7");
}

TEST(ClaudeAgentStep, AStepPastItsTimeoutIsKilledWithTheWordsThatSaySo) {
  FakeClaude claude;
  claude.step.graceSeconds = 0.2;
  // It ignores the polite end, so the forced one has to come.
  claude.install("trap '' TERM; while :; do sleep 0.05; done");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(claude.run(call("x", 0.3)),
            "the agent ran past 0s and was stopped. Give it longer with `timeout`, or ask for less in one step.");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

TEST(ClaudeAgentStep, AbortCutsTheStep) {
  FakeClaude claude;
  claude.install("sleep 30");
  bool finished = false;
  std::string words;
  claude.step.run(call("x"), std::nullopt, [&](std::exception_ptr e) {
    finished = true;
    try {
      std::rethrow_exception(e);
    } catch (const std::exception& x) {
      words = x.what();
    }
  });
  claude.context.run_for(100ms);
  claude.step.abort();
  const auto until = std::chrono::steady_clock::now() + 5s;
  while (!finished && std::chrono::steady_clock::now() < until) claude.context.run_for(10ms);
  EXPECT_EQ(words, "the agent step was cut");
}

TEST(ClaudeAgentStep, NoProgramIsNamedWhereItWasLookedFor) {
  FakeClaude claude;
  test::ScopedEnv path("PATH", "/nonexistent");
  EXPECT_EQ(claude.run(call("x")),
            "claude isn't where Tavorin expects it (" + (claude.home / ".local/bin/claude").string() + ").");
}
