#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/use_future.hpp>

#include "ServiceRig.hpp"
#include "TestSupport.hpp"
#include "app/model/AppStore.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/Scope.hpp"
#include "app/service/OperatorService.hpp"
#include "app/shoot/FakeAgentStep.hpp"
#include "app/shoot/FakePerformer.hpp"
#include "app/shoot/PosedPermissionsProbe.hpp"
#include "app/shoot/Stage.hpp"
#include "kit/Pasteboard.hpp"
#include "platform/FreedesktopTrash.hpp"

using namespace tavorin;
using namespace std::chrono_literals;

namespace {

// The run verbs against a studio whose desktop is a FakePerformer.
class RunVerbsTest : public test::ServiceRig {
 protected:
  RunVerbsTest() {
    auto fake = std::make_unique<FakePerformer>();
    performer = fake.get();
    auto fakeAgents = std::make_unique<FakeAgentStep>(actor);
    agents = fakeAgents.get();
    service.useStage(std::make_unique<Stage>(actor, std::move(fake), std::move(fakeAgents), &actor));
  }

  void openWithScript(const std::string& script) {
    openSample();
    data("blocking.set", {{"text", script}});
  }
  void play(std::chrono::milliseconds total) {
    for (auto left = total; left > 0ms; left -= 1ms) actor.advance(1ms);
  }
  static std::string text(const JSONValue& v, const char* key) { return v[key]->stringValue().value_or("?"); }

  FakePerformer* performer = nullptr;
  FakeAgentStep* agents = nullptr;
};

}  // namespace

TEST_F(RunVerbsTest, NothingRunsWithNoProductionOpen) {
  EXPECT_EQ(error("run"), "no production is open");
  EXPECT_EQ(error("run.plan"), "no production is open");
  EXPECT_EQ(error("agent.policy"), "no production is open");
}

TEST_F(RunVerbsTest, RunPlanListsTheEventsWithTheirTimesAndWhatItSkips) {
  openWithScript("click 10 20\nwait 1.5\nkey cmd+s\nfrobnicate\n");
  const auto plan = data("run.plan");
  EXPECT_EQ(plan["count"]->intValue(), 3);
  EXPECT_EQ(plan["duration"]->doubleValue(), 1.5);
  const auto& events = *plan["events"]->arrayValue();
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[2].encode(), R"({"id":3,"kind":"key","label":"key cmd+s","line":3,"time":1.5})");
  EXPECT_EQ(plan["skipped"]->encode(), R"(["frobnicate"])");
  EXPECT_TRUE(performer->calls().empty());
}

TEST_F(RunVerbsTest, RunIsDryByDefaultAndARehearsalReportsEachPhase) {
  openWithScript("click 1 1\nwait 1\nagent \"fill the form\"\nkey return\n");
  auto dry = data("run");
  EXPECT_EQ(text(dry, "mode"), "dry");
  EXPECT_EQ(text(dry, "report"), "planned 4 steps — dry run, nothing performed");
  EXPECT_EQ(text(data("run.status"), "report"), "planned 4 steps — dry run, nothing performed");
  EXPECT_TRUE(performer->calls().empty());

  EXPECT_EQ(error("run", {{"dry", "1"}, {"rehearse", "1"}}), "run takes dry=1 or rehearse=1, not both.");

  auto started = data("run", {{"rehearse", "1"}});
  EXPECT_EQ(started["running"]->boolValue(), true);
  auto status = data("run.status");
  EXPECT_EQ(status["running"]->boolValue(), true);
  EXPECT_EQ(text(status, "mode"), "rehearse");
  play(500ms);
  status = data("run.status");
  EXPECT_EQ(text(status, "report"), "running 1 of 4");
  EXPECT_EQ(status["elapsed"]->doubleValue(), 0.5);
  play(1000ms);
  status = data("run.status");
  EXPECT_EQ(status["running"]->boolValue(), false);
  EXPECT_EQ(text(status, "report"), "performed all 4 steps");
  EXPECT_EQ(status["heldAgents"]->encode(), R"(["fill the form"])");
  EXPECT_TRUE(status["agentStep"]->isNull());
  EXPECT_TRUE(agents->asked.empty());
  EXPECT_EQ(performer->texts(), (std::vector<std::string>{"click 1 1", "key return"}));
  // The feed has the start and the end.
  const auto& events = model.events();
  EXPECT_NE(std::find(events.begin(), events.end(), "run ended: performed all 4 steps"), events.end());
}

TEST_F(RunVerbsTest, AbortStopsARehearsalWhereItStands) {
  openWithScript("click 1 1\nwait 5\nclick 2 2\n");
  data("run", {{"rehearse", "1"}});
  play(1000ms);
  const auto aborted = data("run.abort");
  EXPECT_EQ(aborted["running"]->boolValue(), false);
  EXPECT_EQ(aborted["aborted"]->boolValue(), true);
  EXPECT_EQ(text(aborted, "report"), "aborted after 1 of 3 steps");
  play(6000ms);
  EXPECT_EQ(performer->calls().size(), 1u);
}

TEST_F(RunVerbsTest, OpeningAnotherProductionStopsARehearsalOfTheLast) {
  openWithScript("click 1 1\nwait 5\nclick 2 2\n");
  data("run", {{"rehearse", "1"}});
  play(1000ms);
  data("recording.new", {{"title", "Another"}});
  EXPECT_EQ(data("run.status")["running"]->boolValue(), false);
  play(6000ms);
  EXPECT_EQ(performer->calls().size(), 1u);  // the second click never came
}

