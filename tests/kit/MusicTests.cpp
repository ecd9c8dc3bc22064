#include "kit/Music.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace tavorin {
namespace {

TEST(Music, TrimKeepsATenthInsideTheFile) {
  using P = std::pair<double, double>;
  EXPECT_EQ(Music::trim(9.95, 12, 10), (P{9.95, 10}));
  EXPECT_EQ(Music::trim(10, 10, 10), (P{9.9, 10}));
  EXPECT_EQ(Music::trim(3, 1, 10), (P{3, 3.1}));
  EXPECT_EQ(Music::trim(-2, 4, 10), (P{0, 4}));
  EXPECT_EQ(Music::trim(2, 5, 0), (P{0, 0}));
}

TEST(Music, GainIsHeldToItsRangeAndTheFloorStillSounds) {
  EXPECT_DOUBLE_EQ(Music::gain(9), 6);
  EXPECT_DOUBLE_EQ(Music::gain(-100), -60);
  EXPECT_DOUBLE_EQ(Music::gain(NAN), Music::defaultGain);
  EXPECT_DOUBLE_EQ(Music::amplitude(-100), 0.001);
  EXPECT_DOUBLE_EQ(Music::amplitude(-60), 0.001);
  EXPECT_NEAR(Music::amplitude(-20), 0.1, 1e-12);
  EXPECT_NEAR(Music::amplitude(12), std::pow(10, 6 / 20.0), 1e-12);
}

TEST(Music, LengthIsTheTrimmedPartOrTheWholeFile) {
  TimelineItem bed = Music::item("m1", "music/a.wav", -3, 20);
  EXPECT_DOUBLE_EQ(*bed.start, 0);
  EXPECT_DOUBLE_EQ(*bed.gain, Music::defaultGain);
  EXPECT_DOUBLE_EQ(Music::length(bed), 20);
  EXPECT_DOUBLE_EQ(Music::length(bed, 12.0), 12);
  bed.trimIn = 4;
  EXPECT_DOUBLE_EQ(Music::length(bed), 16);
  bed.trimOut = 6;
  EXPECT_DOUBLE_EQ(Music::length(bed), 2);
  bed.trimIn = 9;
  EXPECT_DOUBLE_EQ(Music::length(bed), 0);
}

TEST(Music, IdsAndLookupsKeepBedsLabelsAndLinesApart) {
  Recording recording("p", "P");
  recording.timeline.push_back(TimelineItem("m1", ItemType::audio));
  recording.timeline.push_back(TimelineItem("m2", ItemType::line));
  recording.timeline.push_back(TimelineItem("g1", ItemType::label));
  EXPECT_EQ(Music::nextId(recording), "m3");
  EXPECT_NE(Music::bed(recording, "m1"), nullptr);
  EXPECT_EQ(Music::bed(recording, "m2"), nullptr);  // a line is no bed
  EXPECT_EQ(Music::label(recording, "m1"), nullptr);
  EXPECT_NE(Music::label(recording, "g1"), nullptr);
}

TEST(Music, ACollidingNameKeepsItsExtension) {
  EXPECT_EQ(Music::collisionName("theme.mp3", "a1b2"), "theme-a1b2.mp3");
  EXPECT_EQ(Music::collisionName("theme.final.wav", "x"), "theme.final-x.wav");
  EXPECT_EQ(Music::collisionName("theme", "x"), "theme-x");
  EXPECT_EQ(Music::collisionName(".hidden", "x"), ".hidden-x");
}

TEST(Music, SentencesAndFeedLines) {
  EXPECT_EQ(Music::noLength("empty.wav"), "empty.wav has no length this app can measure. Try a wav or an mp3.");
  EXPECT_EQ(Music::addedEvent("m1", "theme.wav", 12.34, 2), "music m1 — theme.wav, 12.3s at 2.00");
  EXPECT_EQ(Music::gainEvent("m1", -6), "music m1 gain -6.0 dB");
}

}  // namespace
}  // namespace tavorin
