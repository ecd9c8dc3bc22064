#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "Loopback.hpp"
#include "Processes.hpp"
#include "TestSupport.hpp"
#include "operator/JSONValue.hpp"
#include "operator/OperatorClient.hpp"
#include "operator/OperatorControlFile.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::programs;
using test::spawn;
using test::Spawned;
using test::waitFor;
using test::waitForFile;

namespace {

// How long a start or an exit may take before the test calls it a hang: under the
// sanitizers on a loaded machine the leak check alone can take seconds at exit.
constexpr auto patience = 30000ms;

class TavorinProcess : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_ / "home");
    env_ = {"HOME=" + (dir_ / "home").string(), "XDG_DATA_HOME=" + (dir_ / "data").string(),
            "TAVORIN_ROOT=" + (dir_ / "root").string(), "TAVORIN_SUPPORT=" + (dir_ / "support").string()};
    control_ = dir_ / "data/Tavorin/operator.json";
  }
  void TearDown() override {
    if (app_.pid > 0 && waitFor(app_.pid, 0ms) == -1) {
      ::kill(app_.pid, SIGKILL);
      waitFor(app_.pid, 2000ms);
    }
  }
  Spawned launch(std::vector<std::string> extraEnv = {}) {
    auto env = env_;
    env.insert(env.end(), extraEnv.begin(), extraEnv.end());
    app_ = spawn(programs() / "tavorin", {}, env, dir_.path());
    return app_;
  }
  // Runs tavorinctl to its end; the exit status and what it printed.
  std::tuple<int, std::string, std::string> ctl(std::vector<std::string> args) {
    auto s = spawn(programs() / "tavorinctl", args, env_, dir_.path());
    const int rc = waitFor(s.pid, 5000ms);
    return {rc, test::readFile(s.out), test::readFile(s.err)};
  }

  test::TempDir dir_;
  std::vector<std::string> env_;
  fs::path control_;
  Spawned app_;
};

}  // namespace

TEST_F(TavorinProcess, StartsAnswersAndQuitsCleanly) {
  // Held only to not hanging: how fast the studio starts is a bench's question.
  launch();
  ASSERT_TRUE(waitForFile(control_, patience)) << test::readFile(app_.err);
  EXPECT_TRUE(fs::is_directory(dir_ / "root"));

  const auto control = OperatorControlFile::read(control_);
  EXPECT_EQ(control.version, 1);
  EXPECT_EQ(control.host, "127.0.0.1");
  EXPECT_GT(control.port, 0);
  EXPECT_EQ(control.token.size(), 72u);
  EXPECT_EQ(control.pid, app_.pid);
  EXPECT_EQ(fs::status(control_).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);

  auto [rc, out, err] = ctl({"ping"});
  EXPECT_EQ(rc, 0) << err;
  EXPECT_EQ(JSONValue::decode(out), JSONValue::object({{"pong", true}}));

  std::tie(rc, out, err) = ctl({"status"});
  EXPECT_EQ(rc, 0) << err;
  const JSONValue status = JSONValue::decode(out);
  EXPECT_EQ(*status["route"], JSONValue("library"));
  EXPECT_TRUE(status["production"]->isNull());
  EXPECT_EQ(*status["rolling"], JSONValue(false));
  EXPECT_NE(status["build"]->objectValue(), nullptr);

  std::tie(rc, out, err) = ctl({"nonsense.verb"});
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(err, "unknown verb 'nonsense.verb'. Try: tavorinctl verbs\n");

  std::tie(rc, out, err) = ctl({"ping", "novalue"});
  EXPECT_EQ(rc, 2);

  std::tie(rc, out, err) = ctl({"quit"});
  EXPECT_EQ(rc, 0) << err;
  EXPECT_EQ(waitFor(app_.pid, patience), 0);
  EXPECT_FALSE(fs::exists(control_));

  // With the studio gone, the client says so and exits non-zero.
  std::tie(rc, out, err) = ctl({"ping"});
  EXPECT_EQ(rc, 2);
  EXPECT_NE(err.find("Tavorin is not running"), std::string::npos);
}

TEST_F(TavorinProcess, SigtermAndSigintTakeTheSameRoadOut) {
  for (int signal : {SIGTERM, SIGINT}) {
    launch();
    ASSERT_TRUE(waitForFile(control_, patience));
    ::kill(app_.pid, signal);
    EXPECT_EQ(waitFor(app_.pid, patience), 0) << signal;
    EXPECT_FALSE(fs::exists(control_)) << signal;
  }
}

