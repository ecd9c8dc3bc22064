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

Recording sample() {
  Recording r("sample", "Sample film");
  for (int i = 1; i <= 3; ++i) {
    TimelineItem line("l" + std::to_string(i), ItemType::line);
    line.text = "Line number " + std::to_string(i) + ".";
    line.start = (i - 1) * 2.0;
    line.hold = 1.75;
    r.timeline.push_back(line);
  }
  TimelineItem bed("m1", ItemType::audio);
  bed.file = "music/bed.mp3";
  bed.start = 0;
  bed.duration = 30;
  bed.gain = -18;
  r.timeline.push_back(bed);
  return r;
}

class AppModelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = tmp / "sample";
    RecordingStore(dir).saveNewVersion(sample(), std::chrono::system_clock::now());
    model.open(dir);
    actor.drain();
  }
  // Ends the present turn, as the actor coming round again does.
  void nextTurn() { actor.drain(); }

  test::TempDir tmp;
  fs::path dir;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model{actor, SessionStore(tmp / "support/session.json"), pasteboard};
};

}  // namespace

TEST_F(AppModelTest, EditsOfOneTurnAreOneUndoStepAndTheNextTurnAnother) {
  model.editItem("l1", "text", "First words.");
  model.editItem("l2", "text", "Second words.");
  nextTurn();
  EXPECT_EQ(model.history().past.size(), 1u);
  model.editItem("l3", "text", "Third words.");
  nextTurn();
  ASSERT_EQ(model.history().past.size(), 2u);
  model.undo();
  EXPECT_EQ(*model.recording().item("l3")->text, "Line number 3.");
  EXPECT_EQ(*model.recording().item("l2")->text, "Second words.");
  model.undo();
  EXPECT_EQ(*model.recording().item("l1")->text, "Line number 1.");
  EXPECT_EQ(refusal([&] { model.undo(); }), "nothing to undo — this is as far back as it goes");
}

TEST_F(AppModelTest, MergedNudgesAreOneStepUntilAnotherNameBreaksTheRun) {
  auto nudge = [&](double to) {
    model.remember("the nudge", true);
    Recording r = model.recording();
    r.item("l1")->start = to;
    model.setRecording(r);
    nextTurn();
  };
  nudge(0.1);
  nudge(0.2);
  nudge(0.3);
  EXPECT_EQ(model.history().past.size(), 1u);
  model.editItem("l2", "note", "between");
  nextTurn();
  nudge(0.4);
  EXPECT_EQ(model.history().past.size(), 3u);
  model.undo();
  model.undo();
  model.undo();
  EXPECT_EQ(*model.recording().item("l1")->start, 0.0);  // the whole run went back in one step
}

TEST_F(AppModelTest, AnUnnamedStepIsNamedFromWhatChangedWhenTheTurnCloses) {
  Recording r = model.recording();
  r.title = "Renamed";
  model.setRecording(r);
  ASSERT_EQ(model.history().past.size(), 1u);
  EXPECT_EQ(model.history().past.back().what, "");
  nextTurn();
  EXPECT_FALSE(model.history().past.back().what.empty());
}

TEST_F(AppModelTest, ANewEditAfterAnUndoEmptiesRedo) {
  model.editItem("l1", "text", "One.");
  nextTurn();
  model.undo();
  EXPECT_EQ(model.history().future.size(), 1u);
  model.editItem("l2", "text", "Two.");
  nextTurn();
  EXPECT_TRUE(model.history().future.empty());
  EXPECT_EQ(refusal([&] { model.redo(); }), "nothing to redo — the last undo is already back in place");
}

TEST_F(AppModelTest, PasteMintsIdsUnrendersLinesAndUndoGivesBackWhatWasThere) {
  Recording r = model.recording();
  r.item("l1")->audio = "audio/l1.wav";
  r.item("l1")->approved = true;
  r.item("l1")->renderedFrom = RenderedFrom{};
  model.setRecording(r);
  nextTurn();
  model.select({"l1", "m1"});
  EXPECT_EQ(model.copySelection(), 2u);
  const auto before = model.recording().itemIds();

  const auto pasted = model.paste(10.0);
  nextTurn();
  ASSERT_EQ(pasted.size(), 2u);
  EXPECT_EQ(model.selection(), pasted);
  const TimelineItem* line = model.recording().item(pasted[0]);
  const TimelineItem* bed = model.recording().item(pasted[1]);
  ASSERT_TRUE(line && bed);
  EXPECT_EQ(line->type, ItemType::line);
  EXPECT_FALSE(line->audio);
  EXPECT_FALSE(line->renderedFrom);
  EXPECT_EQ(line->approved, false);
  EXPECT_EQ(bed->file, "music/bed.mp3");
  EXPECT_EQ(*line->start, 10.0);  // the earliest pasted item lands at `at`

  model.undo();
  EXPECT_EQ(model.recording().itemIds(), before);
  const auto back = model.redo();
  EXPECT_EQ(back.size(), 2u);
}

