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
#include "app/shoot/FakeRecorder.hpp"
#include "app/shoot/PosedPermissionsProbe.hpp"
#include "app/shoot/Stage.hpp"
#include "kit/Pasteboard.hpp"
#include "platform/FreedesktopTrash.hpp"

using namespace tavorin;
using namespace std::chrono_literals;

namespace {

// The slate, the grants and the camera's feed, over a fake camera and a posed desktop.
class ShootVerbsTest : public test::ServiceRig {
 protected:
  ShootVerbsTest() {
    auto fake = std::make_unique<FakeRecorder>();
    camera = fake.get();
    service.useStage(std::make_unique<Stage>(actor, std::make_unique<FakePerformer>(),
                                             std::make_unique<FakeAgentStep>(actor), &actor, std::move(fake), &actor));
    pose(PosedPermissionsProbe::Pose::all);
  }
  void pose(PosedPermissionsProbe::Pose p) { service.usePermissionsProbe(std::make_unique<PosedPermissionsProbe>(p)); }

  void open(const std::string& script) {
    openSample(2);
    data("blocking.set", {{"text", script}});
  }
  void play(std::chrono::milliseconds total) {
    for (auto left = total; left > 0ms; left -= 10ms) actor.advance(10ms);
  }
  bool noted(const std::string& prefix) const {
    for (const auto& e : model.events())
      if (e.rfind(prefix, 0) == 0) return true;
    return false;
  }
  static std::string text(const JSONValue& v, const char* key) { return v[key]->stringValue().value_or("?"); }

  FakeRecorder* camera = nullptr;
};

}  // namespace

TEST_F(ShootVerbsTest, PermissionsReportEveryRowAndTheSheetComesAndGoes) {
  pose(PosedPermissionsProbe::Pose::mixed);
  const JSONValue report = data("permissions");
  const auto& rows = *report["rows"]->arrayValue();
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(rows[1].encode(),
            R"({"button":{"act":"request","enabled":true,"label":"Grant"},"line":"Allow Tavorin to control clicks, )"
            R"(scrolls, and keys.","need":"accessibility","note":null,"state":"missing","title":"Synthetic Input"})");
  EXPECT_EQ(text(rows[2], "state"), "missing-prompt-spent");
  EXPECT_EQ(text(*rows[2]["button"], "act"), "openSettings");
  EXPECT_EQ(report["allSettled"]->boolValue(), false);
  EXPECT_EQ((*report["identity"])["lines"]->encode(), R"(["These grants belong to Tavorin."])");
  EXPECT_EQ(text(*report["identity"], "holder"), "Tavorin");

  EXPECT_EQ(data("status")["permissionsSheet"]->boolValue(), false);
  EXPECT_EQ(data("permissions.show")["showing"]->boolValue(), true);
  EXPECT_EQ(data("status")["permissionsSheet"]->boolValue(), true);
  EXPECT_EQ(text(data("permissions.dismiss"), "note"), "parked until the next launch or an explicit ask");
  EXPECT_EQ(data("status")["permissionsSheet"]->boolValue(), false);

  EXPECT_EQ(error("permissions.open", {{"which", "camera"}}),
            "no grant 'camera'. Try: screenRecording, accessibility, automation or chrome");
  EXPECT_EQ(error("permissions.open", {{"which", "chrome"}}), "a posed sheet opens nothing for chromeJS");
}

TEST_F(ShootVerbsTest, ARollTheScreenWontAllowIsRefusedAndBringsTheSheetBack) {
  pose(PosedPermissionsProbe::Pose::none);
  open("wait 1");
  EXPECT_EQ(error("record"), "Tavorin can't see the screen yet — grant Screen Recording");
  EXPECT_EQ(data("status")["permissionsSheet"]->boolValue(), true);
  EXPECT_TRUE(camera->calls().empty());
  const JSONValue info = data("shoot.info");
  EXPECT_EQ(info["canRoll"]->boolValue(), false);
  EXPECT_EQ(text(info, "refusal"), "Tavorin can't see the screen yet — grant Screen Recording");
  // Granted after the launch is still no: this process films with what it had then.
  pose(PosedPermissionsProbe::Pose::relaunch);
  EXPECT_EQ(error("record"), "Tavorin can't see the screen yet — grant Screen Recording");
}

