// The studio's dealings with the outside through tavorinctl: claude revising, yt-dlp
// fetching, and the YouTube sign-in and upload against a fake Google, with the test
// playing the browser.
#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "../app/publish/FakeGoogle.hpp"
#include "Loopback.hpp"
#include "StudioFixture.hpp"

using namespace tavorin;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
using test::browse;
using test::queryItem;

namespace {

void script(const fs::path& file, const std::string& body) {
  fs::create_directories(file.parent_path());
  test::writeFile(file, body);
  ::chmod(file.c_str(), 0755);
}

class OutsideEndToEnd : public test::StudioFixture {
 protected:
  fs::path localBin() { return dir / "home/.local/bin"; }

  // Polls a status verb until its `key` leaves `busy`; the final report.
  JSONValue settle(const std::string& verb, const std::string& key, const std::string& busy) {
    JSONValue report;
    for (int i = 0; i < 200; ++i) {
      report = ok({verb});
      if (str(report, key.c_str()) != busy) break;
      std::this_thread::sleep_for(50ms);
    }
    return report;
  }
};

}  // namespace

TEST_F(OutsideEndToEnd, ClaudeRevisesIntoANewVersionAndTheHeadStaysPut) {
  // The fake claude reads the production out of its prompt and retitles it.
  script(localBin() / "claude",
         "#!/usr/bin/python3\n"
         "import json, sys\n"
         "prompt = sys.argv[sys.argv.index('-p') + 1]\n"
         "body = prompt.split('as JSON:\\n\\n', 1)[1].split('\\n\\nThe change asked for is:', 1)[0]\n"
         "rec = json.loads(body)\n"
         "rec['title'] = 'Revised: ' + prompt.split('The change asked for is:\\n\\n', 1)[1].split('\\n\\nReply', 1)[0]\n"
         "print('Here it is:')\nprint(json.dumps(rec, indent=2))\n");
  startStudio();
  ok({"project.create", "name=Films"});
  ok({"recording.new", "title=Tour"});
  ok({"save"});
  const std::string head = str(ok({"versions"}), "head");
  const size_t before = ok({"versions"})["versions"]->arrayValue()->size();

  const JSONValue started = ok({"revise", "instruction=make it \"snappier\" $(date)"});
  EXPECT_EQ(str(started, "phase"), "thinking");
  const JSONValue status = settle("revise.status", "phase", "thinking");
  ASSERT_EQ(str(status, "phase"), "landed") << str(status, "failure");

  const JSONValue versions = ok({"versions"});
  EXPECT_EQ(str(versions, "head"), head);
  ASSERT_EQ(versions["versions"]->arrayValue()->size(), before + 1);
  const std::string landed = str(status, "version");
  EXPECT_NE(landed, head);
  bool listed = false;
  for (const auto& v : *versions["versions"]->arrayValue()) listed |= str(v, "name") == landed;
  EXPECT_TRUE(listed);
  EXPECT_EQ(str(ok({"status"})["production"] ? *ok({"status"})["production"] : JSONValue(), "title"), "Tour");

  // A reply for another production changes nothing and says why.
  script(localBin() / "claude",
         "#!/usr/bin/python3\n"
         "import json, sys\n"
         "prompt = sys.argv[2]\n"
         "rec = json.loads(prompt.split('as JSON:\\n\\n', 1)[1].split('\\n\\nThe change asked for is:', 1)[0])\n"
         "rec['id'] = 'someone-else'\n"
         "print(json.dumps(rec))\n");
  ok({"revise", "instruction=again"});
  const JSONValue refused = settle("revise.status", "phase", "thinking");
  EXPECT_EQ(str(refused, "phase"), "failed");
  EXPECT_NE(str(refused, "failure").find("the reply is for 'someone-else'"), std::string::npos);
  EXPECT_EQ(ok({"versions"})["versions"]->arrayValue()->size(), before + 1);
}

TEST_F(OutsideEndToEnd, AFetchedSliceLandsAsABedWhereItWasAskedFor) {
  const fs::path source = dir / "source.wav";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i sine=frequency=330:duration=8 '" + source.string() + "'").c_str()), 0);
  script(localBin() / "yt-dlp",
         "#!/bin/sh\nout=''; section=''\n"
         "while [ $# -gt 0 ]; do case \"$1\" in -o) out=\"$2\"; shift 2;; --download-sections) section=\"$2\"; shift 2;;"
         " --) shift; break;; *) shift;; esac; done\n"
         "echo '[download]  25.0% of 100KiB'\necho '[download] 100% of 100KiB'\n"
         "to=8; [ \"$section\" = '*0:00:01-0:00:04' ] && to=4\n"
         "exec ffmpeg -v error -y -ss 1 -to \"$to\" -i '" + source.string() + "' -c:a libmp3lame \"${out%.%(ext)s}.mp3\"\n");
  startStudio();
  ok({"project.create", "name=Films"});
  ok({"recording.new", "title=Fetched"});
  const JSONValue started = ok({"music.fetch", "url=https://www.youtube.com/watch?v=x", "start=1", "end=4", "at=2"});
  EXPECT_EQ(str(started, "phase"), "fetching");
  const JSONValue status = settle("music.fetch.status", "phase", "fetching");
  ASSERT_EQ(str(status, "phase"), "done") << str(status, "failure");
  EXPECT_EQ(str(status, "bed"), "m1");

  const JSONValue beds = ok({"music.list"});
  ASSERT_EQ(beds["beds"]->arrayValue()->size(), 1u);
  const JSONValue& bed = beds["beds"]->arrayValue()->at(0);
  EXPECT_EQ(*bed["start"]->doubleValue(), 2);
  EXPECT_NEAR(*bed["duration"]->doubleValue(), 3, 0.1);
  EXPECT_EQ(str(bed, "source"), "https://www.youtube.com/watch?v=x");
  EXPECT_EQ(str(bed, "file").rfind("music/", 0), 0u);

  EXPECT_EQ(ctl({"music.fetch", "url=file:///etc/passwd"}).rc, 1);
}