TEST_F(AppModelTest, PasteRefusesTextWithNoItems) {
  EXPECT_EQ(refusal([&] { model.paste(0.0, std::string("not json")); }), "clipboard contains no timeline items");
  EXPECT_EQ(refusal([&] { model.paste(0.0); }), "clipboard contains no timeline items");  // empty pasteboard
  const auto ids = model.paste(1.0, std::string(R"({"id":"l1","type":"line","text":"hi"})"));
  EXPECT_EQ(ids, (std::vector<std::string>{"l1a"}));
}

TEST_F(AppModelTest, DeleteIsOneStepAndUnknownIdsChangeNothing) {
  EXPECT_EQ(refusal([&] { model.deleteItems({"l1", "nope"}); }), "no item nope on the timeline");
  EXPECT_TRUE(model.recording().item("l1"));
  model.deleteItems({"l1", "l2"});
  nextTurn();
  EXPECT_FALSE(model.recording().item("l2"));
  EXPECT_EQ(model.events().back(), "deleted 2 items — ⌘Z puts them back");
  model.undo();
  EXPECT_TRUE(model.recording().item("l1") && model.recording().item("l2"));
}

TEST_F(AppModelTest, TheDraftFollowsEditsBy0Point8SecondsAndEachEditRearmsIt) {
  RecordingStore store(dir);
  model.editItem("l1", "text", "Draft me.");
  actor.advance(700ms);
  model.editItem("l2", "text", "And me.");
  actor.advance(700ms);
  EXPECT_FALSE(store.hasDraft());  // re-armed by the second edit
  actor.advance(150ms);
  ASSERT_TRUE(store.hasDraft());
  const auto draft = store.readDraft();
  ASSERT_TRUE(draft);
  EXPECT_EQ(*draft->recording.item("l2")->text, "And me.");
  EXPECT_EQ(draft->basedOn, *model.headVersion());
  EXPECT_TRUE(model.dirty());
}

TEST_F(AppModelTest, ADraftBasedOnTheHeadIsRestoredAndShowsDirty) {
  model.editItem("l1", "text", "Unsaved.");
  model.flushDraft();
  AppModel again(actor, SessionStore(tmp / "support/session.json"), pasteboard);
  again.open(dir);
  EXPECT_TRUE(again.restoredDraft());
  EXPECT_TRUE(again.dirty());
  EXPECT_EQ(*again.recording().item("l1")->text, "Unsaved.");
  EXPECT_TRUE(again.history().past.empty());  // a restore is not an undo step
  EXPECT_EQ(again.events().back().rfind("restored unsaved changes from ", 0), 0u);
}

TEST_F(AppModelTest, ADraftFromBeforeASaveIsAConflictAndStaysOnDisk) {
  model.editItem("l1", "text", "Unsaved.");
  model.flushDraft();
  const std::string draftText = test::readFile(dir / "draft.json");
  // Another session saves over it.
  RecordingStore(dir).saveNewVersion(sample(), std::chrono::system_clock::now());
  test::writeFile(dir / "draft.json", draftText);

  AppModel again(actor, SessionStore(tmp / "support/session.json"), pasteboard);
  again.open(dir);
  EXPECT_FALSE(again.restoredDraft());
  EXPECT_EQ(*again.recording().item("l1")->text, "Line number 1.");
  EXPECT_EQ(*again.loadError(),
            "There are unsaved changes from an earlier session, but this production has been saved since. Opened the "
            "saved version; the draft is still on disk. `revert` discards it.");
  EXPECT_EQ(again.events().back().rfind("draft conflict: based on v0001-", 0), 0u);
  EXPECT_TRUE(fs::exists(dir / "draft.json"));
}

TEST_F(AppModelTest, ACopiedDraftNamesAVersionThisProductionNeverHad) {
  test::writeFile(dir / "draft.json",
                  R"({"basedOn":"v0042-20200101-000000.json","savedAt":"2020-01-01T00:00:00Z","recording":)" +
                      sample().encoded() + "}");
  AppModel again(actor, SessionStore(tmp / "support/session.json"), pasteboard);
  again.open(dir);
  EXPECT_EQ(*again.loadError(),
            "There are unsaved changes on disk, but they were written against v0042-20200101-000000.json, a version "
            "this production has never had. That is what a copied draft looks like. Opened the saved version; "
            "`revert` discards the draft.");
  EXPECT_EQ(again.events().back(), "draft is based on v0042-20200101-000000.json, which is not in versions/");
}

