#include <gtest/gtest.h>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <chrono>
#include <thread>

#include "app/model/ManualMainActor.hpp"
#include "app/process/AsioMainActor.hpp"
#include "app/shoot/FakeAgentStep.hpp"
#include "app/shoot/FakePerformer.hpp"
#include "app/shoot/PerformerThread.hpp"
#include "app/shoot/Runner.hpp"
#include "kit/Agents.hpp"

using namespace tavorin;
using namespace std::chrono_literals;

namespace {

struct Rig {
  ManualMainActor actor;
  FakePerformer performer;
  FakeAgentStep agents{actor};
  Runner runner{actor, actor, performer, agents};
  MainActor::Clock::time_point epoch = actor.now();
  Recording rec;

  Rig() {
    performer.clock = [this] { return std::chrono::duration<double>(actor.now() - epoch).count(); };
  }
  RunPlan rehearse(const std::string& script, bool live = false) {
    auto plan = runner.run(script, rec, Runner::Mode::rehearse, live);
    actor.drain();
    return plan;
  }
  // Moves the clock in frames, so every poll of the runner gets its turn.
  void play(std::chrono::milliseconds total) {
    for (auto left = total; left > 0ms; left -= 1ms) actor.advance(1ms);
  }
  void playToEnd() {
    for (int i = 0; i < 600000 && runner.isRunning(); ++i) actor.advance(1ms);
  }
};

std::vector<double> times(const FakePerformer& p) {
  std::vector<double> out;
  for (const auto& call : p.calls()) out.push_back(call.at);
  return out;
}

}  // namespace

TEST(Runner, ADryRunPlansAndPerformsNothing) {
  Rig rig;
  const auto plan = rig.runner.run("click 10 20\nwait 1\nkey cmd+s\nnonsense here", rig.rec, Runner::Mode::dry, false);
  rig.actor.drain();
  rig.play(2000ms);
  EXPECT_EQ(plan.events.size(), 3u);
  EXPECT_FALSE(rig.runner.isRunning());
  EXPECT_TRUE(rig.performer.calls().empty());
  EXPECT_EQ(rig.runner.report(), "planned 3 steps — dry run, nothing performed");
  EXPECT_EQ(rig.runner.skipped(), std::vector<std::string>{"nonsense here"});

  rig.runner.run("", rig.rec, Runner::Mode::dry, false);
  EXPECT_EQ(rig.runner.report(), "nothing to perform");
}

TEST(Runner, AWaitRunsOnTheClockAndNoLonger) {
  Rig rig;
  rig.rehearse("wait 2");
  EXPECT_TRUE(rig.runner.isRunning());
  EXPECT_EQ(rig.runner.report(), "running 0 of 1");
  rig.play(1990ms);
  EXPECT_TRUE(rig.runner.isRunning());
  rig.play(20ms);
  EXPECT_FALSE(rig.runner.isRunning());
  EXPECT_EQ(rig.runner.report(), "performed all 1 steps");
  EXPECT_NEAR(rig.runner.elapsed(), 2.0, 0.002);
}

TEST(Runner, StepsRunInOrderAndNeverEarly) {
  Rig rig;
  rig.rehearse("app \"Terminal\"\nwait 1.5\ntype \"hello\"\nmove 100 200 over 0.5\nscroll 400\nkey cmd+shift+p");
  rig.playToEnd();
  EXPECT_EQ(rig.performer.texts(), (std::vector<std::string>{"app Terminal", "type hello", "move 100 200 over 0.5",
                                                             "scroll 400", "key cmd+shift+p"}));
  const auto at = times(rig.performer);
  EXPECT_NEAR(at[0], 0, 1e-9);
  // After the wait: on its time, not before it, and no pace (the wait is the author's).
  EXPECT_GE(at[1], 1.5);
  EXPECT_LT(at[1], 1.5 + 0.0011);
  // The move occupies its half second in the plan; its followers are planned behind it,
  // and back-to-back actions keep one pace between them on top.
  EXPECT_GE(at[3], 2.0);
  EXPECT_NEAR(at[4] - at[3], 0.15, 0.0011);
  EXPECT_EQ(rig.runner.performed().size(), 6u);
  EXPECT_EQ(rig.runner.report(), "performed all 6 steps");
}

