#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/use_future.hpp>

#include "ServiceRig.hpp"
#include "TestSupport.hpp"
#include "app/model/AppStore.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/Scope.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/TakesStore.hpp"
#include "platform/FreedesktopTrash.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace tavorin {
void PrintTo(const JSONValue& v, std::ostream* os);
}  // namespace tavorin

namespace {

bool haveFfmpeg() { return std::system("command -v ffmpeg >/dev/null 2>&1") == 0; }

// Made once for the suite: a 3-second 320x240 picture at 30 fps with a sine tone, and a
// second of tone alone.
struct Media {
  test::TempDir dir;
  fs::path film = dir / "demo film.mp4";
  fs::path other = dir / "other.mp4";
  fs::path tone = dir / "tone.wav";
  bool made = false;
  Media() {
    if (!haveFfmpeg()) return;
    const std::string quiet = "ffmpeg -nostdin -hide_banner -loglevel error -y ";
    made = std::system((quiet + "-f lavfi -i testsrc=size=320x240:rate=30:duration=3 -f lavfi -i "
                                "sine=frequency=440:duration=3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p "
                                "-c:a aac -shortest '" + film.string() + "'").c_str()) == 0 &&
           std::system((quiet + "-f lavfi -i testsrc=size=320x240:rate=30:duration=2 -c:v libx264 -preset "
                                "ultrafast -pix_fmt yuv420p '" + other.string() + "'").c_str()) == 0 &&
           std::system((quiet + "-f lavfi -i sine=frequency=220:duration=1 '" + tone.string() + "'").c_str()) == 0;
  }
};

Media& media() {
  static Media m;
  return m;
}

double num(const JSONValue& v, std::string_view key) { return v[key] ? v[key]->doubleValue().value_or(-1) : -1; }
std::string str(const JSONValue& v, std::string_view key) {
  return v[key] ? v[key]->stringValue().value_or("(not text)") : "(missing)";
}
const JSONValue::Array& list(const JSONValue& v, std::string_view key) {
  static const JSONValue::Array none;
  return v[key] && v[key]->arrayValue() ? *v[key]->arrayValue() : none;
}

class TakesServiceTest : public test::ServiceRig {
 protected:
  void openBlank() { openSample(); }
  // A production with the suite's film imported and on the monitor, and two lines.
  void openWithFilm() {
    if (!media().made) GTEST_SKIP() << "ffmpeg is not installed (Debian package ffmpeg)";
    openSample(2);
    take = str(data("import", {{"path", media().film.string()}}), "id");
  }
  std::vector<std::string> segmentIds() {
    std::vector<std::string> ids;
    const JSONValue cut = data("segment.list");
    for (const auto& s : list(cut, "segments")) ids.push_back(str(s, "id"));
    return ids;
  }

