#include <gtest/gtest.h>

#include "app/model/ManualMainActor.hpp"
#include "app/shoot/PermissionsRitual.hpp"
#include "app/shoot/PosedPermissionsProbe.hpp"

using namespace tavorin;
using Kind = PermissionsRitual::State::Kind;
using Act = PermissionsRitual::Act;

namespace {

// Facts set by the test, one at a time, with every act counted.
struct FactsProbe final : PermissionsProbe {
  bool bundled = false;
  bool screen = true, ax = true, agent = true;
  AutomationState automationState = AutomationState::granted;
  ChromeJSState js = ChromeJSState::on;
  CameraVerdict verdict{CameraVerdict::Kind::proven, 0.25, std::nullopt};
  int cameraRuns = 0, automationAsks = 0, opened = 0;
  bool prompts = true;

  bool isBundled() const override { return bundled; }
  GrantHolder grantHolder() const override { return {"konsole", "/usr/bin/konsole", 4242, !bundled}; }
  bool screenRecording() override { return screen; }
  bool accessibility() override { return ax; }
  AutomationState automation(bool) override { return automationState; }
  CameraVerdict exerciseCamera() override {
    ++cameraRuns;
    return verdict;
  }
  void requestScreenRecording() override {}
  void requestAccessibility() override {}
  void requestAutomation() override {
    ++automationAsks;
    automationState = AutomationState::granted;
  }
  ChromeJSState probeChromeJS() override { return js; }
  SettingsOpened openSettings(Need) override {
    ++opened;
    return {true, "opened the docs"};
  }
  void openChrome() override {}
  void relaunch() override {}
  bool agentCommand() override { return agent; }
  bool canPrompt(Need) const override { return prompts; }
  std::optional<std::string> why(Need n) const override {
    return n == Need::accessibility ? std::optional<std::string>("No XTEST here.") : std::nullopt;
  }
};

std::vector<std::string> wires(const PermissionsRitual& r) {
  std::vector<std::string> out;
  for (const auto& row : r.rows()) out.push_back(row.state.wire());
  return out;
}

std::vector<std::string> labels(const PermissionsRitual& r) {
  std::vector<std::string> out;
  for (const auto& row : r.rows()) out.push_back(row.button.label + (row.button.enabled ? "" : " (off)"));
  return out;
}

}  // namespace

TEST(PermissionsRitual, EachPoseShowsItsRowsWithoutTouchingTheDesktop) {
  struct Case {
    const char* pose;
    std::vector<std::string> states, buttons;
    bool settled;
  };
  const std::vector<Case> cases = {
      {"none",
       {"missing", "missing", "missing", "unknown-chrome-closed", "unavailable"},
       {"Grant", "Grant", "Grant", "Open Chromium", "claude Missing (off)"},
       false},
      {"mixed",
       {"capture-proven", "missing", "missing-prompt-spent", "off", "granted"},
       {"Ready (off)", "Grant", "Open Settings", "Open Chromium", "Ready (off)"},
       false},
      {"all",
       {"capture-proven", "granted", "granted", "on", "granted"},
       {"Ready (off)", "Granted (off)", "Granted (off)", "Enabled (off)", "Ready (off)"},
       true},
      {"relaunch",
       {"relaunch-needed", "granted", "granted", "on", "granted"},
       {"Relaunch", "Granted (off)", "Granted (off)", "Enabled (off)", "Ready (off)"},
       false},
      {"blocked",
       {"blocked", "granted", "granted", "on", "granted"},
       {"Check again", "Granted (off)", "Granted (off)", "Enabled (off)", "Ready (off)"},
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.pose);
    ManualMainActor actor;
    PosedPermissionsProbe probe(*PosedPermissionsProbe::named(c.pose));
    PermissionsRitual ritual(probe, actor, actor);
    ritual.refresh();
    actor.drain();
    ritual.probeChromeJS();
    actor.drain();
    ritual.refresh();
    EXPECT_EQ(wires(ritual), c.states);
    EXPECT_EQ(labels(ritual), c.buttons);
    EXPECT_EQ(ritual.allSettled(), c.settled);
    EXPECT_EQ(probe.requests, 0);
    EXPECT_EQ(ritual.identityLine(), "These grants belong to Tavorin.");
  }
  EXPECT_FALSE(PosedPermissionsProbe::named("everything"));
}

