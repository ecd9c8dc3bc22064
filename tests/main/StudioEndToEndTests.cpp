// Drives a running studio only through tavorinctl, as a person or an agent would.
#include <gtest/gtest.h>
#include <signal.h>

#include "Loopback.hpp"
#include "Processes.hpp"
#include "TestSupport.hpp"
#include "main/StudioFixture.hpp"
#include "../platform/Wav.hpp"
#include "voice/SpeechServerProcess.hpp"
#include "operator/JSONValue.hpp"
#include "operator/OperatorControlFile.hpp"
#include "operator/OperatorWire.hpp"

#include <sstream>
#include <thread>

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

using test::Reply;

class StudioEndToEnd : public test::StudioFixture {
 protected:
  void SetUp() override { startStudio(); }
};

}  // namespace

TEST_F(StudioEndToEnd, AProductionsLifeThroughTavorinctl) {
  // A project, a blank recording and one from a sentence.
  EXPECT_EQ(str(ok({"project.create", "name=Launch Films"}), "project"), "Launch Films");
  EXPECT_EQ(str(ok({"recording.new", "title=Intro"}), "slug"), "intro");
  const JSONValue seeded = ok({"recording.new", "prompt=A two minute tour of the export sheet"});
  const std::string slug = str(seeded, "slug");
  EXPECT_NE(str(seeded, "handoff").find("The request was:\nA two minute tour of the export sheet"), std::string::npos);
  EXPECT_EQ(str(ok({"origin"}), "prompt"), "A two minute tour of the export sheet");

  // Edits, undo and redo.
  ok({"edit", "id=production", "field=title", "value=Export tour"});
  EXPECT_EQ(str(ok({"label.add", "at=1.5", "text=Hello"}), "id"), "g1");
  ok({"edit", "id=g1", "field=text", "value=Welcome"});
  ok({"undo"});
  const JSONValue g1 = ok({"hover", "id=g1"});
  EXPECT_EQ(str(g1, "text"), "Hello");
  ok({"redo"});
  EXPECT_EQ(str(ok({"hover", "id=g1"}), "text"), "Welcome");

  // Two saves and their difference.
  EXPECT_EQ(str(ok({"save"}), "version"), "v0002");
  ok({"label.add", "at=4", "text=Second chapter"});
  EXPECT_EQ(str(ok({"save"}), "version"), "v0003");
  const JSONValue diff = ok({"diff"});
  EXPECT_EQ(str(diff, "from"), "v0002");
  EXPECT_EQ(str(diff, "to"), "v0003");
  EXPECT_NE(str(diff, "summary").find("added"), std::string::npos) << str(diff, "summary");
  EXPECT_FALSE(ok({"diff.raw"})["lines"]->arrayValue()->empty());

  // The older one, read-only; then made head.
  ok({"version.open", "name=v0002"});
  const Reply refused = ctl({"edit", "id=production", "field=title", "value=Nope"});
  EXPECT_EQ(refused.rc, 1);
  EXPECT_EQ(refused.err, "viewing an older version — set it as head to edit\n");
  ok({"version.head", "name=v0002"});
  EXPECT_EQ(ok({"status"})["production"]->operator[]("readOnly")->boolValue(), false);
  ok({"edit", "id=production", "field=description", "value=Built on v0002"});

  // Trash and restore a recording that is not open.
  const std::string entry = str(ok({"recording.trash", "slug=intro"}), "entry");
  EXPECT_EQ(ok({"recording.trashed"})["trashed"]->arrayValue()->size(), 1u);
  EXPECT_EQ(str(ok({"recording.restore", "entry=" + entry}), "slug"), "intro");

  // A folder of each kind dropped on the studio.
  const fs::path root = dir / "root";
  const fs::path project = root / "Launch Films";
  const fs::path production = project / "recordings" / slug;
  fs::create_directories(dir / "plain");
  test::writeFile(dir / "voice.wav", "RIFF\x24\0\0\0WAVEfmt ");
  struct Drop {
    fs::path path;
    std::string kind;
    bool accepted;
  };
  for (const Drop& d : {Drop{production, "production", true}, Drop{project, "project", true}, Drop{root, "root", true},
                        Drop{dir / "plain", "unknown", false}, Drop{dir / "voice.wav", "audio", false}}) {
    const JSONValue landing = ok({"drop", "path=" + d.path.string()});
    EXPECT_EQ(str(landing, "kind"), d.kind) << d.path;
    EXPECT_EQ(landing["accepted"]->boolValue(), d.accepted) << d.path;
    EXPECT_EQ(str(landing, "refusal").empty(), d.accepted) << d.path;
  }

  // The studio ends cleanly, its production saved on disk.
  ok({"quit"});
  EXPECT_EQ(test::waitFor(app.pid, 5s), 0);
  EXPECT_TRUE(fs::exists(production / "versions"));
}