  std::string take;
};

TEST_F(TakesServiceTest, ImportCopiesTheFilmIntoATakeOfItsOwnAndPutsItOnTheMonitor) {
  openWithFilm();
  const JSONValue takes = data("take.list");
  ASSERT_EQ(list(takes, "takes").size(), 1u);
  const JSONValue& t = list(takes, "takes")[0];
  EXPECT_EQ(str(t, "id"), take);
  EXPECT_NE(take.find("demo-film"), std::string::npos) << take;
  EXPECT_EQ(str(t, "source"), "imported");
  EXPECT_EQ(str(t, "status"), "complete");
  EXPECT_EQ(*t["film"], JSONValue(true));
  EXPECT_EQ(*t["onMonitor"], JSONValue(true));
  EXPECT_NEAR(num(t, "length"), 3, 0.05);
  EXPECT_EQ(str(takes, "monitor"), take);
  // A copy, never a move: the source stays where it was.
  EXPECT_TRUE(fs::exists(media().film));
  const fs::path copy = *model.baseDir() / "takes" / take / "take.mp4";
  EXPECT_EQ(fs::file_size(copy), fs::file_size(media().film));
  const JSONValue record = JSONValue::decode(test::readFile(copy.parent_path() / "take.json"));
  EXPECT_EQ(str(record, "provenance"), "imported");

  const JSONValue viewer = data("viewer.info");
  EXPECT_EQ(str(viewer, "state"), "take");
  EXPECT_EQ(str(viewer, "film"), copy.string());
  EXPECT_EQ(str(data("status")["viewer"] ? *data("status")["viewer"] : JSONValue(), "take"), take);

  const JSONValue cut = data("segment.list");
  ASSERT_EQ(list(cut, "segments").size(), 1u);
  EXPECT_NEAR(num(list(cut, "segments")[0], "to"), 3, 0.05);
  EXPECT_EQ(*cut["cut"], JSONValue(false));
}

TEST_F(TakesServiceTest, ImportRoutesBySortAndRefusesWhatItCannotUse) {
  if (!media().made) GTEST_SKIP() << "ffmpeg is not installed (Debian package ffmpeg)";
  EXPECT_EQ(error("import", {{"path", media().film.string()}}), "no production is open");
  openBlank();
  EXPECT_EQ(error("import", {{"path", (tmp / "gone.mp4").string()}}), "no file at " + (tmp / "gone.mp4").string());
  test::writeFile(tmp / "notes.txt", "not a film");
  EXPECT_EQ(error("import", {{"path", (tmp / "notes.txt").string()}}),
            "notes.txt is not a film, a sound or a picture, so there is nothing to import it as");
  // A text file wearing a film's name is refused after the probe, and leaves no take behind.
  test::writeFile(tmp / "fake.mov", "plain words, not a film");
  EXPECT_EQ(error("import", {{"path", (tmp / "fake.mov").string()}}),
            "fake.mov holds no picture that can be read, so it was not imported");
  EXPECT_TRUE(list(data("take.list"), "takes").empty());
  EXPECT_FALSE(fs::exists(*model.baseDir() / "takes") && !fs::is_empty(*model.baseDir() / "takes"));

  // A sound becomes a bed where it was asked to land.
  const JSONValue bed = data("import", {{"path", media().tone.string()}, {"at", "4"}});
  EXPECT_EQ(str(bed, "kind"), "audio");
  EXPECT_NEAR(num(bed, "start"), 4, 0.001);
  EXPECT_NEAR(num(bed, "length"), 1, 0.05);
  EXPECT_EQ(list(data("music.list"), "beds").size(), 1u);

  // Two imports of one film within a second get distinct takes.
  const std::string first = str(data("import", {{"path", media().film.string()}}), "id");
  const std::string second = str(data("import", {{"path", media().film.string()}}), "id");
  EXPECT_NE(first, second);
  EXPECT_EQ(list(data("take.list"), "takes").size(), 2u);
}

TEST_F(TakesServiceTest, TheMonitorEmptiesComesBackAndReportsAMissingFilm) {
  openWithFilm();
  const JSONValue removed = data("take.remove");
  EXPECT_EQ(str(removed, "removed"), take);
  EXPECT_TRUE(removed["monitor"]->isNull());
  EXPECT_EQ(str(data("viewer.info"), "state"), "empty");
  EXPECT_EQ(error("take.remove"), "nothing is on the program monitor");
  // Nothing was deleted, and with the monitor empty there is nothing to cut.
  EXPECT_EQ(list(data("take.list"), "takes").size(), 1u);
  EXPECT_EQ(error("segment.split", {{"at", "1"}}), "there is no footage to cut. Roll a take, or import one with ⌘I");

  EXPECT_EQ(str(data("take.select", {{"id", take}}), "monitor"), take);
  EXPECT_EQ(error("take.select", {{"id", "nope"}}), "no take 'nope' in this production");
  fs::remove(*model.baseDir() / "takes" / take / "take.mp4");
  EXPECT_EQ(str(data("viewer.info"), "state"), "missing");
  EXPECT_EQ(*list(data("take.list"), "takes")[0]["film"], JSONValue(false));
}

TEST_F(TakesServiceTest, ReplaceBringsANewTakeTheCutFollowsAndKeepsTheOld) {
  openWithFilm();
  const JSONValue replaced = data("take.replace", {{"path", media().other.string()}});
  EXPECT_EQ(str(replaced, "replaced"), take);
  const std::string fresh = str(replaced, "id");
  EXPECT_NE(fresh, take);
  EXPECT_TRUE(fs::exists(*model.baseDir() / "takes" / take / "take.mp4"));
  const JSONValue cut = data("segment.list");
  EXPECT_EQ(str(cut, "take"), fresh);
  EXPECT_NEAR(num(cut, "footage"), 2, 0.05);
  EXPECT_NEAR(num(list(cut, "segments")[0], "to"), 2, 0.05);
  EXPECT_EQ(error("take.replace", {{"path", media().tone.string()}}),
            "tone.wav is not a film, so it cannot stand in for a take");
}

TEST_F(TakesServiceTest, RevealHandsTheFolderToTheFileManagerOrSaysWhyNot) {
  openWithFilm();
  const fs::path bin = tmp / "bin";
  fs::create_directories(bin);
  test::writeFile(bin / "xdg-open", "#!/bin/sh\nprintf '%s' \"$1\" > \"" + (tmp / "opened").string() + "\"\n");
  fs::permissions(bin / "xdg-open", fs::perms::owner_all);
  {
    test::ScopedEnv path("PATH", bin.string() + ":/usr/bin:/bin");
    const JSONValue shown = data("take.reveal", {{"id", take}});
    EXPECT_EQ(test::readFile(tmp / "opened"), str(shown, "folder"));
    EXPECT_EQ(str(shown, "folder"), (*model.baseDir() / "takes" / take).string());
    EXPECT_EQ(error("take.reveal", {{"id", "nope"}}), "no take 'nope' in this production");
  }
  {
    test::ScopedEnv path("PATH", (tmp / "empty").string());
    EXPECT_EQ(error("take.reveal", {{"id", take}}),
              "xdg-open is not installed, so the folder cannot be shown. It is at " +
                  (*model.baseDir() / "takes" / take).string());
  }
  test::writeFile(bin / "xdg-open", "#!/bin/sh\nexit 4\n");
  test::ScopedEnv path("PATH", bin.string() + ":/usr/bin:/bin");
  EXPECT_NE(error("take.reveal", {{"id", take}}).find("xdg-open ended with status 4"), std::string::npos);
}

TEST_F(TakesServiceTest, TheCutIsEditedThroughItsVerbsAndLinesFollow) {
  openWithFilm();
  EXPECT_EQ(str(data("segment.split", {{"at", "1"}}), "id"), "s2");
  EXPECT_EQ(segmentIds(), (std::vector<std::string>{"s1", "s2"}));
  EXPECT_EQ(error("segment.split", {{"at", "1.02"}}),
            "nothing to split at 1.02s — the playhead has to sit inside the footage");

  // Twice as fast: the second segment takes half the time; a line inside the span it
  // gave up lands at the join rather than before it.
  const JSONValue fast = data("segment.rate", {{"id", "s2"}, {"rate", "2"}});
  EXPECT_NEAR(num(list(fast, "segments")[1], "length"), 1, 0.01);
  EXPECT_NEAR(num(fast, "length"), 2, 0.01);
  EXPECT_EQ(*fast["cut"], JSONValue(true));
  EXPECT_NEAR(*model.recording().item("l2")->start, 2, 0.001);
  EXPECT_EQ(error("segment.rate", {{"id", "s9"}, {"rate", "2"}}), "no segment s9. Try: tavorinctl segment.list");

  EXPECT_EQ(error("segment.trim", {{"id", "s1"}}), "segment.trim needs from=<seconds> or to=<seconds>");
  const JSONValue trimmed = data("segment.trim", {{"id", "s1"}, {"from", "0.5"}});
  EXPECT_NEAR(num(list(trimmed, "segments")[0], "from"), 0.5, 0.001);
  EXPECT_NEAR(*model.recording().item("l1")->start, 0.5, 0.001);
  EXPECT_NEAR(*model.recording().item("l2")->start, 1.5, 0.001);
  // segment.set can hand back film a trim took away.
  data("segment.set", {{"id", "s1"}, {"from", "0"}});
  EXPECT_NEAR(*model.recording().item("l2")->start, 2, 0.001);

  const JSONValue out = data("segment.remove", {{"id", "s1"}});
  EXPECT_NEAR(num(out, "seconds"), 1, 0.01);
  EXPECT_EQ(segmentIds(), (std::vector<std::string>{"s2"}));
  EXPECT_EQ(error("segment.remove", {{"id", "s2"}}), "s2 is the only picture there is. Remove the take instead");
  data("undo");
  EXPECT_EQ(segmentIds(), (std::vector<std::string>{"s1", "s2"}));
  // Every stored segment belongs to the take on the monitor.
  const JSONValue cut = data("segment.list");
  for (const auto& s : list(cut, "segments")) EXPECT_EQ(str(s, "take"), take);
}

TEST_F(TakesServiceTest, SegmentRemoveWithoutAnIdTakesThePickedOrTheOneUnderThePlayhead) {
  openWithFilm();
  data("segment.split", {{"at", "1"}});
  data("segment.split", {{"at", "2"}});
  // Exactly at a seam, the later segment is under the playhead.
  data("seek", {{"to", "1"}});
  EXPECT_EQ(str(data("segment.remove"), "removed"), "s2");
  data("select", {{"ids", "s3"}});
  EXPECT_EQ(str(data("segment.remove"), "removed"), "s3");
  // Deleting a segment by id is the same cut, under its own step.
  data("undo");
  data("delete", {{"ids", "s3"}});
  EXPECT_EQ(segmentIds(), (std::vector<std::string>{"s1"}));
  EXPECT_EQ(model.events().back(), "1.00s of picture — ⌘Z puts it back");
  EXPECT_EQ(error("delete", {{"ids", "s1"}}), "that is the only picture there is — remove the take instead");
}

TEST_F(TakesServiceTest, ZoomsAreAddedChangedListedWithTheirFilterAndRemoved) {
  openWithFilm();
  const JSONValue z = data("zoom.add", {{"at", "0.5"}, {"length", "1"}, {"scale", "2"}, {"x", "0.25"}});
  EXPECT_EQ(str(z, "id"), "z1");
  EXPECT_NEAR(num(z, "to"), 1.5, 0.001);
  EXPECT_NEAR(num(z, "x"), 0.25, 1e-9);
  EXPECT_EQ(error("zoom.add", {{"at", "1"}, {"length", "0.1"}}).find("no room for a zoom at 1.00s"), 0u);
  EXPECT_EQ(error("zoom.add", {{"style", "bouncy"}}), "'bouncy' is not a style. Try: smooth | spring");

  const JSONValue changed = data("zoom.set", {{"id", "z1"}, {"scale", "9"}, {"style", "spring"}, {"ramp", "10"}});
  EXPECT_NEAR(num(changed, "scale"), 5, 1e-9);
  EXPECT_EQ(str(changed, "style"), "spring");
  EXPECT_NEAR(num(changed, "ramp"), 0.4, 1e-9);  // held to the share of a 1-second zoom
  EXPECT_NEAR(num(data("zoom.set", {{"id", "z1"}, {"ramp", ""}}), "ramp"), 0.4, 1e-9);
  EXPECT_TRUE(data("zoom.set", {{"id", "z1"}, {"ramp", ""}})["rampSet"]->isNull());
  EXPECT_EQ(error("zoom.set", {{"id", "z9"}, {"scale", "2"}}), "no zoom z9. Try: tavorinctl zoom.list");
  // A bad style refuses the whole change, scale and all.
  EXPECT_EQ(error("zoom.set", {{"id", "z1"}, {"scale", "3"}, {"style", "wobbly"}}),
            "'wobbly' is not a style. Try: smooth | spring");
  EXPECT_NEAR(num(list(data("zoom.list"), "zooms")[0], "scale"), 5, 1e-9);
  // One verb is one step: a single undo takes back scale, style and ramp together.
  data("undo");  // the blank ramp
  data("undo");  // scale, style and ramp
  EXPECT_NEAR(num(list(data("zoom.list"), "zooms")[0], "scale"), 2, 1e-9);

  data("seek", {{"to", "1"}});
  const JSONValue zooms = data("zoom.list");
  EXPECT_EQ(str(*zooms["now"], "zoom"), "z1");
  const std::string filter = str(zooms, "filter");
  EXPECT_EQ(filter.rfind("fps=30,zoompan=z='1+1.0000*between(in_time,0.5000,1.5000)*(", 0), 0u) << filter;
  EXPECT_NE(filter.find(":d=1:s=320x240:fps=30"), std::string::npos) << filter;
  EXPECT_EQ(num(*zooms["picture"], "width"), 320);

  data("select", {{"ids", "z1"}});
  EXPECT_EQ(str(data("zoom.remove"), "removed"), "z1");
  EXPECT_EQ(error("zoom.remove"), "zoom.remove needs id=<zoom>. Try: tavorinctl zoom.list");
  EXPECT_TRUE(zooms["filter"] && list(data("zoom.list"), "zooms").empty());
}

TEST_F(TakesServiceTest, TimelineItemsComeFromTheGeometryTheCanvasDraws) {
  openWithFilm();
  data("segment.split", {{"at", "1"}});
  data("zoom.add", {{"at", "2"}, {"length", "0.5"}});
  data("timeline.zoom", {{"px", "50"}});
  const JSONValue report = data("timeline.items");
  std::map<std::string, JSONValue> byId;
  for (const auto& item : list(report, "items")) byId[str(item, "id")] = item;
  ASSERT_TRUE(byId.count("s2") && byId.count("z1") && byId.count("l1"));
  EXPECT_EQ(str(byId["s2"], "lane"), "screen");
  EXPECT_NEAR(num(byId["s2"], "x"), 50, 1e-9);
  EXPECT_NEAR(num(byId["s2"], "width"), 2 * 50 - 2, 1e-9);
  EXPECT_EQ(str(byId["z1"], "lane"), "zooms");
  EXPECT_NEAR(num(byId["z1"], "x"), 100, 1e-9);
  EXPECT_EQ(str(byId["l1"], "text"), "Line 1.");

  const JSONValue info = data("timeline.info");
  EXPECT_EQ(num(info, "pxPerSecond"), 50);
  EXPECT_EQ(str(*info["laneTitles"], "screen"), "Video");
  EXPECT_EQ(str(*info["laneTitles"], "voice"), "Audio");
  EXPECT_NEAR(num(info, "footage"), 3, 0.05);
  EXPECT_EQ(num(info, "segments"), 2);
  EXPECT_EQ(num(info, "lines"), 2);
  EXPECT_EQ(error("timeline.zoom", {{"px", "500"}}), "the timeline zooms from 1 to 400 pixels a second, not 500");
  const JSONValue fit = data("timeline.zoom", {{"fit", "1"}});
  EXPECT_EQ(*fit["fitted"], JSONValue(true));
  // Three seconds would need 440 pixels a second to fill the canvas; the zoom stops at 400.
  EXPECT_EQ(num(fit, "pxPerSecond"), 400);
  EXPECT_NEAR(num(fit, "contentWidth"), 1200, 1.0);
}

TEST_F(TakesServiceTest, LanesHideAcrossProductionsAndMuteOnlyWhereThereIsSound) {
  openBlank();
  const JSONValue hidden = data("lane.hide", {{"lane", "zooms"}});
  EXPECT_EQ(list(hidden, "hidden"), JSONValue::Array{JSONValue("zooms")});
  EXPECT_EQ(error("lane.hide", {{"lane", "ruler"}}).rfind("no lane 'ruler' to hide. Try: screen, zooms, ", 0), 0u);
  EXPECT_EQ(error("lane.mute", {{"lane", "screen"}}),
            "screen lane makes no sound, so there is nothing to mute. Try: voice or music");
  EXPECT_EQ(error("lane.mute", {{"lane", "drums"}}), "no lane 'drums'. Try: voice or music");
  EXPECT_EQ(list(data("lane.mute", {{"lane", "music"}}), "muted"), JSONValue::Array{JSONValue("music")});
  EXPECT_TRUE(list(data("lane.mute", {{"lane", "music"}}), "muted").empty());
  EXPECT_EQ(*data("waveforms", {{"show", "0"}})["waveforms"], JSONValue(false));

  // The choice is the user's, not the production's: a fresh model reads it back.
  AppModel another(actor, SessionStore(tmp / "support/session.json"), pasteboard);
  EXPECT_EQ(another.hiddenLanes().count(TimelineGeometry::Lane::zooms), 1u);
  data("lane.hide", {{"all", "1"}});
  AppModel third(actor, SessionStore(tmp / "support/session.json"), pasteboard);
  EXPECT_TRUE(third.hiddenLanes().empty());
}

TEST_F(TakesServiceTest, AnOlderVersionRefusesEveryEditOfThePicture) {
  openWithFilm();
  data("save");
  data("segment.split", {{"at", "1"}});
  data("save");
  std::string older;
  for (const auto& v : model.versions())
    if (v != *model.headVersion()) older = v;
  data("version.open", {{"name", older}});
  ASSERT_TRUE(model.isReadOnly());
  const std::string readOnly = "viewing an older version — set it as head to edit";
  EXPECT_EQ(error("segment.split", {{"at", "2"}}), readOnly);
  EXPECT_EQ(error("zoom.add"), readOnly);
  EXPECT_EQ(error("import", {{"path", media().film.string()}}), readOnly);
  // Reports still answer.
  EXPECT_TRUE(call("segment.list").ok);
  EXPECT_TRUE(call("timeline.items").ok);
}

}  // namespace