TEST_F(ShootVerbsTest, TheSlateWarnsOfWhatTheTakeWillMissAndSaysWhatItFilms) {
  open("wait 2\nfrobnicate\nbadger 3");
  JSONValue info = data("shoot.info");
  EXPECT_EQ(info["canRoll"]->boolValue(), true);
  EXPECT_TRUE(info["refusal"]->isNull());
  EXPECT_EQ(info["warnings"]->encode(),
            R"(["2 steps the runner doesn't recognise will be skipped: frobnicate, badger 3",)"
            R"("2 lines have no audio rendered yet."])");
  // The narration outlasts the script: its last line ends at 2.5.
  EXPECT_EQ(info["planned"]->doubleValue(), 2.5);
  EXPECT_EQ(info["total"]->doubleValue(), 3 + 1.5 + 2.5 + 1);
  EXPECT_EQ(text(info, "films"), "the whole screen");
  data("capture", {{"app", "xterm"}, {"audio", "1"}});
  info = data("shoot.info");
  EXPECT_EQ(text(info, "films"), "the largest window of xterm");
  EXPECT_EQ(info["audio"]->boolValue(), true);
}

TEST_F(ShootVerbsTest, ATakeIsNotedRollAndCutAndTheMonitorShowsItRunning) {
  open("wait 1");
  const JSONValue rolled = data("record");
  EXPECT_EQ(text(rolled, "phase"), "counting");
  EXPECT_EQ(data("viewer.info")["running"]->boolValue(), true);
  play(3500ms);
  EXPECT_EQ(data("status")["rolling"]->boolValue(), true);
  const JSONValue dismissed = data("take.dismiss");
  EXPECT_EQ(dismissed["running"]->boolValue(), true);
  EXPECT_EQ(text(dismissed, "report"), "rolling — slate");
  EXPECT_TRUE(noted("roll " + (tmp / "root/Films/recordings/sample/takes").string()));
  camera->span = FilmedSpan{3.5, 84, 1};
  play(5000ms);
  EXPECT_EQ(data("viewer.info")["running"]->boolValue(), false);
  EXPECT_TRUE(noted("cut "));
  const auto& events = model.events();
  EXPECT_NE(std::find_if(events.begin(), events.end(),
                         [](const std::string& e) { return e.find(": 84 frames, 1 dropped") != std::string::npos; }),
            events.end());
  EXPECT_EQ(data("status")["rolling"]->boolValue(), false);
}

TEST_F(ShootVerbsTest, TheMonitorCaptionFlipsAndReadsTheLineUnderThePlayhead) {
  EXPECT_EQ(error("viewer.caption"), "no production is open");
  open("wait 1");
  data("seek", {{"to", "1.2"}});
  JSONValue caption = data("viewer.caption");
  EXPECT_EQ(caption["show"]->boolValue(), true);
  EXPECT_EQ(text(caption, "words"), "Line 1.");
  EXPECT_EQ(data("viewer.caption", {{"show", "1"}})["show"]->boolValue(), true);
  caption = data("viewer.caption");
  EXPECT_EQ(caption["show"]->boolValue(), false);
  EXPECT_TRUE(caption["words"]->isNull());
  data("seek", {{"to", "5"}});
  EXPECT_TRUE(data("viewer.caption", {{"show", "1"}})["words"]->isNull());
}

TEST_F(ShootVerbsTest, TheSystemsReadoutSpeaksForTheGrantsAndTheCamera) {
  pose(PosedPermissionsProbe::Pose::blocked);
  data("permissions");
  const JSONValue systems = data("systems", {{"open", "1"}});
  const auto& rows = *systems["rows"]->arrayValue();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(text(rows[1], "state"), "1 to grant");
  EXPECT_EQ(text(rows[2], "state"), "blocked");
  pose(PosedPermissionsProbe::Pose::all);
  data("permissions");
  const JSONValue ready = data("systems");
  EXPECT_EQ(text((*ready["rows"]->arrayValue())[1], "state"), "all granted");
  EXPECT_EQ(text((*ready["rows"]->arrayValue())[2], "state"), "ready in 0.12s");
}