TEST_F(StudioEndToEnd, QuitAnswersAndThenTheConnectionEnds) {
  const auto control = OperatorControlFile::read(dir / "data/Tavorin/operator.json");
  test::LineClient client(control.port);
  client.write(OperatorWire::encodeLine(OperatorRequest{control.token, OperatorCommand{"quit", {}}}));
  EXPECT_EQ(client.line(), "{\"data\":{\"quitting\":true},\"ok\":true}\n");
  EXPECT_TRUE(client.closedByPeer());  // the connection ended after the answer
  EXPECT_EQ(test::waitFor(app.pid, 5s), 0);
}

TEST_F(StudioEndToEnd, TheDemoStageScriptThroughTavorinctl) {
  // A first launch seeded the demo; open it.
  openDemo();
  const fs::path stage = dir / "root/demo/recordings/halden-demo/blocking.stage";
  const std::string original = test::readFile(stage);
  EXPECT_EQ(str(ok({"blocking"}), "text"), original);

  // A script with an unknown step and an anchor to a line that isn't there.
  const JSONValue set = ok({"blocking.set", "text=open \"https://halden.example\"\nwith l99:\n    click 1 2\nfrobnicate 3\n"});
  std::vector<std::string> warnings;
  for (const auto& w : *set["warnings"]->arrayValue()) warnings.push_back(*w["message"]->stringValue());
  EXPECT_EQ(warnings, (std::vector<std::string>{
                          "No line l99 in this production — this step has nothing to hang off, so it will run in "
                          "sequence instead.",
                          "Not a step this grammar knows, so it will be skipped. The steps are listed in "
                          "docs/stage-script.md."}));
  ok({"undo"});
  EXPECT_EQ(str(ok({"blocking"}), "text"), original);

  // Move the cue that clicks Add; only its block's offset changes on disk.
  int id = 0;
  double time = 0;
  const JSONValue cues = ok({"blocking.cues"});
  for (const auto& cue : *cues["cues"]->arrayValue())
    if (cue["raw"]->stringValue()->rfind("click 1736 88", 0) == 0) {
      id = static_cast<int>(*cue["id"]->intValue());
      time = *cue["time"]->doubleValue();
    }
  ASSERT_GT(id, 0);
  char to[32];
  std::snprintf(to, sizeof to, "%.2f", time + 0.5);
  ok({"cue.move", "id=" + std::to_string(id), std::string("to=") + to});
  ok({"blocking.save"});
  const std::string moved = test::readFile(stage);
  std::istringstream a(original), b(moved);
  std::string la, lb;
  int differing = 0;
  while (std::getline(a, la) && std::getline(b, lb)) {
    if (la == lb) continue;
    ++differing;
    EXPECT_EQ(la, "    with l3 offset 1.2:");
    EXPECT_EQ(lb, "    with l3 offset 1.7:");
  }
  EXPECT_EQ(differing, 1);
  EXPECT_EQ(original.size(), moved.size());

  // And undo puts the script back.
  ok({"undo"});
  EXPECT_EQ(str(ok({"blocking"}), "text"), original);
}

TEST_F(StudioEndToEnd, ABedPlaysUnderTheTransport) {
  ok({"project.create", "name=Tunes"});
  ok({"recording.new", "title=Bed"});
  test::writeLevel(dir / "theme.wav", 3, 0.5f, 8000);
  const JSONValue bed = ok({"music.add", "file=" + (dir / "theme.wav").string(), "at=2"});
  EXPECT_EQ(str(bed, "id"), "m1");
  EXPECT_EQ(str(bed, "file"), "music/theme.wav");
  EXPECT_EQ(ok({"music.gain", "id=m1", "db=-9"})["gain"]->doubleValue().value_or(0), -9);
  EXPECT_EQ(ok({"music.gain", "id=m1", "db=40"})["gain"]->doubleValue().value_or(0), 6);

  // The transport's playhead moves with the output's clock.
  ok({"play"});
  double playhead = 0;
  for (int i = 0; i < 100 && playhead <= 0.2; ++i) {
    std::this_thread::sleep_for(50ms);
    playhead = *ok({"transport"})["playhead"]->doubleValue();
  }
  EXPECT_GT(playhead, 0.2);
  const JSONValue paused = ok({"pause"});
  EXPECT_EQ(str(paused, "state"), "paused");
  const double held = *paused["playhead"]->doubleValue();
  std::this_thread::sleep_for(60ms);
  EXPECT_EQ(*ok({"transport"})["playhead"]->doubleValue(), held);
  EXPECT_EQ(*ok({"seek", "to=1"})["playhead"]->doubleValue(), 1);
  EXPECT_EQ(*ok({"seek", "to=-4"})["playhead"]->doubleValue(), 0);

  const JSONValue peaks = ok({"peaks", "id=m1"});
  const auto* values = peaks["peaks"]->arrayValue();
  ASSERT_TRUE(values && !values->empty());
  for (const auto& v : *values) EXPECT_NEAR(*v.doubleValue(), 0.5, 1e-3);

  EXPECT_EQ(ctl({"music.add", "file=" + (dir / "nothing.wav").string()}).rc, 1);
  EXPECT_EQ(str(ok({"fonts"})["faces"]->arrayValue()->at(0), "family"), "Archivo");
  const auto fonts = ok({"subtitles.fonts"});
  EXPECT_EQ(*fonts["fonts"]->arrayValue()->at(0).stringValue(), "Archivo");
}