TEST(Runner, BackToBackActionsKeepThePolicysPace) {
  for (auto [pace, gap] : {std::pair<std::optional<double>, double>{std::nullopt, 0.15}, {0.0, 0.0}, {9.0, 2.0},
                           {0.4, 0.4}}) {
    Rig rig;
    if (pace) rig.rec.agent = AgentPolicy{std::nullopt, std::nullopt, std::nullopt, pace};
    rig.rehearse("click 1 1\nclick 2 2");
    rig.playToEnd();
    const auto at = times(rig.performer);
    ASSERT_EQ(at.size(), 2u);
    EXPECT_NEAR(at[1] - at[0], gap, 0.0011) << "pace " << pace.value_or(-1);
  }
}

TEST(Runner, AWaitOrHoldBetweenTwoActionsTakesThePaceAway) {
  Rig rig;
  rig.rehearse("click 1 1\nwait 0.5\nclick 2 2\nhold 0.25\nclick 3 3\n# a note\nclick 4 4");
  rig.playToEnd();
  const auto at = times(rig.performer);
  ASSERT_EQ(at.size(), 4u);
  EXPECT_NEAR(at[1], 0.5, 0.0011);
  EXPECT_NEAR(at[2], 0.75, 0.0011);
  EXPECT_NEAR(at[3] - at[2], 0.15, 0.0011);  // a comment is no step
}

TEST(Runner, AnAgentStepInARehearsalIsHeldAndSpawnsNothing) {
  Rig rig;
  rig.rehearse("agent \"open the settings\"\nclick 5 5");
  rig.playToEnd();
  EXPECT_EQ(rig.runner.heldAgents(), std::vector<std::string>{"open the settings"});
  EXPECT_EQ(rig.runner.performed().size(), 2u);
  EXPECT_TRUE(rig.agents.asked.empty());
  EXPECT_EQ(rig.runner.report(), "performed all 2 steps");
}

TEST(Runner, ALiveAgentStepDrivesUntilDoneAndTheScheduleWaitsForIt) {
  Rig rig;
  rig.agents.takes = 3s;
  rig.rec.agent = AgentPolicy{std::nullopt, std::string("opus"), std::nullopt, std::nullopt};
  rig.rehearse("agent \"file the bug\" model haiku\nclick 5 5", true);
  rig.play(500ms);
  ASSERT_TRUE(rig.runner.agentStep());
  EXPECT_EQ(rig.runner.agentStep()->model, "haiku");
  EXPECT_EQ(rig.runner.upNext(), "the agent is working — 0.5s");
  ASSERT_EQ(rig.agents.asked.size(), 1u);
  EXPECT_EQ(rig.agents.asked[0].second->model, "opus");
  rig.playToEnd();
  EXPECT_FALSE(rig.runner.agentStep());
  // The click was due at 0; it runs the moment the agent is done, plus one pace.
  ASSERT_EQ(rig.performer.calls().size(), 1u);
  EXPECT_NEAR(rig.performer.calls()[0].at, 3.15, 0.0011);
}

TEST(Runner, AnAgentThatRunsPastItsTimeoutStopsTheRunWithItsLine) {
  Rig rig;
  rig.agents.takes = 300s;
  rig.agents.result = std::make_exception_ptr(AgentStepError::timedOut(300));
  rig.rehearse("click 1 1\n\nagent \"x\" timeout 5m\nclick 2 2", true);
  rig.playToEnd();
  EXPECT_EQ(rig.runner.failure(),
            "the agent ran past 5m and was stopped. Give it longer with `timeout`, or ask for less in one step. "
            "(line 3)");
  EXPECT_EQ(rig.runner.report(), "stopped at step 2: " + *rig.runner.failure());
  EXPECT_EQ(rig.performer.calls().size(), 1u);
}

