#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"
#include "kit/TakesStore.hpp"
#include "kit/Zooms.hpp"

using namespace tavorin;
using test::refusal;
namespace fs = std::filesystem;

namespace {

Recording film() {
  Recording r("cut", "Cut film");
  for (int i = 1; i <= 3; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.text = "Line " + std::to_string(i) + ".";
    line.start = i * 3.0;
    line.hold = 1;
    r.timeline.push_back(line);
  }
  return r;
}

Take take(const std::string& id, double seconds) {
  Take t;
  t.id = id;
  t.startedAt = "2026-02-16T09:45:01Z";
  t.seconds = seconds;
  t.video = "take.mov";
  t.fromVersion = "v0001";
  t.scheduleDigest = "d";
  t.pads = {1, 1};
  t.status = Take::Status::complete;
  return t;
}

class AppModelCutTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = tmp / "cut";
    RecordingStore(dir).saveNewVersion(film(), std::chrono::system_clock::now());
    model.open(dir);
    actor.drain();
  }
  test::TempDir tmp;
  fs::path dir;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model{actor, SessionStore(tmp / "support/session.json"), pasteboard};
};

}  // namespace

TEST_F(AppModelCutTest, WithNoTakeThereIsNothingToCut) {
  EXPECT_EQ(refusal([&] { model.splitPicture(2); }), "there is no footage to cut. Roll a take, or import one with ⌘I");
  TakesStore(dir).begin(take("20260216-094501", 2));  // all pads, no film between them
  EXPECT_EQ(refusal([&] { model.splitPicture(0.5); }), "there is no footage to cut. Roll a take, or import one with ⌘I");
  EXPECT_FALSE(model.recording().segments);
}

TEST_F(AppModelCutTest, SplitRateAndCutAreUndoableEditsOfTheDocument) {
  TakesStore(dir).begin(take("20260216-094501", 22));  // 20s of footage
  const std::string split = model.splitPicture(6);
  actor.drain();
  EXPECT_EQ(split, "s2");
  EXPECT_EQ(model.events().back(), "split the picture at 6.00s → s2");
  EXPECT_EQ(model.recording().segments->front().take, "20260216-094501");

  model.setSegmentRate("s1", 2);  // 6s of film become 3s: what follows arrives earlier
  actor.drain();
  EXPECT_EQ(model.events().back(), "s1 runs at 2.00×");
  EXPECT_EQ(model.recording().item("l3")->start, 6);

  EXPECT_DOUBLE_EQ(model.removeSegment("s1"), 3);
  actor.drain();
  EXPECT_EQ(model.placedSegments().size(), 1u);
  EXPECT_EQ(refusal([&] { model.removeSegment("s2"); }), "s2 is the only picture there is. Remove the take instead");
  EXPECT_EQ(refusal([&] { model.setSegmentRate("s9", 2); }), "no segment s9. Try: tavorinctl segment.list");
  EXPECT_EQ(refusal([&] { model.splitPicture(0.01); }),
            "nothing to split at 0.01s — the playhead has to sit inside the footage");

  model.undo();
  EXPECT_EQ(model.placedSegments().size(), 2u);
  model.undo();
  model.undo();
  EXPECT_FALSE(model.recording().segments);
  EXPECT_EQ(model.recording().item("l3")->start, 9);
}

TEST_F(AppModelCutTest, ZoomsRefuseWhereTheyWouldOverlap) {
  EXPECT_EQ(model.addZoom(1, 2, 2.5, 0.25, 0.75, "spring"), "z1");
  actor.drain();
  EXPECT_EQ(model.events().back(), "zoom z1 2.50× spring at 25% × 75%");
  // Starting inside z1, a new zoom is clamped to the room after it; too little room refuses.
  EXPECT_EQ(model.addZoom(2.5, 1, {}, {}, {}, {}), "z2");
  EXPECT_EQ(model.recording().zooms->back().from, 3);
  EXPECT_EQ(refusal([&] { model.addZoom(2.95, 0.2, {}, {}, {}, {}); }),
            "no room for a zoom at 2.95s — zooms sit one at a time. Move or trim the one there");
  EXPECT_EQ(refusal([&] { model.addZoom(5, 1, {}, {}, {}, "wobble"); }), "'wobble' is not a style. Try: smooth | spring");
  EXPECT_EQ(refusal([&] { model.removeZoom("z7"); }), "no zoom z7. Try: tavorinctl zoom.list");
  model.removeZoom("z1");
  model.removeZoom("z2");
  EXPECT_FALSE(model.recording().zooms);
}