TEST_F(RunVerbsTest, AFailedStepIsReportedWithItsLineAndTheStudioAnswersOn) {
  openWithScript("click 1 1\nkey cmd+nonsense\nclick 2 2\n");
  data("run", {{"rehearse", "1"}});
  play(500ms);
  const auto status = data("run.status");
  EXPECT_EQ(status["running"]->boolValue(), false);
  ASSERT_TRUE(status["failure"]->stringValue());
  EXPECT_NE(status["failure"]->stringValue()->find("(line 2)"), std::string::npos);
  EXPECT_EQ(text(status, "report").rfind("stopped at step 2: key cmd+nonsense didn't work: ", 0), 0u);
  EXPECT_EQ(data("run.plan")["count"]->intValue(), 3);  // still answering
}

TEST_F(RunVerbsTest, AgentPolicyReadsSetsAndClearsEachPart) {
  openWithScript("agent \"open the tracker\" effort high\n");
  auto policy = data("agent.policy");
  EXPECT_EQ(text(policy, "summary"), "sonnet · full access");
  EXPECT_EQ(policy["pace"]->doubleValue(), 0.15);

  policy = data("agent.policy", {{"rules", "Never touch billing."}, {"model", "opus"}, {"deny", "shell, fileEdits"},
                                 {"pace", "7"}});
  EXPECT_EQ(text(policy, "rules"), "Never touch billing.");
  EXPECT_EQ(text(policy, "summary"), "opus · Deny file edits, Deny shell");
  EXPECT_EQ(policy["fences"]->encode(), R"(["fileEdits","shell"])");
  EXPECT_EQ(policy["pace"]->doubleValue(), 2.0);
  ASSERT_TRUE(model.recording().agent);
  EXPECT_EQ(model.recording().agent->pace, 2.0);

  // A bad value refuses the whole call before anything changes.
  EXPECT_EQ(error("agent.policy", {{"rules", ""}, {"model", "gpt"}}),
            "'gpt' is not a model. Try: sonnet, opus, haiku or fable");
  EXPECT_EQ(text(data("agent.policy"), "rules"), "Never touch billing.");

  const auto command = data("agent.command");
  const auto& argv = *command["argv"]->arrayValue();
  std::vector<std::string> words;
  for (const auto& w : argv) words.push_back(*w.stringValue());
  EXPECT_EQ(words[0].substr(words[0].size() - std::string("claude").size()), "claude");
  EXPECT_NE(std::find(words.begin(), words.end(), "--effort"), words.end());
  EXPECT_EQ(*(std::find(words.begin(), words.end(), "--model") + 1), "opus");
  EXPECT_EQ(*(std::find(words.begin(), words.end(), "--disallowedTools") + 1),
            "Edit,Write,NotebookEdit,Bash,BashOutput,KillShell");
  EXPECT_EQ(text(command, "cue"), "agent open the tracker");

  // Blank and empty take each part down; an empty policy leaves the file.
  data("agent.policy", {{"rules", ""}, {"model", ""}, {"deny", ""}, {"pace", ""}});
  EXPECT_FALSE(model.recording().agent);
  EXPECT_EQ(text(data("agent.policy"), "summary"), "sonnet · full access");
  data("undo");
  EXPECT_TRUE(model.recording().agent);
}

TEST_F(RunVerbsTest, AgentCommandWithoutAnAgentStepSaysHowToAddOne) {
  openWithScript("click 1 1\n");
  EXPECT_EQ(error("agent.command"), "this blocking script has no agent step. Add one: agent \"what it should do\"");
  data("blocking.set", {{"text", "agent \"a\"\nagent \"b\" model haiku\n"}});
  EXPECT_EQ(text(data("agent.command", {{"id", "2"}}), "model"), "haiku");
  EXPECT_EQ(error("agent.command", {{"id", "7"}}),
            "this blocking script has no agent step. Add one: agent \"what it should do\"");
}

TEST_F(RunVerbsTest, KeysListsTheShortcutsAndMovesThePalette) {
  auto keys = data("keys");
  EXPECT_EQ(keys["palette"]->boolValue(), false);
  EXPECT_GT(keys["shortcuts"]->arrayValue()->size(), 10u);
  EXPECT_NE(keys["useful"]->encode().find("ctrl+s"), std::string::npos);
  EXPECT_EQ(data("keys", {{"show", "1"}})["palette"]->boolValue(), true);
  EXPECT_EQ(data("keys", {{"hide", "1"}})["palette"]->boolValue(), false);
}

TEST_F(RunVerbsTest, SystemsGivesTheLineTheRowsAndThePopover) {
  service.usePermissionsProbe(std::make_unique<PosedPermissionsProbe>(PosedPermissionsProbe::Pose::mixed));
  auto systems = data("systems", {{"open", "yes"}});
  EXPECT_EQ(systems["open"]->boolValue(), true);
  const auto& rows = *systems["rows"]->arrayValue();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(text(rows[0], "title"), "Voice engine");
  // Input and the browser are refused, its JavaScript unasked, the camera still checking.
  EXPECT_EQ(text(rows[1], "state"), "4 to grant");
  EXPECT_EQ(data("systems", {{"open", "false"}})["open"]->boolValue(), false);
}