TEST_F(TavorinProcess, NoOperatorMeansNoServerAndNoControlFile) {
  // How long this machine takes to publish the file when the switch is off; the
  // switched run is then watched for well past that.
  const auto started = std::chrono::steady_clock::now();
  launch();
  ASSERT_TRUE(waitForFile(control_, patience));
  const auto publishing = std::chrono::steady_clock::now() - started;
  ::kill(app_.pid, SIGTERM);
  ASSERT_EQ(waitFor(app_.pid, patience), 0);
  ASSERT_FALSE(fs::exists(control_));

  launch({"TAVORIN_NO_OPERATOR="});
  EXPECT_FALSE(waitForFile(control_, std::chrono::duration_cast<std::chrono::milliseconds>(publishing * 3) + 200ms));
  EXPECT_EQ(waitFor(app_.pid, 0ms), -1);  // still running
  ::kill(app_.pid, SIGTERM);
  EXPECT_EQ(waitFor(app_.pid, patience), 0);
}

TEST_F(TavorinProcess, AControlFileThatCannotBeWrittenIsSaidAndAHeadlessStudioEnds) {
  // The data folder is a file, so the control file has nowhere to go.
  test::writeFile(dir_ / "blocked", "");
  for (auto& entry : env_)
    if (entry.starts_with("XDG_DATA_HOME=")) entry = "XDG_DATA_HOME=" + (dir_ / "blocked").string();
  launch();
  EXPECT_EQ(waitFor(app_.pid, patience), 1);
  const std::string err = test::readFile(app_.err);
  EXPECT_EQ(err.rfind("tavorin: operator server failed: can't create " + (dir_ / "blocked/Tavorin").string(), 0), 0u)
      << err;
}

TEST_F(TavorinProcess, ASnapshotRunSaysThereIsNoWindowAndEnds) {
  launch({"TAVORIN_SNAPSHOT=" + (dir_ / "shot.png").string()});
  EXPECT_EQ(waitFor(app_.pid, patience), 0);
  EXPECT_EQ(test::readFile(app_.err), "snapshot: no window available for snapshot\n");
  EXPECT_FALSE(fs::exists(control_));
  EXPECT_FALSE(fs::exists(dir_ / "shot.png"));
}

namespace {
// The studio's own CPU time so far (user and system), from /proc.
std::chrono::duration<double> cpuTime(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string skip;
  for (int i = 3; i < 14; ++i) fields >> skip;  // state .. cmajflt
  long user = 0, system = 0;
  fields >> user >> system;
  return std::chrono::duration<double>(static_cast<double>(user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK)));
}

std::string request(const std::string& token, const std::string& verb) {
  return R"({"token":")" + token + R"(","command":{"verb":")" + verb + R"(","args":{}}})" "\n";
}
}  // namespace

TEST_F(TavorinProcess, OutOfDescriptorsTheStudioRestsAndQuitStillGetsThrough) {
#if defined(__SANITIZE_ADDRESS__)
  // UBSan checks a pointer's type by writing its memory through a pipe; with every
  // descriptor taken that check fails and reports objects that are sound.
  GTEST_SKIP() << "the sanitizers need descriptors of their own; this runs in the normal build";
#endif
  app_ = spawn("/usr/bin/prlimit", {"--nofile=32:32", "--", (programs() / "tavorin").string()}, env_, dir_.path());
  ASSERT_TRUE(waitForFile(control_, patience)) << test::readFile(app_.err);
  const auto control = OperatorControlFile::read(control_);
  test::LineClient first(control.port);
  first.write(request(control.token, "ping"));
  ASSERT_EQ(first.line(), "{\"data\":{\"pong\":true},\"ok\":true}\n");

  // More connections than the studio has descriptors: the rest wait in the backlog,
  // and every accept fails with EMFILE.
  std::vector<std::unique_ptr<test::LineClient>> crowd;
  for (int i = 0; i < 48; ++i) crowd.push_back(std::make_unique<test::LineClient>(control.port));
  std::this_thread::sleep_for(100ms);

  const auto cpuBefore = cpuTime(app_.pid);
  const auto wallBefore = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(500ms);
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - wallBefore;
  const auto busy = cpuTime(app_.pid) - cpuBefore;
  // Spinning on accept shows as a whole core; resting, a few wake-ups.
  EXPECT_LT(busy.count(), 0.1 * wall.count()) << busy.count() << " s of CPU in " << wall.count() << " s";

  first.write(request(control.token, "quit"));
  EXPECT_EQ(first.line(), "{\"data\":{\"quitting\":true},\"ok\":true}\n");
  EXPECT_EQ(waitFor(app_.pid, patience), 0) << test::readFile(app_.err);
}
