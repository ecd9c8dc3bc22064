#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>

#include "PumpedActor.hpp"
#include "TestSupport.hpp"
#include "app/publish/Fetch.hpp"
#include "app/publish/Revise.hpp"
#include "kit/FetchPlan.hpp"
#include "kit/Revision.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

void script(const fs::path& file, const std::string& body) {
  test::writeFile(file, "#!/bin/sh\n" + body);
  ::chmod(file.c_str(), 0755);
}

std::string read(const fs::path& f) {
  std::ifstream in(f, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Something a shell would run if any of this text ever reached one.
const std::string hostile = "say \"hi\"; touch PWNED1 `touch PWNED2` $(touch PWNED3)\n--exec 'rm -rf ~'";

class ReviseTest : public ::testing::Test {
 protected:
  ReviseTest() {
    fs::create_directories(production);
    original.title = "Before";
    // The fake claude keeps its arguments, working folder and environment, and answers
    // with reply.txt as it stands.
    script(claude, "dir=$(dirname \"$0\")\n"
                   "for a in \"$@\"; do printf '%s\\0' \"$a\"; done > \"$dir/args\"\n"
                   "pwd > \"$dir/cwd\"\nenv > \"$dir/env\"\n"
                   "if [ -f \"$dir/sleep\" ]; then sleep 30; fi\n"
                   "if [ -f \"$dir/fail\" ]; then echo 'Error: not signed in' >&2; echo '---' >&2; exit 3; fi\n"
                   "cat \"$dir/reply.txt\"\n");
    setenv("TAVORIN_SECRET_SWITCH", "1", 1);
    setenv("ANTHROPIC_API_KEY", "sk-not-for-children", 1);
  }
  ~ReviseTest() override {
    unsetenv("TAVORIN_SECRET_SWITCH");
    unsetenv("ANTHROPIC_API_KEY");
  }

  std::optional<std::string> run(const std::string& reply, const std::string& instruction = "make it shorter") {
    test::writeFile(tmp / "bin/reply.txt", reply);
    revise.start(original, production, instruction, [&](const Recording& r) {
      landed = r;
      return std::string("v0002-x.json");
    });
    EXPECT_EQ(revise.phase(), Revise::Phase::thinking);
    EXPECT_TRUE(actor.pumpUntil([&] { return revise.phase() != Revise::Phase::thinking; }));
    return revise.failure();
  }

  test::TempDir tmp;
  fs::path claude = tmp / "bin/claude";
  fs::path production = tmp / "films/halden";
  test::PumpedActor actor;
  Revise revise{actor, claude};
  Recording original{"halden", "Before"};
  std::optional<Recording> landed;
};

}  // namespace

TEST_F(ReviseTest, AReplyOfTheSameProductionLandsEvenWithWordsAroundIt) {
  Recording revised = original;
  revised.title = "After";
  EXPECT_EQ(run("Here you go:\n```json\n" + revised.encoded() + "```\n"), std::nullopt);
  EXPECT_EQ(revise.phase(), Revise::Phase::landed);
  EXPECT_EQ(revise.version(), "v0002-x.json");
  ASSERT_TRUE(landed);
  EXPECT_EQ(landed->title, "After");
  EXPECT_EQ(fs::canonical(read(tmp / "bin/cwd").substr(0, read(tmp / "bin/cwd").size() - 1)),
            fs::canonical(production));
  const std::string env = read(tmp / "bin/env");
  EXPECT_EQ(env.find("TAVORIN_SECRET_SWITCH"), std::string::npos);
  EXPECT_EQ(env.find("ANTHROPIC_API_KEY"), std::string::npos);
  EXPECT_NE(env.find("PATH="), std::string::npos);
}

TEST_F(ReviseTest, TheInstructionReachesClaudeAsOneArgumentAndNeverAShell) {
  run(original.encoded(), hostile);
  const std::string args = read(tmp / "bin/args");
  std::vector<std::string> got;
  for (size_t at = 0, nul; (nul = args.find('\0', at)) != std::string::npos; at = nul + 1)
    got.push_back(args.substr(at, nul - at));
  EXPECT_EQ(got, (std::vector<std::string>{"-p", Revision::prompt(original, hostile), "--output-format", "text"}));
  for (const char* f : {"PWNED1", "PWNED2", "PWNED3"}) {
    EXPECT_FALSE(fs::exists(production / f)) << f;
    EXPECT_FALSE(fs::exists(fs::current_path() / f)) << f;
  }
}

TEST_F(ReviseTest, RepliesThatAreNotThisProductionChangeNothing) {
  Recording other("elsewhere", "Other");
  EXPECT_EQ(run(other.encoded()), "the reply is for 'elsewhere', not 'halden' — nothing was changed");
  EXPECT_EQ(revise.phase(), Revise::Phase::failed);
  EXPECT_EQ(run("I'd rather not."), "the reply wasn't JSON, so nothing was changed");
  EXPECT_EQ(run(R"({"id":"halden","timeline":{}})"), "the reply was JSON but not a recording, so nothing was changed");
  EXPECT_FALSE(landed);
}

TEST_F(ReviseTest, AFailingClaudeIsReportedInItsOwnLastWords) {
  test::writeFile(tmp / "bin/fail", "");
  EXPECT_EQ(run(original.encoded()), "Error: not signed in");
  EXPECT_FALSE(landed);
}

TEST_F(ReviseTest, ASilentClaudeIsStoppedAtTheTimeLimitAndALateReplyIsIgnored) {
  test::writeFile(tmp / "bin/sleep", "");
  test::writeFile(tmp / "bin/reply.txt", original.encoded());
  std::string told;
  revise.onFailure = [&](const std::string& s) { told = s; };
  revise.timeLimit = std::chrono::seconds(90);
  revise.start(original, production, "anything", [&](const Recording& r) {
    landed = r;
    return std::string("v");
  });
  EXPECT_THROW(revise.start(original, production, "again", nullptr), ReviseError);  // one at a time
  actor.fireTimers();
  EXPECT_EQ(revise.phase(), Revise::Phase::failed);
  EXPECT_EQ(told, "claude gave no reply in 90 seconds, so nothing was changed");
  // The stopped child's end still arrives; it must not land anything.
  actor.pumpFor(std::chrono::milliseconds(500));
  EXPECT_FALSE(landed);
}

TEST_F(ReviseTest, RefusalsComeBeforeAnythingRuns) {
  try {
    revise.start(original, production, "  \n ", nullptr);
    ADD_FAILURE();
  } catch (const ReviseError& e) {
    EXPECT_STREQ(e.what(), "say what should change");
  }
  Revise missing(actor, tmp / "nowhere/claude");
  try {
    missing.start(original, production, "x", nullptr);
    ADD_FAILURE();
  } catch (const ReviseError& e) {
    EXPECT_EQ(std::string(e.what()), "claude isn't where Tavorin expects it (" + (tmp / "nowhere/claude").string() + ")");
  }
  EXPECT_EQ(revise.phase(), Revise::Phase::idle);
}

namespace {

class FetchTest : public ::testing::Test {
 protected:
  FetchTest() {
    // Ten seconds of a tone whose pitch says where in the source a stretch came from.
    source = tmp / "source.wav";
    const std::string make = "ffmpeg -v error -y -f lavfi -i sine=frequency=440:duration=10 '" + source.string() + "'";
    EXPECT_EQ(std::system(make.c_str()), 0);
    // The fake yt-dlp keeps its arguments, prints progress as the real one does, and
    // "downloads" the WAV, cut to the section asked for, as the mp3 of the template.
    script(ytdlp, "dir=$(dirname \"$0\")\n"
                  "for a in \"$@\"; do printf '%s\\0' \"$a\"; done > \"$dir/args\"\n"
                  "if [ -f \"$dir/fail\" ]; then echo 'ERROR: [generic] Unsupported URL: nope' >&2; exit 1; fi\n"
                  "out=''; section=''\n"
                  "while [ $# -gt 0 ]; do case \"$1\" in\n"
                  "  -o) out=\"$2\"; shift 2;;\n"
                  "  --download-sections) section=\"$2\"; shift 2;;\n"
                  "  --) shift; break;;\n"
                  "  *) shift;;\n"
                  "esac; done\n"
                  "echo '[download]   0.0% of 160.00KiB'\necho '[download]  50.0% of 160.00KiB'\n"
                  "echo '[download] 100% of 160.00KiB'\n"
                  "from=0; to=10\n"
                  "if [ -n \"$section\" ]; then s=${section#\\*}; a=${s%-*}; b=${s#*-};\n"
                  "  from=$(echo \"$a\" | awk -F: '{print $1*3600+$2*60+$3}');\n"
                  "  if [ -n \"$b\" ]; then to=$(echo \"$b\" | awk -F: '{print $1*3600+$2*60+$3}'); fi; fi\n"
                  "file=$(printf '%s' \"$out\" | sed 's/%(ext)s$/mp3/')\n"
                  "exec ffmpeg -v error -y -ss \"$from\" -to \"$to\" -i \"" + source.string() +
                  "\" -c:a libmp3lame \"$file\"\n");
  }

  std::vector<std::string> args() {
    const std::string all = read(tmp / "bin/args");
    std::vector<std::string> got;
    for (size_t at = 0, nul; (nul = all.find('\0', at)) != std::string::npos; at = nul + 1)
      got.push_back(all.substr(at, nul - at));
    return got;
  }

  test::TempDir tmp;
  fs::path source;
  fs::path ytdlp = tmp / "bin/yt-dlp";
  fs::path music = tmp / "films/halden/music";
  test::PumpedActor actor;
  Fetch fetch{actor, ytdlp};
  std::optional<fs::path> landed;
};

double seconds(const fs::path& file) {
  const std::string command =
      "ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 '" + file.string() + "'";
  std::string out;
  if (FILE* p = popen(command.c_str(), "r")) {
    char buffer[256];
    while (fgets(buffer, sizeof buffer, p)) out += buffer;
    pclose(p);
  }
  return std::atof(out.c_str());
}

}  // namespace

TEST_F(FetchTest, TheSliceAskedForLandsAsAnMp3InTheMusicFolder) {
  std::vector<double> seen;
  fetch.start("https://www.youtube.com/watch?v=abc", music, 2.0, 6.0, [&](const fs::path& f) { landed = f; });
  ASSERT_TRUE(actor.pumpUntil([&] {
    seen.push_back(fetch.progress());
    return fetch.phase() != Fetch::Phase::fetching;
  }));
  ASSERT_EQ(fetch.phase(), Fetch::Phase::done) << fetch.failure().value_or("");
  ASSERT_TRUE(landed);
  EXPECT_EQ(landed->parent_path(), music);
  EXPECT_EQ(landed->extension(), ".mp3");
  EXPECT_NEAR(seconds(*landed), 4.0, 0.1);
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  EXPECT_EQ(fetch.progress(), 1.0);
  const auto a = args();
  ASSERT_GE(a.size(), 4u);
  EXPECT_EQ(a[a.size() - 4], "*0:00:02-0:00:06");
  EXPECT_EQ(a[a.size() - 2], "--");
  EXPECT_EQ(a.back(), "https://www.youtube.com/watch?v=abc");
}

TEST_F(FetchTest, AURLFullOfShellAndOptionsIsOnlyEverTheLastArgument) {
  const std::string url = "http://x/$(touch PWNED1)`touch PWNED2`;touch PWNED3 --exec 'rm -rf ~'\n-o /tmp/x";
  fetch.start(url, music, std::nullopt, std::nullopt, [&](const fs::path& f) { landed = f; });
  ASSERT_TRUE(actor.pumpUntil([&] { return fetch.phase() != Fetch::Phase::fetching; }));
  const auto a = args();
  EXPECT_EQ(a.back(), url);
  EXPECT_EQ(a[a.size() - 2], "--");
  EXPECT_EQ(std::count(a.begin(), a.end(), "-o"), 1);
  for (const char* f : {"PWNED1", "PWNED2", "PWNED3"}) EXPECT_FALSE(fs::exists(fs::current_path() / f)) << f;
  EXPECT_THROW(fetch.start("--exec=id", music, {}, {}, nullptr), FetchError);
}

TEST_F(FetchTest, AFailedFetchSaysWhatYtDlpSaidAndLandsNothing) {
  test::writeFile(tmp / "bin/fail", "");
  std::string told;
  fetch.onFailure = [&](const std::string& s) { told = s; };
  fetch.start("https://nope.example/", music, {}, {}, [&](const fs::path& f) { landed = f; });
  ASSERT_TRUE(actor.pumpUntil([&] { return fetch.phase() != Fetch::Phase::fetching; }));
  EXPECT_EQ(fetch.phase(), Fetch::Phase::failed);
  EXPECT_EQ(told, "yt-dlp couldn't fetch that: ERROR: [generic] Unsupported URL: nope");
  EXPECT_FALSE(landed);
}

TEST_F(FetchTest, OneAtATimeAndACancelLandsNothing) {
  fetch.start("https://www.youtube.com/watch?v=abc", music, {}, {}, [&](const fs::path& f) { landed = f; });
  try {
    fetch.start("https://www.youtube.com/watch?v=def", music, {}, {}, nullptr);
    ADD_FAILURE();
  } catch (const FetchError& e) {
    EXPECT_STREQ(e.what(), "a fetch is already running");
  }
  fetch.cancel();
  EXPECT_EQ(fetch.phase(), Fetch::Phase::idle);
  actor.pumpFor(std::chrono::milliseconds(500));
  EXPECT_EQ(fetch.phase(), Fetch::Phase::idle);
  EXPECT_FALSE(landed);
  Fetch missing(actor, tmp / "nowhere/yt-dlp");
  EXPECT_THROW(missing.start("https://a", music, {}, {}, nullptr), FetchError);
}