TEST(PermissionsRitual, AScreenGrantedAfterLaunchAsksForARelaunchNeverGranted) {
  ManualMainActor actor;
  FactsProbe probe;
  probe.screen = false;
  PermissionsRitual ritual(probe, actor, actor);
  EXPECT_EQ(ritual.state(Need::screenRecording), (PermissionsRitual::State{Kind::missing, true}));
  probe.screen = true;
  ritual.refresh();
  actor.drain();
  EXPECT_EQ(ritual.state(Need::screenRecording).kind, Kind::relaunchNeeded);
  EXPECT_EQ(ritual.button(Need::screenRecording).act, Act::relaunch);
  // This process cannot film yet, so its camera is never exercised.
  EXPECT_EQ(probe.cameraRuns, 0);
  EXPECT_EQ(ritual.rows()[0].note, "Granted. Restart this run to film.");
  probe.bundled = true;
  EXPECT_EQ(ritual.rows()[0].note, "Granted. It applies at the next launch.");
}

TEST(PermissionsRitual, WhileTheSheetStandsAGrantGivenElsewhereShowsByItself) {
  ManualMainActor actor;
  FactsProbe probe;
  probe.ax = false;
  PermissionsRitual ritual(probe, actor, actor);
  int changes = 0;
  ritual.onChange = [&] { ++changes; };
  ritual.refresh();
  actor.drain();
  ritual.show();
  ritual.show();  // raised twice, it still reads once a beat
  probe.ax = true;
  actor.advance(PermissionsRitual::rereadEvery / 2);
  EXPECT_EQ(ritual.state(Need::accessibility).kind, Kind::missing);
  const int before = changes;
  actor.advance(PermissionsRitual::rereadEvery / 2);
  EXPECT_EQ(ritual.state(Need::accessibility).kind, Kind::granted);
  EXPECT_EQ(changes, before + 1);
  actor.advance(PermissionsRitual::rereadEvery);
  EXPECT_EQ(changes, before + 2);

  // Put away, it reads nothing more until it is raised again.
  ritual.dismiss();
  probe.ax = false;
  actor.advance(PermissionsRitual::rereadEvery * 3);
  EXPECT_EQ(ritual.state(Need::accessibility).kind, Kind::granted);
  ritual.show();
  actor.advance(PermissionsRitual::rereadEvery);
  EXPECT_EQ(ritual.state(Need::accessibility).kind, Kind::missing);
}

TEST(PermissionsRitual, GrantIsPressedOnceThenTheRowOffersItsSettings) {
  ManualMainActor actor;
  FactsProbe probe;
  probe.ax = false;
  probe.automationState = AutomationState::notDetermined;
  PermissionsRitual ritual(probe, actor, actor);
  EXPECT_EQ(ritual.button(Need::accessibility).label, "Grant");
  EXPECT_EQ(ritual.rows()[1].note, "No XTEST here.");
  ritual.act(Need::accessibility);
  actor.drain();
  EXPECT_EQ(ritual.state(Need::accessibility).wire(), "missing-prompt-spent");
  EXPECT_EQ(ritual.button(Need::accessibility).label, "Open Settings");
  std::string said;
  ritual.act(Need::accessibility, [&](const std::string& s) { said = s; });
  actor.drain();
  EXPECT_EQ(said, "opened the docs");
  EXPECT_EQ(probe.opened, 1);

  // Asking the browser happens off the actor and lands as granted.
  ritual.act(Need::automation);
  actor.drain();
  EXPECT_EQ(probe.automationAsks, 1);
  EXPECT_EQ(ritual.state(Need::automation).kind, Kind::granted);
}

TEST(PermissionsRitual, ADeniedBrowserOrADesktopWithoutPromptsOffersSettingsAtOnce) {
  ManualMainActor actor;
  FactsProbe probe;
  probe.automationState = AutomationState::denied;
  probe.ax = false;
  probe.prompts = false;
  PermissionsRitual ritual(probe, actor, actor);
  EXPECT_EQ(ritual.button(Need::automation).label, "Open Settings");
  EXPECT_EQ(ritual.button(Need::accessibility).label, "Open Settings");
  EXPECT_TRUE(ritual.wanting());
}