TEST_F(AppModelCutTest, PickingATakeCarriesAWholeTakeCut) {
  TakesStore(dir).begin(take("20260216-094501", 12));
  TakesStore(dir).begin(take("20260217-100000", 32));
  EXPECT_EQ(model.monitorTake()->id, "20260217-100000");  // the newest with film
  Recording whole = model.recording();
  whole.segments = std::vector<Segment>{{"s1", std::string("20260217-100000"), 0, 30, {}}};
  model.setRecording(whole);
  actor.drain();

  model.selectTake("20260216-094501");
  EXPECT_EQ(model.recording().segments->front().to, 10);
  EXPECT_EQ(model.events().back(), "the picture follows the take — 30.00s → 10.00s");
  EXPECT_EQ(refusal([&] { model.selectTake("nope"); }), "no take 'nope' in this production");
}

TEST_F(AppModelCutTest, TrimAndSetSpeakOfWhatChanged) {
  TakesStore(dir).begin(take("20260216-094501", 22));
  model.splitPicture(6);
  actor.drain();
  model.trimSegment("s1", std::nullopt, 4);
  actor.drain();
  EXPECT_EQ(model.events().back(), "trimmed s1 — 2.00s off");
  EXPECT_EQ(model.recording().item("l3")->start, 7);
  model.setSegment("s1", 1, 9);  // footage the trim had taken away comes back
  actor.drain();
  EXPECT_EQ(model.events().back(), "s1 shows 1.00s to 9.00s of the take");
  EXPECT_EQ(refusal([&] { model.trimSegment("s4", 1, 2); }), "no segment s4. Try: tavorinctl segment.list");
  model.selectTake("20260216-094501");
  EXPECT_TRUE(model.recording().segments->size() == 2u);  // a real cut does not follow takes
}

TEST_F(AppModelCutTest, TheMonitorReportsWhatItShowsAndEmptiesWithoutLosingTheTake) {
  EXPECT_EQ(model.viewer(), AppModel::Viewer::empty);
  EXPECT_EQ(refusal([&] { model.clearMonitor(); }), "nothing is on the program monitor");
  const TakesStore store(dir);
  store.begin(take("20260216-094501", 12));
  EXPECT_EQ(model.viewer(), AppModel::Viewer::missing);  // the record is there, the film is not
  test::writeFile(dir / "takes/20260216-094501/take.mov", "film");
  EXPECT_EQ(model.viewer(), AppModel::Viewer::take);

  EXPECT_EQ(model.clearMonitor(), "20260216-094501");
  EXPECT_EQ(model.viewer(), AppModel::Viewer::empty);
  EXPECT_FALSE(model.monitorTake());
  EXPECT_TRUE(fs::exists(dir / "takes/20260216-094501/take.json"));
  model.selectTake("20260216-094501");
  EXPECT_EQ(model.viewer(), AppModel::Viewer::take);
}

TEST_F(AppModelCutTest, ARippleDeleteTakesThePickedSegmentOrTheLaterOneAtASeam) {
  TakesStore(dir).begin(take("20260216-094501", 12));  // 10 seconds between the pads
  model.splitPicture(4);
  model.splitPicture(7);
  model.setPlayhead(4);
  EXPECT_EQ(model.rippleTarget(), "s2");
  model.select({"s3"});
  EXPECT_EQ(model.rippleTarget(), "s3");
  EXPECT_EQ(model.rippleDelete(), "s3");
  model.clearSelection();
  model.setPlayhead(11);
  EXPECT_FALSE(model.rippleTarget());
  EXPECT_EQ(refusal([&] { model.rippleDelete(); }), "there is no picture under the playhead to take out");
}

TEST_F(AppModelCutTest, AZoomChangeIsOneStepWithALineForEachPart) {
  const std::string id = model.addZoom(1, 2, 2, std::nullopt, std::nullopt, std::nullopt);
  actor.drain();
  const std::size_t steps = model.history().past.size();
  AppModel::ZoomChange change;
  change.scale = 3;
  change.x = 0;
  change.style = "spring";
  model.changeZoom(id, change);
  actor.drain();
  EXPECT_EQ(model.history().past.size(), steps + 1);
  const auto& events = model.events();
  ASSERT_GE(events.size(), 3u);
  EXPECT_EQ(events[events.size() - 3], "zoom z1 closes to 3.00×");
  EXPECT_EQ(events[events.size() - 2], "zoom z1 aims at 0% × 50%");
  EXPECT_EQ(events.back(), "zoom z1 arrives fast and settles");
  // Asking for what is already so changes nothing and adds no step.
  model.changeZoom(id, change);
  actor.drain();
  EXPECT_EQ(model.history().past.size(), steps + 1);

  EXPECT_EQ(model.duplicateZoom(id), "z2");
  EXPECT_NEAR(Zooms::zoom("z2", model.recording())->from, 3, 1e-9);
  EXPECT_EQ(refusal([&] { model.duplicateZoom("z9"); }), "no zoom z9. Try: tavorinctl zoom.list");
}