TEST_F(StudioEndToEnd, TheVoiceThroughTavorinctl) {
  test::SpeechServerProcess speech;
  openDemo();

  // Point the local engine at tavorin-speech and cast the production with it.
  EXPECT_EQ(ctl({"voice.local.set", "url=ftp://x"}).rc, 1);
  const JSONValue local = ok({"voice.local.set", "url=127.0.0.1:" + std::to_string(speech.port()) + "/v1/"});
  EXPECT_EQ(str(local, "url"), speech.url());
  ok({"edit", "id=production", "field=driver", "value=local"});
  const JSONValue checked = ok({"voice.check"});
  EXPECT_EQ(str(checked, "driver"), "local");
  EXPECT_EQ(str(*checked["health"], "source"), speech.url());
  EXPECT_EQ(str(checked, "says"), "local ready.");
  EXPECT_EQ(str((*checked["cast"]->arrayValue())[0], "id"), "espeak-ng");

  // A line's audio from a file of the user's own.
  const fs::path tone = dir / "tone.wav";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i sine=duration=2.5 -ar 22050 -ac 1 " + tone.string()).c_str()), 0);
  auto lineCount = [&] {
    const JSONValue status = ok({"status"});
    return *(*status["production"])["lines"]->intValue();
  };
  const auto count = lineCount();
  ASSERT_GE(count, 2);
  const std::string first = "l1", second = "l2";  // the demo's first two lines
  const JSONValue audio = ok({"line.audio", "id=" + first, "path=" + tone.string()});
  EXPECT_EQ(*audio["duration"]->doubleValue(), 2.5);
  EXPECT_TRUE(fs::exists(dir / "root/demo/recordings/halden-demo" / str(audio, "audio")));

  // The groups under the default span: one a line.
  const JSONValue groups = ok({"voice.groups"});
  EXPECT_EQ(str(groups, "span"), "line");
  EXPECT_EQ(static_cast<long long>(groups["groups"]->arrayValue()->size()), count);

  // A merge, undone.
  const JSONValue merged = ok({"lines.merge", "ids=" + first + "," + second});
  EXPECT_EQ(str(merged, "kept"), first);
  EXPECT_EQ(lineCount(), count - 1);
  ok({"undo"});
  EXPECT_EQ(lineCount(), count);
  EXPECT_EQ(ctl({"lines.merge", "ids=" + first}).rc, 1);
}

TEST_F(StudioEndToEnd, AFilmIsExportedThroughTavorinctl) {
  ok({"project.create", "name=Films"});
  const std::string slug = str(ok({"recording.new", "title=Tour"}), "slug");
  const fs::path production = dir / "root/Films/recordings" / slug;
  // A film made here comes in as a take, as one dropped on the window would.
  const fs::path film = dir / "tour film.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc=size=320x240:rate=25 -f lavfi -i sine=frequency=300 "
                         "-t 3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest '" +
                         film.string() + "'").c_str()),
            0);
  ok({"import", "path=" + film.string()});
  ASSERT_EQ(ok({"take.list"})["takes"]->arrayValue()->size(), 1u);

  EXPECT_EQ(str(ok({"look", "on=1", "preset=dusk"}), "preset"), "dusk");
  EXPECT_EQ(str(ok({"export"}), "phase"), "running");
  std::string phase = "running";
  for (int i = 0; i < 600 && phase == "running"; ++i) {
    std::this_thread::sleep_for(50ms);
    phase = str(ok({"export.status"}), "phase");
  }
  ASSERT_EQ(phase, "done") << ok({"export.status"}).encode();

  const JSONValue films = ok({"exports"});
  ASSERT_EQ(films["films"]->arrayValue()->size(), 1u);
  const std::string path = str(films["films"]->arrayValue()->at(0), "path");
  EXPECT_EQ(path, (production / "export" / (slug + ".mp4")).string());
  std::string probed;
  if (FILE* p = popen(("ffprobe -v error -show_entries format=duration -of csv=p=0 '" + path + "'").c_str(), "r")) {
    char buffer[256];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, p)) > 0;) probed.append(buffer, n);
    EXPECT_EQ(pclose(p), 0);
  }
  EXPECT_NEAR(std::atof(probed.c_str()), 3, 0.1);
}
