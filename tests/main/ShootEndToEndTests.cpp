// Takes filmed on a display of the test's own, through tavorinctl: the grants, the
// camera, a take of typing into an xterm, and the faults a take must survive.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "Processes.hpp"
#include "TestSupport.hpp"
#include "VirtualDisplay.hpp"
#include "main/StudioFixture.hpp"
#include "operator/JSONValue.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

std::string run(const std::string& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0) out.append(buffer, n);
    ::pclose(p);
  }
  return out;
}

double filmSeconds(const fs::path& film) {
  const std::string out = run("ffprobe -v error -show_entries format=duration -of csv=p=0 '" + film.string() + "'");
  return out.empty() ? -1 : std::stod(out);
}

// The film's picture at `at` seconds, grey, one byte a pixel.
std::string frameAt(const fs::path& film, double at) {
  char seek[32];
  std::snprintf(seek, sizeof seek, "%.3f", at);
  return run("ffmpeg -v error -ss " + std::string(seek) + " -i '" + film.string() +
             "' -frames:v 1 -f rawvideo -pix_fmt gray -");
}

// The share of pixels that moved by more than a faint step of grey.
double changed(const std::string& a, const std::string& b) {
  if (a.size() != b.size() || a.empty()) return 1;
  std::size_t moved = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (std::abs(static_cast<int>(static_cast<unsigned char>(a[i])) - static_cast<unsigned char>(b[i])) > 40) ++moved;
  return static_cast<double>(moved) / a.size();
}

class ShootEndToEnd : public test::StudioFixture {
 protected:
  void SetUp() override {
    if (display.missing()) GTEST_SKIP() << *display.missing();
    startStudio({"DISPLAY=" + display.name(), "TAVORIN_SILENT=1"});
    // A first launch seeded the demo project; new recordings go there.
    ok({"project.open", "name=demo"});
  }
  void TearDown() override {
    kill(SIGTERM);
    if (xterm.pid > 0) {
      ::kill(xterm.pid, SIGKILL);
      test::waitFor(xterm.pid, 2s);
    }
    if (!mounted.empty()) ::umount2(mounted.c_str(), MNT_DETACH);
  }
  void startXterm(const std::vector<std::string>& args = {}) {
    std::vector<std::string> all{"-geometry", "80x24+0+0"};
    all.insert(all.end(), args.begin(), args.end());
    xterm = test::spawn("/usr/bin/xterm", all, {"DISPLAY=" + display.name()}, dir.path());
    // Shown once xdotool finds it.
    for (int i = 0; i < 100 && window().empty(); ++i) std::this_thread::sleep_for(100ms);
    ASSERT_FALSE(window().empty()) << test::readFile(xterm.err);
  }
  std::string window() {
    std::string id = run("DISPLAY=" + display.name() + " xdotool search --onlyvisible --class xterm 2>/dev/null | head -1");
    while (!id.empty() && (id.back() == '\n' || id.back() == ' ')) id.pop_back();
    return id;
  }
  fs::path production(const std::string& slug) const { return dir / "root/demo/recordings" / slug; }
  // Polls record.status until the take has ended; its last report.
  JSONValue waitForTake(std::chrono::seconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    JSONValue status;
    do {
      std::this_thread::sleep_for(200ms);
      status = ok({"record.status"});
    } while (status["rolling"]->boolValue() == true && std::chrono::steady_clock::now() < until);
    return status;
  }
  void waitForPhase(const std::string& phase) {
    const auto until = std::chrono::steady_clock::now() + 20s;
    while (str(ok({"record.status"}), "phase") != phase && std::chrono::steady_clock::now() < until)
      std::this_thread::sleep_for(100ms);
    ASSERT_EQ(str(ok({"record.status"}), "phase"), phase);
  }

  test::VirtualDisplay display;
  test::Spawned xterm;
  std::string mounted;
};

}  // namespace