TEST(Runner, AStepThePerformerCannotDoStopsTheRunThere) {
  Rig rig;
  rig.performer.failures["app Nowhere"] = "no such window";
  rig.rehearse("click 1 1\nwait 0.1\napp \"Nowhere\"\nclick 2 2");
  rig.playToEnd();
  EXPECT_EQ(rig.runner.failure(), "app Nowhere didn't work: no such window (line 3)");
  EXPECT_EQ(rig.runner.report(), "stopped at step 3: app Nowhere didn't work: no such window (line 3)");
  EXPECT_EQ(rig.performer.calls().size(), 2u);  // the failing call, never the one after it
  EXPECT_EQ(rig.runner.performed().size(), 2u);
}

TEST(Runner, AKeyThatCannotBePressedGivesTheKeyTablesWords) {
  Rig rig;
  rig.rehearse("key cmd+hyper");
  rig.playToEnd();
  ASSERT_TRUE(rig.runner.failure());
  EXPECT_EQ(rig.runner.failure()->rfind("key cmd+hyper didn't work: ", 0), 0u) << *rig.runner.failure();
  EXPECT_NE(rig.runner.failure()->find("(line 1)"), std::string::npos);
}

TEST(Runner, UnknownStepsAreSkippedAndSaidSo) {
  Rig rig;
  rig.rehearse("wibble\nflap the wings");
  EXPECT_TRUE(rig.runner.plan().events.empty());
  EXPECT_EQ(rig.runner.skipped(), (std::vector<std::string>{"wibble", "flap the wings"}));
  rig.actor.drain();
  EXPECT_FALSE(rig.runner.isRunning());
  EXPECT_EQ(rig.runner.report(), "nothing to perform");

  rig.rehearse("wibble\nclick 1 1");
  rig.playToEnd();
  EXPECT_EQ(rig.runner.report(), "performed all 1 steps");
}

TEST(Runner, AbortInAWaitStopsAtOnceAndSaysHowFarItGot) {
  Rig rig;
  rig.rehearse("click 1 1\nwait 5\nclick 2 2");
  rig.play(1000ms);
  rig.runner.abort();
  EXPECT_FALSE(rig.runner.isRunning());
  EXPECT_EQ(rig.runner.report(), "aborted after 1 of 3 steps");
  rig.play(6000ms);
  EXPECT_EQ(rig.performer.calls().size(), 1u);
  EXPECT_NEAR(rig.runner.elapsed(), 1.0, 0.002);
  EXPECT_EQ(rig.actor.pendingTimers(), 0u);
}

TEST(Runner, AbortCutsALiveAgentStep) {
  Rig rig;
  rig.agents.takes = 60s;
  rig.rehearse("agent \"long task\"\nclick 1 1", true);
  rig.play(100ms);
  rig.runner.abort();
  rig.actor.drain();
  EXPECT_TRUE(rig.agents.aborted);
  EXPECT_FALSE(rig.runner.agentStep());
  EXPECT_EQ(rig.runner.report(), "aborted after 0 of 2 steps");
  rig.play(1000ms);
  EXPECT_TRUE(rig.performer.calls().empty());
}

TEST(Runner, ASecondRunReplacesTheFirst) {
  Rig rig;
  rig.rehearse("wait 1\nclick 1 1");
  rig.play(500ms);
  rig.rehearse("click 9 9");
  rig.playToEnd();
  rig.play(2000ms);
  EXPECT_EQ(rig.performer.texts(), std::vector<std::string>{"click 9 9"});
  EXPECT_EQ(rig.runner.report(), "performed all 1 steps");
}