TEST_F(AppModelTest, SaveWritesAVersionEvenWithNothingChangedAndClearsTheDraft) {
  model.save();
  EXPECT_EQ(model.versions().size(), 2u);
  model.editItem("l1", "text", "Changed.");
  model.flushDraft();
  ASSERT_TRUE(fs::exists(dir / "draft.json"));
  model.save();
  EXPECT_EQ(model.versions().size(), 3u);
  EXPECT_FALSE(fs::exists(dir / "draft.json"));
  EXPECT_FALSE(model.dirty());
  EXPECT_EQ(model.events().back(), "saved v0003");
  EXPECT_EQ(RecordingStore(dir).loadHead().item("l1")->text, "Changed.");
  actor.advance(2s);
  EXPECT_FALSE(fs::exists(dir / "draft.json"));  // no draft was left waiting to follow the save
}

TEST_F(AppModelTest, ViewingAnOlderVersionIsReadOnlyAndRevertReturnsToHead) {
  model.editItem("l1", "text", "Second version.");
  nextTurn();
  model.save();
  model.openVersion("v0001");
  EXPECT_TRUE(model.isReadOnly());
  EXPECT_EQ(*model.recording().item("l1")->text, "Line number 1.");
  EXPECT_EQ(model.events().back(), "viewing v0001 (read-only)");
  const std::string readOnly = "viewing an older version — set it as head to edit";
  EXPECT_EQ(refusal([&] { model.save(); }), readOnly);
  EXPECT_EQ(refusal([&] { model.editItem("l1", "text", "x"); }), readOnly);
  EXPECT_EQ(refusal([&] { model.undo(); }), readOnly);
  model.revert();
  EXPECT_FALSE(model.isReadOnly());
  EXPECT_EQ(*model.recording().item("l1")->text, "Second version.");
}

TEST_F(AppModelTest, TheFeedKeepsTheLast500Events) {
  const std::size_t already = model.events().size();
  for (int i = 0; i < 501; ++i) model.note("event " + std::to_string(i));
  EXPECT_EQ(model.events().size(), 500u);
  EXPECT_EQ(model.events().front(), "event 1");
  EXPECT_GT(already, 0u);  // opening said so
}

TEST_F(AppModelTest, AnUnreadableVariantsIndexIsMovedAsideAndTheOpenSucceeds) {
  test::writeFile(dir / "audio/variants.json", "{ this is not json");
  AppModel again(actor, SessionStore(tmp / "support/session.json"), pasteboard);
  EXPECT_NO_THROW(again.open(dir));
  bool movedAside = false;
  for (const auto& e : fs::directory_iterator(dir / "audio"))
    if (e.path().filename().string().rfind("variants-unreadable-", 0) == 0) movedAside = true;
  EXPECT_TRUE(movedAside);
  bool told = false;
  for (const auto& e : again.events())
    if (e.rfind("audio/variants.json would not read (", 0) == 0) told = true;
  EXPECT_TRUE(told);
}

TEST_F(AppModelTest, EditRefusalsLeaveTheModelUnchanged) {
  const Recording before = model.recording();
  EXPECT_EQ(refusal([&] { model.editItem("l9", "text", "x"); }), "no item l9 on the timeline");
  EXPECT_EQ(refusal([&] { model.editItem("l1", "colour", "x"); }).rfind("no field 'colour'. Try: text, ", 0), 0u);
  EXPECT_EQ(refusal([&] { model.editItem("l1", "rate", "fast"); }), "'fast' is not a number for rate");
  EXPECT_EQ(refusal([&] { model.editProduction("gap", "abc"); }), "'abc' is not a number for gap");
  EXPECT_EQ(refusal([&] { model.editProduction("span", "chars:0"); }),
            "'chars:0' is not a span. Try: line · chars:300 · chars:600 · chars:1000 · cue");
  EXPECT_EQ(model.recording(), before);
  EXPECT_TRUE(model.history().past.empty());
}

TEST_F(AppModelTest, ClearingAProductionFieldFallsBackToItsDefault) {
  model.editProduction("gap", 0.5);
  EXPECT_EQ(model.recording().gap, 0.5);
  model.editProduction("gap", "");
  EXPECT_FALSE(model.recording().gap);
  model.editProduction("title", "");
  EXPECT_EQ(model.recording().title, "sample");
}