TEST_F(ShootEndToEnd, TheGrantsTheCameraAndATakeOfTypingInAnXterm) {
  startXterm();
  // Every grant is reported; the camera's own check lands a moment later.
  JSONValue permissions;
  for (int i = 0; i < 50; ++i) {
    permissions = ok({"permissions"});
    if (permissions["checkingCamera"]->boolValue() == false && !permissions["camera"]->isNull()) break;
    std::this_thread::sleep_for(100ms);
  }
  ASSERT_NE(permissions["rows"], nullptr);
  const auto& rows = *permissions["rows"]->arrayValue();
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(str(rows[0], "need"), "screenRecording");
  EXPECT_EQ(str(rows[0], "state"), "capture-proven") << permissions.encode();
  EXPECT_EQ(str(rows[1], "state"), "granted");
  EXPECT_EQ(str(ok({"camera"}), "verdict"), "proven");

  ok({"recording.new", "title=Typing"});
  ok({"capture", "app=xterm"});
  ok({"blocking.set", "text=app xterm\nwait 1.5\ntype \"tavorin was here tavorin was here\"\nwait 2\n"});
  const JSONValue plan = ok({"run.plan"});
  ASSERT_NE(plan["events"], nullptr);
  const double planned = *plan["duration"]->doubleValue();
  double typedAt = -1;
  for (const auto& e : *plan["events"]->arrayValue())
    if (str(e, "kind") == "type") typedAt = *e["time"]->doubleValue();
  ASSERT_GE(typedAt, 1.5);
  const JSONValue info = ok({"shoot.info"});
  EXPECT_EQ(info["canRoll"]->boolValue(), true) << info.encode();
  EXPECT_EQ(str(info, "films"), "the largest window of xterm");

  const std::string id = str(ok({"record"}), "take");
  const JSONValue status = waitForTake(60s);
  EXPECT_EQ(str(status, "status"), "complete") << status.encode();

  const JSONValue takes = ok({"take.list"});
  ASSERT_EQ(takes["takes"]->arrayValue()->size(), 1u);
  const JSONValue& listed = (*takes["takes"]->arrayValue())[0];
  EXPECT_EQ(str(listed, "status"), "complete");
  // A new recording is saved as its first version, and nothing changed since.
  EXPECT_EQ(str(listed, "fromVersion"), "v0001");
  EXPECT_EQ(str(listed, "scheduleDigest").size(), 16u) << listed.encode();
  EXPECT_EQ(str(takes, "monitor"), id);

  const fs::path film = production("typing") / "takes" / id / "take.mp4";
  const JSONValue record = JSONValue::decode(test::readFile(film.parent_path() / "take.json"));
  EXPECT_EQ(str(listed, "scheduleDigest"), str(record, "scheduleDigest"));
  // The film lasts what its record says, within two frames at the camera's 24; that is the
  // slate, the whole performance and the tail, less what a loaded machine adds to the typing.
  const double recorded = *record["seconds"]->doubleValue();
  EXPECT_NEAR(filmSeconds(film), recorded, 2.0 / 24);
  EXPECT_GE(recorded, 1.5 + planned + 1.0 - 2.0 / 24) << "planned " << planned;
  EXPECT_LT(recorded, 1.5 + planned + 1.0 + 0.5) << "planned " << planned;
  // The window is still before the typing and holds the words after it.
  const std::string early = frameAt(film, 0.5), before = frameAt(film, 1.5 + typedAt - 0.3),
                    after = frameAt(film, 1.5 + typedAt + 1.5);
  EXPECT_LT(changed(early, before), 0.0005);
  EXPECT_GT(changed(before, after), 0.002);
  // The feed saw the camera roll and cut.
  bool rolled = false, cut = false;
  std::string seen;
  const JSONValue feed = ok({"events"});
  for (const auto& e : *feed["events"]->arrayValue()) {
    const std::string line = e.stringValue().value_or("");
    seen += line + "\n";
    rolled = rolled || line == "roll " + film.string();
    cut = cut || line.rfind("cut " + film.string() + ": ", 0) == 0;
  }
  EXPECT_TRUE(rolled) << film << "\n" << seen;
  EXPECT_TRUE(cut) << seen;
}

TEST_F(ShootEndToEnd, AWindowUnmappedMidTakeEndsItFailedOnDisk) {
  startXterm();
  ok({"recording.new", "title=Gone"});
  ok({"capture", "app=xterm"});
  ok({"blocking.set", "text=wait 20\n"});
  const std::string id = str(ok({"record"}), "take");
  waitForPhase("performing");
  run("DISPLAY=" + display.name() + " xdotool windowunmap " + window());
  const JSONValue status = waitForTake(20s);
  EXPECT_EQ(str(status, "status"), "failed");
  EXPECT_EQ(str(status, "report"),
            "take " + id + " failed to roll: The camera stopped: the filmed window or display went away");
  const JSONValue take = JSONValue::decode(test::readFile(production("gone") / "takes" / id / "take.json"));
  EXPECT_EQ(str(take, "status"), "failed");
}