TEST_F(OutsideEndToEnd, SignInThroughTheLoopbackRedirectThenUpload) {
  test::FakeGoogle google;
  // The "browser" only writes down the page it was asked to show; the test opens it.
  const fs::path opened = dir / "opened-url";
  script(dir / "browser", "#!/bin/sh\nprintf '%s' \"$1\" > '" + opened.string() + ".part' && mv '" + opened.string() +
                              ".part' '" + opened.string() + "'\n");
  startStudio({"TAVORIN_GOOGLE=" + google.url(), "TAVORIN_BROWSER=" + (dir / "browser").string()});

  const JSONValue bare = ok({"youtube"});
  EXPECT_EQ(bare["connected"]->boolValue(), false);
  EXPECT_EQ(str(bare, "status"), "Missing YouTube OAuth client file.");
  EXPECT_EQ(ctl({"youtube.connect"}).rc, 1);

  test::writeFile(dir / "support/youtube-client.json", R"({"installed":{"client_id":")" + google.clientId +
                                                          R"(","client_secret":")" + google.clientSecret + R"("}})");
  EXPECT_EQ(str(ok({"youtube.connect"}), "state"), "connecting");
  ASSERT_TRUE(test::waitForFile(opened, 10s));
  const std::string url = test::readFile(opened);
  ASSERT_EQ(url.rfind(google.url() + "/o/oauth2/v2/auth?client_id=", 0), 0u) << url;
  const std::string redirect = queryItem(url, "redirect_uri");
  const std::string state = queryItem(url, "state");

  // A request that is not the studio's own is turned away and the listener keeps waiting.
  EXPECT_NE(browse(redirect + "/?code=stolen&state=guess").find("did not ask"), std::string::npos);
  EXPECT_EQ(str(ok({"youtube"}), "state"), "connecting");
  EXPECT_EQ(browse(redirect + "/?code=" + google.code + "&state=" + state + "&scope=x"),
            "Tavorin is connected. You can close this tab.");
  EXPECT_EQ(browse(redirect + "/?code=again&state=" + state), "");  // nobody listens any more

  const JSONValue account = settle("youtube", "state", "connecting");
  ASSERT_EQ(str(account, "state"), "connected") << str(account, "failure") << test::readFile(app.err);
  EXPECT_EQ(str(account, "status"), "Connected as Halden Films");
  struct stat st {};
  ASSERT_EQ(::stat((dir / "support/youtube.json").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  // Neither the code nor a token ever reaches the event feed.
  const std::string feed = ok({"events"}).encode();
  EXPECT_EQ(feed.find(google.code), std::string::npos);
  EXPECT_EQ(feed.find("ya29."), std::string::npos);
  EXPECT_NE(feed.find("connected to YouTube as Halden Films"), std::string::npos);

  // An upload of a real film, private unless said otherwise.
  const fs::path film = dir / "film.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc2=size=160x120:rate=10 -t 1 -pix_fmt yuv420p '" +
                         film.string() + "'").c_str()), 0);
  ok({"project.create", "name=Films"});
  ok({"recording.new", "title=Upload me"});
  EXPECT_EQ(ctl({"publish.youtube", "file=" + film.string(), "title=a <b>"}).rc, 1);
  const JSONValue started = ok({"publish.youtube", "file=" + film.string(), "tags=demo, tour"});
  EXPECT_EQ(str(started, "state"), "uploading");
  const JSONValue done = settle("publish.status", "state", "uploading");
  ASSERT_EQ(str(done, "state"), "done") << str(done, "failure");
  EXPECT_EQ(str(done, "url"), "https://www.youtube.com/watch?v=vid-42");
  EXPECT_EQ(google.metadata["status"]["privacyStatus"], "private");
  EXPECT_EQ(google.metadata["snippet"]["title"], "Upload me");
  EXPECT_EQ(google.metadata["snippet"]["tags"], nlohmann::json::array({"demo", "tour"}));

  EXPECT_EQ(ctl({"youtube.privacy", "privacy=secret"}).rc, 1);
  EXPECT_EQ(str(ok({"youtube.privacy", "privacy=unlisted"}), "privacy"), "unlisted");
  EXPECT_EQ(str(ok({"publish.status"}), "privacy"), "unlisted");

  // Disconnecting moves the token aside, once.
  const JSONValue parted = ok({"youtube.disconnect"});
  EXPECT_NE(str(parted, "moved").find("youtube.json.off-"), std::string::npos);
  EXPECT_TRUE(fs::exists(str(parted, "moved")));
  EXPECT_EQ(str(parted, "state"), "away");
  EXPECT_EQ(ctl({"youtube.disconnect"}).rc, 1);
}