TEST(AppModelClosed, RefusesEditsWithNoProduction) {
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  test::TempDir tmp;
  AppModel model(actor, SessionStore(tmp / "session.json"), pasteboard);
  for (auto f : std::vector<std::function<void()>>{[&] { model.save(); }, [&] { model.undo(); },
                                                    [&] { model.editItem("l1", "text", "x"); },
                                                    [&] { model.paste(); }}) {
    try {
      f();
      ADD_FAILURE();
    } catch (const AppModel::Failure& e) {
      EXPECT_STREQ(e.what(), "no production is open");
    }
  }
  EXPECT_THROW(model.open(tmp / "nowhere"), AppModel::Failure);
}

TEST_F(AppModelTest, UndoStepsAreNamedAsADiffNamesTheEdit) {
  const auto lastStep = [&] { return model.history().past.back().what; };
  const std::vector<std::tuple<std::string, std::string, FieldValue, std::string>> cases{
      {"l1", "text", "New words.", "the line text"},
      {"l1", "approved", true, "the approval"},
      {"l2", "start", 9.0, "the move"},
      {"m1", "gain", -6.0, "the level"},
      {"m1", "trimIn", 1.5, "the trim"},
  };
  for (const auto& [id, field, value, name] : cases) {
    model.editItem(id, field, value);
    nextTurn();
    EXPECT_EQ(lastStep(), name) << field;
  }
  model.editProduction("title", "Renamed");
  nextTurn();
  EXPECT_EQ(lastStep(), "edit production.");
}

TEST_F(AppModelTest, AFieldRefusesAValueOfTheWrongKind) {
  EXPECT_EQ(refusal([&] { model.editItem("l1", "rate", "fast"); }), "'fast' is not a number for rate");
  EXPECT_EQ(refusal([&] { model.editItem("l1", "approved", 2.0); }).rfind("'2' is not", 0), 0u);
  EXPECT_FALSE(model.recording().item("l1")->approved.has_value());
}

// Holds offloaded work until the test runs it, so a write can be caught in flight.
class HeldOffloader final : public Offloader {
 public:
  void offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) override {
    held.emplace_back(std::move(work), std::move(then));
  }
  void runAll(ManualMainActor& actor) {
    for (auto& [work, then] : held) {
      std::exception_ptr failure;
      try {
        work();
      } catch (...) {
        failure = std::current_exception();
      }
      actor.post([then = std::move(then), failure] { then(failure); });
    }
    held.clear();
    actor.drain();
  }
  std::vector<std::pair<std::function<void()>, std::function<void(std::exception_ptr)>>> held;
};

TEST(AppModelDraft, IsWrittenByTheWorkersAndASaveSupersedesOneInFlight) {
  test::TempDir tmp;
  const fs::path dir = tmp / "sample";
  RecordingStore(dir).saveNewVersion(sample(), std::chrono::system_clock::now());
  ManualMainActor actor;
  HeldOffloader workers;
  MemoryPasteboard pasteboard;
  AppModel model(actor, workers, SessionStore(tmp / "session.json"), pasteboard);
  model.open(dir);
  actor.drain();
  // Remembering the production is a worker's write too.
  EXPECT_FALSE(fs::exists(tmp / "session.json")) << "the actor itself wrote the session";
  ASSERT_EQ(workers.held.size(), 1u);
  workers.runAll(actor);
  EXPECT_EQ(SessionStore(tmp / "session.json").read().production, dir.string());

  model.editItem("l1", "text", "Drafted.");
  actor.advance(1s);
  EXPECT_FALSE(RecordingStore(dir).readDraft().has_value()) << "the actor itself wrote to the disk";
  ASSERT_EQ(workers.held.size(), 1u);
  workers.runAll(actor);
  ASSERT_TRUE(RecordingStore(dir).readDraft().has_value());
  EXPECT_EQ(RecordingStore(dir).readDraft()->recording.item("l1")->text, "Drafted.");

  model.editItem("l1", "text", "Saved.");
  actor.advance(1s);
  ASSERT_EQ(workers.held.size(), 1u);
  model.save();
  workers.runAll(actor);
  EXPECT_FALSE(RecordingStore(dir).readDraft().has_value()) << "a stale draft landed after the save";
}

TEST(AppModelDraft, AFailedWriteIsToldInTheFeed) {
  test::TempDir tmp;
  const fs::path dir = tmp / "sample";
  RecordingStore(dir).saveNewVersion(sample(), std::chrono::system_clock::now());
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model(actor, SessionStore(tmp / "session.json"), pasteboard);
  model.open(dir);
  actor.drain();
  model.editItem("l1", "text", "Lost?");
  // The manifest the draft names its base from is gone.
  fs::remove(dir / "manifest.json");
  actor.advance(1s);
  ASSERT_FALSE(model.events().empty());
  EXPECT_EQ(model.events().back().rfind("draft not written: ", 0), 0u) << model.events().back();
}