TEST_F(ShootEndToEnd, AStudioKilledMidTakeFindsItCutOffAndOffersNoFootage) {
  ok({"recording.new", "title=Cut Off"});
  ok({"blocking.set", "text=wait 30\n"});
  const std::string id = str(ok({"record"}), "take");
  waitForPhase("performing");
  std::this_thread::sleep_for(500ms);
  kill(SIGKILL);
  launch();
  ok({"project.open", "name=demo"});
  ok({"recording.open", "slug=cut-off"});
  ASSERT_NE(ok({"take.list"})["takes"], nullptr);
  const JSONValue takes = ok({"take.list"});
  ASSERT_EQ(takes["takes"]->arrayValue()->size(), 1u);
  const JSONValue& listed = (*takes["takes"]->arrayValue())[0];
  EXPECT_EQ(str(listed, "id"), id);
  EXPECT_EQ(str(listed, "status"), "rolling");
  EXPECT_EQ(listed["cutOff"]->boolValue(), true);
  EXPECT_EQ(listed["footage"]->doubleValue(), 0);
  // The partial film stays on disk, but nothing puts it on the monitor or the timeline.
  EXPECT_TRUE(takes["monitor"]->isNull());
  EXPECT_EQ(str(ok({"viewer.info"}), "state"), "empty");
  EXPECT_EQ(ok({"timeline.info"})["footage"]->doubleValue().value_or(0), 0);
}

TEST_F(ShootEndToEnd, AFullDiskMidTakeFailsItWithTheWritersWordsAndKeepsTheProduction) {
  ok({"recording.new", "title=Full"});
  const std::string script = "wait 30\n";
  ok({"blocking.set", "text=" + script});
  ok({"save"});
  const fs::path takes = production("full") / "takes";
  fs::create_directories(takes);
  if (::mount("tmpfs", takes.c_str(), "tmpfs", 0, "size=256k") != 0)
    GTEST_SKIP() << "a small tmpfs cannot be mounted here: " << std::strerror(errno);
  mounted = takes.string();
  // A terminal that never stops scrolling fills the film fast.
  startXterm({"-e", "sh", "-c", "while :; do ls -la /usr/lib; done"});
  const std::string id = str(ok({"record"}), "take");
  const JSONValue status = waitForTake(40s);
  EXPECT_EQ(str(status, "status"), "failed") << status.encode();
  EXPECT_NE(str(status, "failure").find("The camera stopped: "), std::string::npos) << status.encode();
  EXPECT_NE(str(status, "failure").find("No space left on device"), std::string::npos) << status.encode();
  // The record says how it ended; the unplayable film gave up its room for it.
  const JSONValue take = JSONValue::decode(test::readFile(takes / id / "take.json"));
  EXPECT_EQ(str(take, "status"), "failed");
  // The production is untouched and answers on.
  EXPECT_EQ(str(ok({"blocking"}), "text"), script);
  EXPECT_NE(ok({"status"})["production"]->objectValue(), nullptr);
}

TEST_F(ShootEndToEnd, AForcedSheetRisesAtLaunchAndAPoseWordPosesTheGrants) {
  // This display grants everything, so nothing raised the sheet by itself.
  EXPECT_EQ(ok({"status"})["permissionsSheet"]->boolValue(), false);
  kill(SIGTERM);
  env.push_back("TAVORIN_FORCE_PERMISSIONS_SHEET=relaunch");
  launch();
  EXPECT_EQ(ok({"status"})["permissionsSheet"]->boolValue(), true);
  const JSONValue posed = ok({"permissions"});
  EXPECT_EQ(str((*posed["rows"]->arrayValue())[0], "state"), "relaunch-needed");
  EXPECT_EQ(str(*posed["identity"], "holder"), "Tavorin");
  EXPECT_EQ(str(ok({"permissions.dismiss"}), "note"), "parked until the next launch or an explicit ask");
  EXPECT_EQ(ok({"status"})["permissionsSheet"]->boolValue(), false);
  // A word that names no pose forces the sheet over the desktop's own answers.
  kill(SIGTERM);
  env.back() = "TAVORIN_FORCE_PERMISSIONS_SHEET=yes please";
  launch();
  EXPECT_EQ(ok({"status"})["permissionsSheet"]->boolValue(), true);
  EXPECT_EQ(str((*ok({"permissions"})["rows"]->arrayValue())[1], "state"), "granted");
}