TEST(PermissionsRitual, SettlesWithoutABrowserOrClaudeOnTheMachine) {
  ManualMainActor actor;
  FactsProbe probe;
  probe.automationState = AutomationState::chromeNotInstalled;
  probe.agent = false;
  PermissionsRitual ritual(probe, actor, actor);
  ritual.refresh();
  actor.drain();
  EXPECT_EQ(ritual.state(Need::chromeJS).kind, Kind::unavailable);
  EXPECT_EQ(ritual.button(Need::automation).label, "Chromium Missing");
  EXPECT_EQ(ritual.state(Need::agent).kind, Kind::unavailable);
  EXPECT_TRUE(ritual.allSettled());
  EXPECT_FALSE(ritual.wanting());
}

TEST(PermissionsRitual, ABlockedCameraUnsettlesUntilCheckAgainProvesIt) {
  ManualMainActor actor;
  FactsProbe probe;
  probe.verdict = CameraVerdict{CameraVerdict::Kind::blocked, 0, std::string("no frames arrived")};
  PermissionsRitual ritual(probe, actor, actor);
  ritual.refresh();
  EXPECT_EQ(ritual.state(Need::screenRecording).kind, Kind::checkingCapture);
  EXPECT_EQ(ritual.button(Need::screenRecording).label, "Checking");
  // A second refresh while the check runs starts no second one.
  ritual.refresh();
  actor.drain();
  EXPECT_EQ(probe.cameraRuns, 1);
  EXPECT_EQ(ritual.state(Need::screenRecording).kind, Kind::captureBlocked);
  EXPECT_FALSE(ritual.allSettled());
  EXPECT_EQ(SystemsCopy::status(false, true, ritual), "Screen capture blocked");
  ritual.refresh();
  actor.drain();
  EXPECT_EQ(probe.cameraRuns, 1);  // a verdict in hand is not asked again by itself

  probe.verdict = CameraVerdict{CameraVerdict::Kind::proven, 0.5, std::nullopt};
  ritual.act(Need::screenRecording);
  actor.drain();
  EXPECT_EQ(probe.cameraRuns, 2);
  EXPECT_EQ(ritual.state(Need::screenRecording).kind, Kind::captureProven);
  EXPECT_EQ(ritual.rows()[0].note, "The camera works now.");
  EXPECT_TRUE(ritual.allSettled());
}

TEST(PermissionsRitual, VisitingTheSettingsOfAMissingScreenMeansTheAnswerComesAtTheNextLaunch) {
  ManualMainActor actor;
  FactsProbe probe;
  probe.screen = false;
  probe.prompts = false;
  PermissionsRitual ritual(probe, actor, actor);
  ritual.openSettings(Need::screenRecording);
  actor.drain();
  EXPECT_EQ(ritual.state(Need::screenRecording).kind, Kind::relaunchNeeded);
  EXPECT_EQ(ritual.rows()[0].note, "This copy learns the answer at its next launch.");
  EXPECT_EQ(ritual.identityLine(),
            "These grants belong to konsole. The X server gives them to the session it runs in.");
}

TEST(SystemsCopy, TheFooterSaysTheFirstThingWantingThenTheCamera) {
  ManualMainActor actor;
  FactsProbe probe;
  probe.ax = false;
  PermissionsRitual ritual(probe, actor, actor);
  EXPECT_EQ(SystemsCopy::status(true, false, ritual), "Checking voice engine");
  EXPECT_EQ(SystemsCopy::status(false, false, ritual), "Voice engine not responding");
  EXPECT_EQ(SystemsCopy::status(false, true, ritual), "Synthetic Input not granted");
  auto rows = SystemsCopy::rows(false, true, ritual);
  EXPECT_EQ(rows[1].state, "2 to grant");  // input, and the browser's JavaScript not yet asked
  EXPECT_EQ(rows[2].state, "unchecked");
  probe.ax = true;
  ritual.refresh();
  EXPECT_EQ(SystemsCopy::status(false, true, ritual), "Checking the camera");
  EXPECT_EQ(SystemsCopy::rows(false, true, ritual)[2].state, "checking");
  actor.drain();
  // The browser's JavaScript was asked about by itself, once it answered.
  EXPECT_EQ(ritual.state(Need::chromeJS).kind, Kind::on);
  EXPECT_EQ(SystemsCopy::status(false, true, ritual), "Ready to record");
  rows = SystemsCopy::rows(false, true, ritual);
  EXPECT_EQ(rows[1].state, "all granted");
  EXPECT_EQ(rows[2].state, "ready in 0.25s");
  EXPECT_TRUE(rows[2].ok);
}
