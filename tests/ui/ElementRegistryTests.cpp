#include <gtest/gtest.h>

#include "ui/ElementRegistry.hpp"

using namespace tavorin;
using Frame = ElementRegistry::Frame;

namespace {

ElementRegistry::Element control(std::string id, Frame frame) {
  return ElementRegistry::Element{std::move(id), "button", "Label", true, "Help.", frame};
}

}  // namespace

TEST(ElementRegistry, ReportsTheLastFinishedFrameOnlyUntilTheNextEnds) {
  ElementRegistry r;
  r.beginFrame(800, 600, "edit");
  r.openPanel("transport", "Transport", Frame{0, 500, 800, 100});
  r.add(control("transport.play", Frame{10, 510, 40, 20}));
  r.endFrame();

  // A frame being drawn does not show until it ends.
  r.beginFrame(800, 600, "library");
  r.openPanel("library.projects", "Projects", Frame{0, 44, 200, 556});
  r.add(control("library.project.demo", Frame{10, 60, 100, 20}));
  ASSERT_NE(r.find("transport.play"), nullptr);
  EXPECT_EQ(r.find("library.project.demo"), nullptr);
  r.endFrame();

  EXPECT_EQ(r.find("transport.play"), nullptr);
  ASSERT_NE(r.find("library.project.demo"), nullptr);
  const JSONValue report = r.report();
  EXPECT_EQ(*report["page"]->stringValue(), "library");
  EXPECT_EQ(*(*report["window"])["width"]->intValue(), 800);
  const auto& panels = *report["panels"]->arrayValue();
  ASSERT_EQ(panels.size(), 1u);
  const auto& element = (*panels[0]["elements"]->arrayValue())[0];
  EXPECT_EQ(*element["id"]->stringValue(), "library.project.demo");
  EXPECT_EQ(*element["role"]->stringValue(), "button");
  EXPECT_EQ(*element["help"]->stringValue(), "Help.");
  EXPECT_TRUE(*element["enabled"]->boolValue());
  EXPECT_EQ(*(*element["frame"])["y"]->intValue(), 60);
}

TEST(ElementRegistry, ClipsControlsToTheirPanelAndDropsThoseOutOfSight) {
  ElementRegistry r;
  r.beginFrame(800, 600, "edit");
  r.openPanel("timeline", "Timeline", Frame{100, 400, 600, 200});
  // Scrolled half out on the left, wholly out on the right, and one inside.
  r.add(control("lane.voice.l1", Frame{50, 450, 100, 40}));
  r.add(control("lane.voice.l9", Frame{900, 450, 100, 40}));
  r.add(control("lane.voice.l2", Frame{300, 450, 100, 40}));
  r.endFrame();
  const auto* l1 = r.find("lane.voice.l1");
  ASSERT_NE(l1, nullptr);
  EXPECT_EQ(l1->frame, (Frame{100, 450, 50, 40}));
  EXPECT_EQ(r.find("lane.voice.l9"), nullptr);
  EXPECT_EQ(r.find("lane.voice.l2")->frame, (Frame{300, 450, 100, 40}));
}

TEST(ElementRegistry, RefusesAControlOutsideAnyPanelAndWidensTheLastOne) {
  ElementRegistry r;
  r.beginFrame(800, 600, "edit");
  EXPECT_THROW(r.add(control("stray", Frame{0, 0, 10, 10})), std::logic_error);
  EXPECT_EQ(r.lastAdded(), nullptr);
  r.openPanel("timeline", "Timeline", Frame{0, 0, 800, 600});
  r.add(control("lane.actions.c1", Frame{10, 10, 20, 20}));
  r.lastAdded()->label += ", c2";
  r.endFrame();
  EXPECT_EQ(r.find("lane.actions.c1")->label, "Label, c2");
}

TEST(ElementRegistryFrame, NeighboursThatShareAnEdgeDoNotOverlap) {
  const Frame a{0, 0, 10, 10};
  EXPECT_FALSE(a.overlaps(Frame{10, 0, 10, 10}));
  EXPECT_FALSE(a.overlaps(Frame{0, 10, 10, 10}));
  EXPECT_TRUE(a.overlaps(Frame{9, 9, 10, 10}));
  EXPECT_TRUE(a.clipped(Frame{20, 20, 5, 5}).empty());
}
