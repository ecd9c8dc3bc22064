#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "TestSupport.hpp"
#include "VirtualDisplay.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/shoot/LinuxPermissionsProbe.hpp"
#include "app/shoot/PermissionsRitual.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

void script(const fs::path& p, const std::string& body) {
  fs::create_directories(p.parent_path());
  std::ofstream(p) << "#!/bin/sh\n" << body << "\n";
  ::chmod(p.c_str(), 0755);
}

LinuxPermissionsProbe::Options options(const test::TempDir& dir, std::optional<std::string> display) {
  LinuxPermissionsProbe::Options o;
  o.display = std::move(display);
  o.browserProgram = (dir.path() / "no-browser").string();
  o.home = dir.path() / "home";
  o.executable = dir.path() / "build/tavorin";
  return o;
}

}  // namespace

TEST(LinuxPermissionsProbe, AVirtualDisplayIsFilmedAndTakesInput) {
  test::VirtualDisplay display;
  if (display.missing()) GTEST_SKIP() << *display.missing();
  test::TempDir dir;
  LinuxPermissionsProbe probe(options(dir, display.name()));
  EXPECT_TRUE(probe.screenRecording());
  EXPECT_TRUE(probe.accessibility());
  EXPECT_EQ(probe.why(Need::screenRecording), std::nullopt);
  const CameraVerdict verdict = probe.exerciseCamera();
  EXPECT_EQ(verdict.kind, CameraVerdict::Kind::proven) << verdict.seen.value_or("");
  EXPECT_LT(verdict.secondsToFirstFrame, 3);

  // The whole ritual over it: the screen is proven, no browser is installed.
  ManualMainActor actor;
  PermissionsRitual ritual(probe, actor, actor);
  ritual.refresh();
  actor.drain();
  EXPECT_EQ(ritual.state(Need::screenRecording).kind, PermissionsRitual::State::Kind::captureProven);
  EXPECT_EQ(ritual.state(Need::automation).kind, PermissionsRitual::State::Kind::unavailable);
  EXPECT_TRUE(ritual.allSettled());
}

TEST(LinuxPermissionsProbe, ADisplayThatIsNotThereIsRefusedInWordsThatSayWhy) {
  test::TempDir dir;
  {
    LinuxPermissionsProbe probe(options(dir, ":197"));
    EXPECT_FALSE(probe.screenRecording());
    EXPECT_EQ(probe.why(Need::screenRecording),
              "The X display :197 does not let Tavorin in. Allow this user on it (xhost, or the session's "
              "XAUTHORITY), then relaunch Tavorin.");
    EXPECT_FALSE(probe.accessibility());
    EXPECT_EQ(probe.why(Need::accessibility), "The X display :197 can't be reached.");
    EXPECT_EQ(probe.exerciseCamera().kind, CameraVerdict::Kind::noAccess);
  }
  test::ScopedEnv noDisplay("DISPLAY", std::nullopt);
  test::ScopedEnv wayland("WAYLAND_DISPLAY", "wayland-0");
  LinuxPermissionsProbe probe(options(dir, std::nullopt));
  EXPECT_FALSE(probe.screenRecording());
  EXPECT_EQ(probe.why(Need::screenRecording),
            "This is a Wayland session with no X display for Tavorin: it films through XWayland, which is not "
            "running. Start XWayland (or log in to an X11 session), then relaunch Tavorin.");
}

TEST(LinuxPermissionsProbe, SettingsOpenTheFirstDocumentThisDesktopHasOrSayThereIsNone) {
  test::TempDir dir;
  auto o = options(dir, std::nullopt);
  const fs::path log = dir.path() / "opened.txt";
  script(dir.path() / "bin/opener", "echo \"$1\" >> '" + log.string() + "'");
  o.opener = (dir.path() / "bin/opener").string();
  std::ofstream(dir.path() / "xtest.txt") << "docs";
  o.settings = {{Need::accessibility, {(dir.path() / "gone.txt").string(), (dir.path() / "xtest.txt").string()}}};
  LinuxPermissionsProbe probe(o);
  const SettingsOpened opened = probe.openSettings(Need::accessibility);
  EXPECT_TRUE(opened.opened);
  EXPECT_EQ(opened.said, "opened " + (dir.path() / "xtest.txt").string());
  EXPECT_EQ(test::readFile(log), (dir.path() / "xtest.txt").string() + "\n");

  const SettingsOpened none = probe.openSettings(Need::screenRecording);
  EXPECT_FALSE(none.opened);
  EXPECT_EQ(none.said, "This desktop has no settings tool or documentation for screenRecording.");

  o.opener = "no-such-opener";
  EXPECT_EQ(LinuxPermissionsProbe(o).openSettings(Need::accessibility).said,
            "There is no no-such-opener on this desktop to open settings with.");
  script(dir.path() / "bin/failing", "exit 3");
  o.opener = (dir.path() / "bin/failing").string();
  EXPECT_EQ(LinuxPermissionsProbe(o).openSettings(Need::accessibility).said,
            o.opener + " could not open " + (dir.path() / "xtest.txt").string() + ".");
}

TEST(LinuxPermissionsProbe, TheBrowserAndClaudeAreLookedForWhereTheStudioRunsThem) {
  test::TempDir dir;
  test::ScopedEnv path("PATH", (dir.path() / "bin").string());
  auto o = options(dir, std::nullopt);
  LinuxPermissionsProbe probe(o);
  EXPECT_EQ(probe.automation(false), AutomationState::chromeNotInstalled);
  EXPECT_FALSE(probe.agentCommand());
  EXPECT_EQ(probe.why(Need::agent), "There is no claude command (~/.local/bin/claude or on PATH); agent steps will fail.");
  script(dir.path() / "home/.local/bin/claude", "exit 0");
  EXPECT_TRUE(probe.agentCommand());
  EXPECT_EQ(probe.why(Need::agent), std::nullopt);

  // A browser that never answers on its pipe is a refusal, with its words kept.
  script(dir.path() / "bin/mute-browser", "exit 1");
  o.browserProgram = "mute-browser";
  LinuxPermissionsProbe mute(o);
  EXPECT_EQ(mute.automation(false), AutomationState::notDetermined);
  EXPECT_EQ(mute.automation(true), AutomationState::denied);
  EXPECT_NE(mute.why(Need::automation).value_or("").find("mute-browser would not answer over its DevTools pipe"),
            std::string::npos)
      << mute.why(Need::automation).value_or("");
  // Run from a build folder, the grants belong to the program it was started from.
  EXPECT_FALSE(probe.isBundled());
  EXPECT_TRUE(probe.grantHolder().otherProgram);
  EXPECT_GT(probe.grantHolder().pid, 0);
  o.executable = "/usr/bin/tavorin";
  EXPECT_EQ(LinuxPermissionsProbe(o).grantHolder().name, "Tavorin");
}