TEST(Runner, UpNextNamesTheNextStepAndHowFarAwayItIs) {
  Rig rig;
  rig.rehearse("wait 2\nclick 1 1");
  EXPECT_EQ(rig.runner.upNext(), "wait 2.0s");
  rig.play(1000ms);
  ASSERT_TRUE(rig.runner.nextEvent());
  EXPECT_EQ(rig.runner.nextEvent()->id, 1);
  rig.play(1100ms);
  // The click is due now: no countdown.
  EXPECT_EQ(rig.runner.upNext().find(" in "), std::string::npos) << rig.runner.upNext();
  rig.playToEnd();
  EXPECT_EQ(rig.runner.upNext(), "");
}

// A performer step under way on its own thread ends when the run is aborted, and
// the studio's thread never waited on it.
TEST(Runner, AbortEndsAStepUnderWayOnThePerformersThread) {
  asio::io_context context;
  auto busy = asio::make_work_guard(context);
  AsioMainActor actor(context);
  PerformerThread lane(actor);
  FakePerformer performer;
  performer.blocksFor = 30;
  FakeAgentStep agents(actor);
  Runner runner(actor, lane, performer, agents);
  Recording rec;
  runner.run("move 10 10 over 30\nclick 1 1", rec, Runner::Mode::rehearse, false);
  context.run_for(100ms);
  ASSERT_EQ(performer.calls().size(), 1u);
  const auto cut = std::chrono::steady_clock::now();
  runner.abort();
  EXPECT_FALSE(runner.isRunning());
  // The lane is free again as soon as the performer's sleep has ended.
  bool free = false;
  lane.offload([] {}, [&](std::exception_ptr) { free = true; });
  while (!free && std::chrono::steady_clock::now() - cut < 1s) context.run_for(2ms);
  EXPECT_TRUE(free);
  EXPECT_LT(std::chrono::steady_clock::now() - cut, 200ms);
  EXPECT_EQ(runner.report(), "aborted after 0 of 2 steps");
  EXPECT_EQ(performer.calls().size(), 1u);
}

// A production's own page is opened by a path relative to its folder; the performer
// gets a file URL it can open wherever the folder lies.
TEST(Runner, OpensARelativeTargetFromTheProductionsFolder) {
  Rig rig;
  rig.runner.folder = "/home/ada/Tavorin/demo/recordings/halden demo";
  rig.rehearse("open \"page/index.html\"\nopen \"https://example.org/a b\"\nopen \"/srv/page.html\"");
  rig.playToEnd();
  EXPECT_EQ(rig.performer.texts(),
            (std::vector<std::string>{"open file:///home/ada/Tavorin/demo/recordings/halden%20demo/page/index.html",
                                      "open https://example.org/a b", "open /srv/page.html"}));
}

TEST(Runner, AddressOfARelativeTarget) {
  const std::filesystem::path folder = "/p/Meet Ünder";
  // Only the path is escaped: the query and fragment stay as written.
  EXPECT_EQ(Runner::address("page/index.html?view=home#top", folder),
            "file:///p/Meet%20%C3%9Cnder/page/index.html?view=home#top");
  EXPECT_EQ(Runner::address("./page/../page/x.html", folder), "file:///p/Meet%20%C3%9Cnder/page/x.html");
  EXPECT_EQ(Runner::address("  page/x.html ", folder), "file:///p/Meet%20%C3%9Cnder/page/x.html");
  // Addresses with a scheme, absolute paths, and any target without a folder to read it against pass as written.
  EXPECT_EQ(Runner::address("about:blank", folder), "about:blank");
  EXPECT_EQ(Runner::address("file:///etc/x.html", folder), "file:///etc/x.html");
  EXPECT_EQ(Runner::address("/srv/x.html", folder), "/srv/x.html");
  EXPECT_EQ(Runner::address("page/x.html", ""), "page/x.html");
  EXPECT_EQ(Runner::address("", folder), "");
}
