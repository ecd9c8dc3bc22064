#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"

using namespace tavorin;
using test::refusal;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

const std::string script =
    "open \"https://example.com\"\n"
    "with l1:\n"
    "    click 10 20\n"
    "with l2 offset 0.5:   # after the second line begins\n"
    "    wait 1\n"
    "    type \"hello\"\n";

class AppModelBlockingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = tmp / "film";
    Recording r("film", "Film");
    r.blocking = "blocking.stage";
    double start = 0;
    for (const char* id : {"l1", "l2", "l3"}) {
      TimelineItem line(id, ItemType::line);
      line.text = "Words.";
      line.start = start;
      line.hold = 2;
      start += 2.25;
      r.timeline.push_back(line);
    }
    RecordingStore(dir).saveNewVersion(r, std::chrono::system_clock::now());
    test::writeFile(dir / "blocking.stage", script);
    model.open(dir);
    actor.drain();
  }
  const Schedule::Cue& cue(int id) {
    for (const auto& c : model.cues())
      if (c.id == id) return c;
    throw std::runtime_error("no cue");
  }

  test::TempDir tmp;
  fs::path dir;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model{actor, SessionStore(tmp / "session.json"), pasteboard};
};

}  // namespace

TEST_F(AppModelBlockingTest, OpeningParsesAndCompilesTheScript) {
  EXPECT_EQ(model.blocking(), script);
  EXPECT_EQ(model.blockingSteps().size(), 6u);
  EXPECT_DOUBLE_EQ(cue(3).time, 0.0);   // click under l1
  EXPECT_DOUBLE_EQ(cue(5).time, 2.75);  // l2 starts at 2.25, offset 0.5
  // Only the note that a block's steps share its moment; nothing is wrong.
  ASSERT_EQ(model.blockingDiagnostics().size(), 1u);
  EXPECT_EQ(model.blockingDiagnostics()[0].severity, BlockingDiagnostic::Severity::note);
  EXPECT_FALSE(model.dirty());
}

TEST_F(AppModelBlockingTest, MovingALineRecompilesTheCuesThatHangOnIt) {
  model.moveItem("l2", 10, false);
  actor.drain();
  EXPECT_DOUBLE_EQ(cue(5).time, 10.5);
  model.undo();
  EXPECT_DOUBLE_EQ(cue(5).time, 2.75);
}

TEST_F(AppModelBlockingTest, CueMoveRewritesOnlyTheOffsetAndUndoPutsTheScriptBack) {
  model.moveCue(5, 4.0);  // l2 starts at 2.25: the block's offset becomes 1.75
  actor.drain();
  EXPECT_EQ(model.blocking(),
            "open \"https://example.com\"\n"
            "with l1:\n"
            "    click 10 20\n"
            "with l2 offset 1.75:   # after the second line begins\n"
            "    wait 1\n"
            "    type \"hello\"\n");
  EXPECT_DOUBLE_EQ(cue(5).time, 4.0);
  EXPECT_TRUE(model.dirty());
  EXPECT_TRUE(model.blockingDirty());
  model.undo();
  EXPECT_EQ(model.blocking(), script);
  EXPECT_FALSE(model.dirty());

  EXPECT_EQ(refusal([&] { model.moveCue(99, 1); }), "no cue 99 in the compiled blocking");
  EXPECT_EQ(refusal([&] { model.moveCue(1, 1); }),
            "cue 1 isn't anchored to a line — its time comes from the sequence, so there is no offset to move");
}

TEST_F(AppModelBlockingTest, TheScriptIsWrittenAtomicallyBeforeAVersionIsSaved) {
  model.replaceBlocking(script + "wait 2\n");
  EXPECT_EQ(test::readFile(dir / "blocking.stage"), script);  // edits stay in memory until saved
  model.save();
  EXPECT_EQ(test::readFile(dir / "blocking.stage"), script + "wait 2\n");
  EXPECT_FALSE(model.blockingDirty());
  for (const auto& e : fs::directory_iterator(dir))
    EXPECT_EQ(e.path().filename().string().find(".tmp"), std::string::npos) << e.path();
}

TEST_F(AppModelBlockingTest, DiagnosticsFollowTheScript) {
  model.replaceBlocking("with l9:\n    click 1 2\nfrobnicate\n");
  ASSERT_EQ(model.blockingDiagnostics().size(), 2u);
  std::set<std::string> messages;
  for (const auto& d : model.blockingDiagnostics()) messages.insert(d.message);
  EXPECT_EQ(messages.count("Not a step this grammar knows, so it will be skipped. "
                           "The steps are listed in docs/stage-script.md."),
            1u);
}

TEST_F(AppModelBlockingTest, SnappingFollowsTheToggleUnlessTheMoveSaysOtherwise) {
  model.setPxPerSecond(100);  // a window of 0.07 s
  // l1 ends at 2.0; a drop 0.06 s after it lands on it.
  auto landing = model.moveItem("l3", 2.06);
  EXPECT_DOUBLE_EQ(landing.start, 2.0);
  EXPECT_EQ(landing.snapped, 2.0);
  EXPECT_EQ(model.events().back(), "move l3 → 2.00 (snapped)");
  landing = model.moveItem("l3", 2.06, false);  // snap=0 lands exactly, toggle or not
  EXPECT_DOUBLE_EQ(landing.start, 2.06);
  model.snapping = false;
  EXPECT_FALSE(model.snapPreview("l3", 2.06).snapped);
  EXPECT_TRUE(model.snapPreview("l3", 2.06, true).snapped);
  EXPECT_EQ(refusal([&] { model.moveItem("l9", 1); }), "no item l9 on the timeline");
}

TEST_F(AppModelBlockingTest, DuplicateFollowsTheOriginalAndStaysUnrendered) {
  const std::string copy = model.duplicateItem("l2");
  EXPECT_EQ(copy, "l2a");
  const TimelineItem* item = model.recording().item(copy);
  ASSERT_TRUE(item);
  EXPECT_DOUBLE_EQ(*item->start, 4.25);
  EXPECT_FALSE(item->audio);
  EXPECT_EQ(model.selection(), std::vector<std::string>{"l2a"});
}

TEST_F(AppModelBlockingTest, JogStepsOffTheCueItStandsOn) {
  // Cues stand at 0 (open, click) and 2.75 (the l2 block).
  EXPECT_DOUBLE_EQ(model.stepCue("next"), 2.75);
  EXPECT_DOUBLE_EQ(model.stepCue("next"), 2.75);  // nothing later
  EXPECT_DOUBLE_EQ(model.stepCue("prev"), 0.0);   // off the cue it stood on
  EXPECT_DOUBLE_EQ(model.stepCue("end"), 6.5);
  EXPECT_DOUBLE_EQ(model.stepCue("start"), 0.0);
  EXPECT_THROW(model.stepCue("sideways"), AppModel::Failure);
  // With no script the line starts are the stops.
  model.replaceBlocking("");
  EXPECT_DOUBLE_EQ(model.stepCue("next"), 2.25);
  EXPECT_DOUBLE_EQ(model.stepCue("next"), 4.5);
}
