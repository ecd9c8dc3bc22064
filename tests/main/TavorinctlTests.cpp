#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

#include "Loopback.hpp"
#include "Processes.hpp"
#include "TestSupport.hpp"
#include "operator/BuildStamp.hpp"
#include "operator/OperatorControlFile.hpp"
#include "operator/OperatorManifest.hpp"
#include "operator/OperatorWire.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

fs::path tavorinctl() { return test::programs() / "tavorinctl"; }

struct Ran {
  int rc = -1;
  std::string out, err;
};

// Runs tavorinctl to its end with the control file looked for under `data`.
Ran run(const std::vector<std::string>& args, const fs::path& data = "/nonexistent") {
  test::TempDir logs;
  const auto s = test::spawn(tavorinctl(), args, {"XDG_DATA_HOME=" + data.string()}, logs.path());
  Ran ran;
  ran.rc = test::waitFor(s.pid, std::chrono::seconds(10));
  ran.out = test::readFile(s.out);
  ran.err = test::readFile(s.err);
  return ran;
}

// A stand-in for the studio: answers `status` with the given report and every other
// verb with ok, and remembers the verbs in the order they came.
class FakeStudio {
 public:
  FakeStudio(const fs::path& data, JSONValue status)
      : status_(std::move(status)), server_([this](const std::string& line) { return answer(line); }) {
    OperatorControlFile{1, "127.0.0.1", server_.port(), "token", static_cast<std::int32_t>(::getpid())}.write(
        data / "Tavorin/operator.json");
  }
  std::vector<std::string> verbs() {
    std::lock_guard lock(mutex_);
    return verbs_;
  }

 private:
  std::string answer(const std::string& line) {
    const OperatorRequest request = OperatorWire::decodeRequest(line);
    std::lock_guard lock(mutex_);
    verbs_.push_back(request.command.verb);
    return OperatorWire::encodeLine(request.command.verb == "status"
                                        ? OperatorResult::success(status_)
                                        : OperatorResult::success(JSONValue::object({{"done", true}})));
  }

  JSONValue status_;
  std::mutex mutex_;
  std::vector<std::string> verbs_;
  test::LoopbackServer server_;
};

JSONValue statusBuiltAt(JSONValue modified) {
  return JSONValue::object(
      {{"version", "0.1.0"},
       {"build", JSONValue::object({{"version", "0.1.0"}, {"modified", std::move(modified)}, {"bundled", false}})}});
}

}  // namespace

TEST(Tavorinctl, VerbsListsTheWholeManifestByGroup) {
  const Ran ran = run({"verbs"});
  ASSERT_EQ(ran.rc, 0) << ran.err;
  std::vector<std::string> groups;
  std::vector<std::string> verbs;
  std::size_t start = 0;
  while (start < ran.out.size()) {
    const std::size_t end = ran.out.find('\n', start);
    const std::string line = ran.out.substr(start, end - start);
    start = end + 1;
    if (line.rfind("  ", 0) == 0)
      verbs.push_back(line.substr(2));
    else if (!line.empty())
      groups.push_back(line);
  }
  // The names as listed, without their parameters, are the manifest's, each once.
  std::vector<std::string> names;
  for (const auto& v : verbs) names.push_back(v.substr(0, v.find(' ')));
  std::vector<std::string> expected;
  for (const auto& row : OperatorManifest::verbs()) expected.push_back(row.name);
  std::sort(names.begin(), names.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(names, expected);
  EXPECT_EQ(groups, OperatorManifest::groups());
  // Each verb under its own group, optional parameters marked.
  EXPECT_NE(ran.out.find("status\n  ping\n  status\n"), std::string::npos);
  EXPECT_NE(std::find(verbs.begin(), verbs.end(), "toasts dismiss?"), verbs.end());
  EXPECT_NE(std::find(verbs.begin(), verbs.end(), "line.split id at"), verbs.end());
  EXPECT_NE(ran.out.find("edit\n  copy\n"), std::string::npos);
  EXPECT_NE(ran.out.find("  panel tab? group? collapsed?\n  select ids? all? none? extend?\n"), std::string::npos);

  const Ran json = run({"verbs", "--json"});
  ASSERT_EQ(json.rc, 0);
  EXPECT_EQ(JSONValue::decode(json.out), OperatorManifest::toJSON());
}

TEST(Tavorinctl, HelpExplainsOneVerbAndRefusesAnUnknownOne) {
  const Ran help = run({"help", "line.split"});
  ASSERT_EQ(help.rc, 0) << help.err;
  EXPECT_EQ(help.out.rfind("tavorinctl line.split id=… at=…\n", 0), 0u) << help.out;
  const auto id = help.out.find("  id\n      Line id, e.g. l1.\n");
  const auto at = help.out.find("  at\n      Characters");
  EXPECT_NE(id, std::string::npos);
  EXPECT_LT(id, at);
  EXPECT_NE(run({"help", "render"}).out.find("  ids (optional)\n"), std::string::npos);

  const Ran unknown = run({"help", "Line.split"});
  EXPECT_EQ(unknown.rc, 2);
  EXPECT_EQ(unknown.err, "no verb 'Line.split'. Try: tavorinctl verbs\n");
  EXPECT_EQ(run({"help"}).rc, 2);
  EXPECT_EQ(run({"verbs", "extra"}).rc, 2);
  EXPECT_EQ(run({}).rc, 2);
  const Ran usage = run({"--help"});
  EXPECT_EQ(usage.rc, 0);
  EXPECT_NE(usage.out.find("tavorinctl verbs"), std::string::npos);
}

// This client runs from a build inside the checkout, so a studio that reports a
// build older than the sources is refused before the verb leaves.
TEST(Tavorinctl, RefusesAStudioBuiltBeforeTheSources) {
  const auto root = BuildStamp::checkoutRoot(tavorinctl());
  ASSERT_TRUE(root) << "the client should run from a build folder inside the checkout";
  test::TempDir data;
  {
    FakeStudio studio(data.path(), statusBuiltAt("2001-01-01T00:00:00Z"));
    const Ran ping = run({"ping"}, data.path());
    EXPECT_EQ(ping.rc, 2);
    EXPECT_EQ(ping.err.rfind("Tavorin is answering from a build older than the source in " + root->string() + ". ", 0),
              0u)
        << ping.err;
    EXPECT_NE(ping.err.find("; that window was built at 1 Jan "), std::string::npos) << ping.err;
    EXPECT_TRUE(ping.err.ends_with(" Quit it with `tavorinctl quit`, then run this again.\n")) << ping.err;
    EXPECT_EQ(studio.verbs(), std::vector<std::string>{"status"});  // the verb never left

    EXPECT_EQ(run({"status"}, data.path()).rc, 0);
    EXPECT_EQ(run({"quit"}, data.path()).rc, 0);
    EXPECT_EQ(studio.verbs(), (std::vector<std::string>{"status", "status", "quit"}));
  }
  {
    FakeStudio studio(data.path(), JSONValue::object({{"version", "0.0.9"}}));
    const Ran ping = run({"ping"}, data.path());
    EXPECT_EQ(ping.rc, 2);
    EXPECT_NE(ping.err.find(", and that window will not say when it was built. "), std::string::npos) << ping.err;
  }
  {
    FakeStudio studio(data.path(), statusBuiltAt("2200-01-01T00:00:00Z"));
    const Ran ping = run({"ping"}, data.path());
    EXPECT_EQ(ping.rc, 0) << ping.err;
    EXPECT_EQ(studio.verbs(), (std::vector<std::string>{"status", "ping"}));
  }
}
