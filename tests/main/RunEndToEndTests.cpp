// A studio on a display of the test's own, its blocking performed through tavorinctl.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Processes.hpp"
#include "TestSupport.hpp"
#include "main/StudioFixture.hpp"
#include "VirtualDisplay.hpp"
#include "operator/JSONValue.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

class RunEndToEnd : public test::StudioFixture {
 protected:
  void SetUp() override {
    if (display.missing()) GTEST_SKIP() << *display.missing();
    startStudio({"DISPLAY=" + display.name()});
    // A first launch seeded the demo; open it.
    openDemo();
  }
  // Polls run.status until it stops running; the last report.
  JSONValue waitForEnd(std::chrono::seconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    JSONValue status;
    do {
      status = ok({"run.status"});
      if (status["running"] && status["running"]->boolValue() == false) break;
      std::this_thread::sleep_for(100ms);
    } while (std::chrono::steady_clock::now() < until);
    return status;
  }

  test::VirtualDisplay display;
};

}  // namespace

TEST_F(RunEndToEnd, TheDemoPlansDryAndRehearsesOnItsOwnPage) {
  const JSONValue plan = ok({"run.plan"});
  const auto* events = plan["events"]->arrayValue();
  ASSERT_NE(events, nullptr);
  ASSERT_GT(events->size(), 20u) << plan.encode();
  EXPECT_EQ(str((*events)[0], "label"), "app Chromium");
  EXPECT_EQ(str((*events)[1], "label"), "open page/index.html");
  EXPECT_EQ((*events)[0]["time"]->doubleValue(), 0.0);
  // Times never go back, and the last hold ends the plan.
  double last = 0;
  for (const auto& e : *events) {
    EXPECT_GE(*e["time"]->doubleValue(), last);
    last = *e["time"]->doubleValue();
  }
  EXPECT_EQ(str(events->back(), "label"), "hold 2.0s");
  EXPECT_NEAR(*plan["duration"]->doubleValue(), last + 2, 0.011);

  const JSONValue dry = ok({"run", "dry=1"});
  EXPECT_EQ(str(dry, "report"), "planned " + std::to_string(events->size()) + " steps — dry run, nothing performed");
  EXPECT_EQ(ok({"run.status"})["running"]->boolValue(), false);

  // Rehearsed, the studio's Chromium comes up and loads the page from the production's
  // folder: a page that would not load stops the run at its open step.
  if (::access("/usr/bin/chromium", X_OK) != 0) GTEST_SKIP() << "Chromium is not installed (Debian package chromium)";
  ok({"run", "rehearse=1"});
  JSONValue status;
  const auto until = std::chrono::steady_clock::now() + 40s;
  do {
    std::this_thread::sleep_for(100ms);
    status = ok({"run.status"});
  } while (std::chrono::steady_clock::now() < until && status["running"]->boolValue() == true &&
           *status["done"]->intValue() < 3);
  EXPECT_TRUE(status["failure"]->isNull()) << status.encode();
  EXPECT_GE(*status["done"]->intValue(), 3) << status.encode();
  ok({"run.abort"});
}

TEST_F(RunEndToEnd, ARehearsalPerformsOnTheDisplayReportsItsPhasesAndAbortsAtOnce) {
  ok({"blocking.set", "text=move 100 100\nclick 200 200\nkey escape\nwait 0.6\ntype \"hi\"\nscroll 106\n"
                      "agent \"check the page\"\nwait 30\nclick 5 5\n"});
  const JSONValue started = ok({"run", "rehearse=1"});
  EXPECT_EQ(str(started, "mode"), "rehearse");
  EXPECT_EQ(started["running"]->boolValue(), true);
  // The first steps are performed; the long wait is under way.
  JSONValue status;
  const auto until = std::chrono::steady_clock::now() + 10s;
  do {
    status = ok({"run.status"});
    if (status["done"]->intValue() >= 7) break;
    std::this_thread::sleep_for(50ms);
  } while (std::chrono::steady_clock::now() < until);
  EXPECT_EQ(status["running"]->boolValue(), true);
  EXPECT_EQ(str(status, "report"), "running 7 of 9");
  EXPECT_EQ(status["heldAgents"]->encode(), R"(["check the page"])");
  EXPECT_EQ(status["failure"]->isNull(), true);

  const auto cut = std::chrono::steady_clock::now();
  const JSONValue aborted = ok({"run.abort"});
  const auto took = std::chrono::steady_clock::now() - cut;
  EXPECT_EQ(aborted["running"]->boolValue(), false);
  EXPECT_EQ(str(aborted, "report"), "aborted after 7 of 9 steps");
  // The step in force waits 30 s; the answer, tavorinctl's own start included, comes
  // well before (the sanitizers on a busy machine slow the start alone to half a second).
  EXPECT_LT(took, 3s) << std::chrono::duration_cast<std::chrono::milliseconds>(took).count() << " ms";
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(ok({"run.status"})["done"]->intValue(), 7);
  // The studio answers on.
  EXPECT_EQ(ok({"run.plan"})["count"]->intValue(), 9);
}

TEST_F(RunEndToEnd, ATakeRollsOnTheDisplayAndItsFilmLastsWhatItsRecordSays) {
  const JSONValue camera = ok({"camera"});
  EXPECT_EQ(str(camera, "verdict"), "proven") << camera.encode();
  ok({"recording.new", "title=Shot"});
  ok({"blocking.set", "text=move 100 100\nwait 1\nclick 200 200\n"});
  const JSONValue rolled = ok({"record"});
  EXPECT_EQ(rolled["rolling"]->boolValue(), true);
  EXPECT_EQ(str(rolled, "phase"), "counting");
  const std::string id = str(rolled, "take");
  ASSERT_FALSE(id.empty());
  // A second roll while one is on is refused in its words.
  const test::Reply again = ctl({"record"});
  EXPECT_EQ(again.rc, 1);
  EXPECT_NE(again.err.find("a take is already rolling"), std::string::npos);

  JSONValue status;
  const auto until = std::chrono::steady_clock::now() + 40s;
  do {
    std::this_thread::sleep_for(200ms);
    status = ok({"record.status"});
  } while (status["rolling"]->boolValue() == true && std::chrono::steady_clock::now() < until);
  EXPECT_EQ(str(status, "status"), "complete") << status.encode();
  EXPECT_EQ(str(status, "report"), "not rolling");

  const fs::path folder = dir / "root/demo/recordings/shot/takes" / id;
  const JSONValue take = JSONValue::decode(test::readFile(folder / "take.json"));
  EXPECT_EQ(str(take, "status"), "complete");
  const double seconds = *take["seconds"]->doubleValue();
  // Slate, the plan's second and the tail, by the frames' own times.
  EXPECT_NEAR(seconds, 1.5 + 1 + 1, 0.6);
  const fs::path film = folder / "take.mp4";
  ASSERT_TRUE(fs::exists(film));
  FILE* probe = ::popen(("ffprobe -v error -show_entries format=duration -of csv=p=0 '" + film.string() + "'").c_str(), "r");
  char line[64] = {};
  ASSERT_TRUE(probe && std::fgets(line, sizeof line, probe));
  ::pclose(probe);
  EXPECT_NEAR(std::stod(line), seconds, 0.3);
}
