#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "app/model/AppModel.hpp"
#include "app/model/ManualMainActor.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"

using namespace tavorin;
using test::refusal;
namespace fs = std::filesystem;

namespace {

Recording fourLines() {
  Recording r("lines", "Lines");
  const char* texts[] = {"Open the menu.", "Pick a colour.", "Then save it, and close.", "Done."};
  for (int i = 0; i < 4; ++i) {
    TimelineItem line("l" + std::to_string(i + 1), ItemType::line);
    line.text = texts[i];
    line.start = i * 2.5;
    line.duration = 2.0;
    r.timeline.push_back(line);
  }
  return r;
}

class LineEditsModel : public ::testing::Test {
 protected:
  void SetUp() override {
    RecordingStore(tmp / "lines").saveNewVersion(fourLines(), std::chrono::system_clock::now());
    model.open(tmp / "lines");
    actor.drain();
    opened = model.recording();
  }
  // Each act is its own turn; undo then brings the production back exactly.
  void undoesToOpened() {
    actor.drain();
    model.undo();
    EXPECT_EQ(model.recording(), opened);
  }
  // A refusal leaves the production, its history and its feed as they were.
  std::string refused(const std::function<void()>& act) {
    const auto steps = model.history().past.size();
    const auto events = model.events().size();
    std::string said = refusal(act);
    EXPECT_EQ(model.recording(), opened) << said;
    EXPECT_EQ(model.history().past.size(), steps);
    EXPECT_EQ(model.events().size(), events);
    return said;
  }

  test::TempDir tmp;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  AppModel model{actor, SessionStore(tmp / "support/session.json"), pasteboard};
  Recording opened;
};

TEST_F(LineEditsModel, SplitIsOneUndoableStep) {
  auto split = model.splitLine("l3", 14);
  EXPECT_EQ(split.tail, "l3a");
  EXPECT_EQ(model.recording().item("l3")->text, "Then save it,");
  EXPECT_EQ(model.recording().item("l3a")->text, "and close.");
  EXPECT_EQ(split.moved, (std::vector<std::string>{"l4"}));
  EXPECT_EQ(model.history().past.back().what, "the split");
  EXPECT_TRUE(model.dirty());
  undoesToOpened();

  EXPECT_EQ(refused([&] { model.splitLine("l9", 3); }),
            "Line l9 does not exist in this production. Enter an active line identifier.");
  EXPECT_EQ(refused([&] { model.splitLine("l4", 5); }),
            "Cannot split at the line edge. Move the caret between characters to split text.");
  EXPECT_EQ(refused([&] { model.splitLine("l4", 0); }),
            "Cannot split at the line edge. Move the caret between characters to split text.");
}

TEST_F(LineEditsModel, MergeIsOneUndoableStepAndRefusesAGap) {
  model.select({"l2", "l3"});
  auto merge = model.mergeLines({"l2", "l3"});
  EXPECT_EQ(merge.gone, (std::vector<std::string>{"l3"}));
  EXPECT_EQ(model.recording().item("l2")->text, "Pick a colour. Then save it, and close.");
  EXPECT_FALSE(model.recording().item("l3"));
  EXPECT_EQ(model.selection(), (std::vector<std::string>{"l2"}));
  EXPECT_EQ(model.history().past.back().what, "the merge");
  EXPECT_EQ(model.events().back(), "merged l3 into l2; moved l4");
  undoesToOpened();

  EXPECT_EQ(refused([&] { model.mergeLines({"l1", "l3"}); }),
            "Cannot merge separate lines. Select two or more neighbouring lines.");
  EXPECT_EQ(refused([&] { model.mergeLines({"l1"}); }),
            "Cannot merge separate lines. Select two or more neighbouring lines.");
}

TEST_F(LineEditsModel, PinAndUnpinAreUndoable) {
  auto pin = model.generateTogether({"l1", "l2"});
  EXPECT_EQ(pin.name, "l1");
  EXPECT_EQ(model.events().back(), "2 line into generation l1");
  EXPECT_EQ(model.history().past.back().what, "the pin");
  actor.drain();
  EXPECT_EQ(model.generateAlone({"l2", "l4"}), (std::vector<std::string>{"l2"}));
  EXPECT_EQ(model.events().back(), "unpinned 1 line");
  actor.drain();
  model.undo();
  EXPECT_EQ(model.recording().item("l2")->together, "l1");
  undoesToOpened();

  EXPECT_EQ(refused([&] { model.generateTogether({"l1", "l3"}); }),
            "Cannot pin separate lines. Select two or more neighbouring lines.");
  EXPECT_EQ(refused([&] { model.generateAlone({"l4"}); }),
            "Cannot pin separate lines. Select two or more neighbouring lines.");
}

TEST_F(LineEditsModel, GlueClosesALandedGenerationAndRefusesAnUnrenderedLine) {
  EXPECT_EQ(refused([&] { model.glueLines("l1"); }), "l1 was not rendered as part of a generation, so it has nothing to glue");
  EXPECT_EQ(refused([&] { model.glueLines("l9"); }), "no line l9 in the open production");

  // l1 and l2 landed as one generation, l2 at 2.2 s into its audio, then drifted.
  Recording landed = model.recording();
  for (const char* id : {"l1", "l2"}) {
    RenderedFrom receipt;
    receipt.group = "g1";
    receipt.offset = std::string(id) == "l2" ? 2.2 : 0.0;
    landed.item(id)->renderedFrom = receipt;
  }
  model.setRecording(landed);
  actor.drain();
  auto glue = model.glueLines("l2");
  EXPECT_EQ(glue.closed, (std::vector<std::string>{"l2"}));
  EXPECT_DOUBLE_EQ(*model.recording().item("l2")->start, 2.2);
  EXPECT_EQ(model.history().past.back().what, "the glue");
  actor.drain();
  model.undo();
  EXPECT_EQ(model.recording(), landed);
}

}  // namespace
