#include <gtest/gtest.h>

#include "kit/Diff.hpp"
#include "kit/Looks.hpp"
#include "kit/Subtitles.hpp"

namespace tavorin {
namespace {

using Kind = Diff::Change::Kind;

TimelineItem line(std::string id, std::string text, double start) {
  TimelineItem item(std::move(id), ItemType::line);
  item.text = std::move(text);
  item.start = start;
  item.hold = 2;
  return item;
}

Zoom zoom(std::string id, double from) {
  Zoom z;
  z.id = std::move(id);
  z.from = from;
  z.to = from + 2;
  z.scale = 2;
  return z;
}

Recording production() {
  Recording r("demo", "Demo");
  TimelineItem bed("m1", ItemType::audio);
  bed.file = "music/bed.m4a";
  r.timeline = {line("l1", "Hello there.", 0), line("l2", "This is the app.", 2.25), bed};
  return r;
}

template <typename Edit>
Recording edited(Edit edit) {
  auto r = production();
  edit(r);
  return r;
}

TEST(Diff, EqualProductionsHaveNoChanges) {
  const auto r = production();
  EXPECT_TRUE(Diff::between(r, r).isEmpty());
  EXPECT_EQ(Diff::between(r, r).summary(), "no changes");
  EXPECT_EQ(Diff::name(r, r), "the edit");
  // Defaults compare as their values: rate 1, a bed's -18 dB, start 0, no segments.
  const auto same = edited([](Recording& r) {
    r.timeline[0].rate = 1;
    r.timeline[2].gain = -18;
    r.timeline[0].start.reset();
    r.segments = std::vector<Segment>{};
  });
  EXPECT_TRUE(Diff::between(r, same).items.empty());
  EXPECT_TRUE(Diff::between(r, same).production.empty());
}

TEST(Diff, ItemChangesAreSortedByIdAndCounted) {
  const auto before = production();
  const auto after = edited([](Recording& r) {
    r.timeline[0].text = "Hello, and welcome.";
    r.timeline[1].start = 3;
    r.timeline[1].voice = "bf_emma";
    r.timeline[2].trimIn = 4;
    r.timeline.push_back(line("a0", "First.", 0));
  });
  const auto result = Diff::between(before, after);
  ASSERT_EQ(result.items.size(), 4u);
  EXPECT_EQ(result.items[0].id, "a0");
  EXPECT_EQ(result.items[1].changes, std::vector{Diff::Change::of(Kind::retexted)});
  EXPECT_EQ(result.items[2].changes,
            (std::vector{Diff::Change::retimed(2.25, 3), Diff::Change::revoiced(std::nullopt, "bf_emma")}));
  EXPECT_EQ(result.summary(), "1 added · 1 retexted · 1 revoiced · 1 retimed · 1 music adjusted");

  const auto gone = edited([](Recording& r) { r.timeline.erase(r.timeline.begin()); });
  EXPECT_EQ(Diff::between(before, gone).summary(), "1 removed");
}

TEST(Diff, RendersAndRates) {
  const auto before = edited([](Recording& r) { r.timeline[1].audio = "audio/l2.wav"; });
  auto after = before;
  after.timeline[0].audio = "audio/l1.wav";
  after.timeline[0].rate = 1.1;
  after.timeline[1].audio = "audio/l2-2.wav";  // another file is a new render
  after.timeline[2].gain = -12;
  EXPECT_EQ(Diff::between(before, after).summary(), "1 re-rated · 2 rendered · 1 music adjusted");
  EXPECT_EQ(Diff::between(after, production()).summary(), "1 re-rated · 2 now unrendered · 1 music adjusted");
}

TEST(Diff, ProductionSentencesFollowTheCounts) {
  const auto before = edited([](Recording& r) { r.zooms = std::vector{zoom("z1", 1), zoom("z2", 4)}; });
  auto after = before;
  after.title = "Demo, take two";
  after.voice.voice = "af_heart";
  after.voice.driver = "local";
  after.gap = 0.5;
  after.description = "A short film.";
  after.subtitles = SubtitleStyle{};
  after.subtitles->size = 6;
  for (auto& z : *after.zooms) z.scale = 1.5;
  after.segments = std::vector{Segment{"s1", "take-1", 0, 10, std::nullopt}};
  after.look = Looks::fresh();
  after.timeline[0].text = "Hi.";

  EXPECT_EQ(Diff::between(before, after, true).summary(),
            "1 retexted · title: Demo → Demo, take two · cast: — — → — af_heart · voice: kokoro → local · "
            "gap: 0.00 → 0.50 · description changed · subtitles Archivo · 6.0% · bottom · cut: 0 → 1 · "
            "zooms: 2 changed · look: Slate · 6% padding · 2.0% corner · shadow · blocking changed");
  EXPECT_EQ(Diff::spanLine("cut", 2, 4), "cut: 2 → 4");
}

TEST(DiffName, ArrivalsAndDepartures) {
  const auto before = production();
  const auto one = edited([](Recording& r) { r.timeline.push_back(line("l3", "More.", 5)); });
  EXPECT_EQ(Diff::name(before, one), "the new line");
  auto two = one;
  two.timeline.push_back(TimelineItem("g1", ItemType::label));
  EXPECT_EQ(Diff::name(one, two), "the label");
  EXPECT_EQ(Diff::name(before, two), "the paste");
  EXPECT_EQ(Diff::name(one, before), "the delete");

  // One in and one out is no paste.
  auto swapped = one;
  swapped.timeline.erase(swapped.timeline.begin());
  EXPECT_EQ(Diff::name(before, swapped), "the edit");
}

TEST(DiffName, OneItemIsNamedByItsWeightiestField) {
  const auto named = [](auto edit, std::size_t index = 0) {
    return Diff::name(production(), edited([&](Recording& r) { edit(r.timeline[index]); }));
  };
  EXPECT_EQ(named([](auto& i) { i.text = "Changed."; }), "the line text");
  EXPECT_EQ(named([](auto& i) { i.audio = "audio/l1.wav"; }), "the render");
  EXPECT_EQ(named([](auto& i) { i.character = "Narrator"; }), "the casting");
  EXPECT_EQ(named([](auto& i) {
              i.rate = 1.2;
              i.start = 1;
            }),
            "the move");
  EXPECT_EQ(named([](auto& i) { i.hold = 3; }), "the hold");
  EXPECT_EQ(named([](auto& i) { i.trimOut = 30; }, 2), "the trim");
  EXPECT_EQ(named([](auto& i) { i.code = "wait 1"; }), "the edit");

  const auto rendered = edited([](Recording& r) { r.timeline[0].audio = "audio/l1.wav"; });
  EXPECT_EQ(Diff::name(rendered, production()), "the audio");
  const auto both = edited([](Recording& r) { r.timeline[0].text = r.timeline[1].text = "A."; });
  EXPECT_EQ(Diff::name(production(), both), "the edit");
}

TEST(DiffName, ProductionFieldsInPriorityOrder) {
  const auto named = [](auto edit) { return Diff::name(production(), edited(edit)); };
  EXPECT_EQ(named([](Recording& r) {
              r.title = "X";
              r.zooms = std::vector{zoom("z1", 0)};
            }),
            "the zoom");
  EXPECT_EQ(named([](Recording& r) { r.look = Looks::fresh(); }), "the look");
  EXPECT_EQ(named([](Recording& r) { r.voice.driver = "local"; }), "the casting");
  EXPECT_EQ(named([](Recording& r) { r.agent = AgentPolicy{}; }), "the agent rules");
  EXPECT_EQ(named([](Recording& r) { r.gap = 0.4; }), "the gap");
}

TEST(Summaries, LooksAndSubtitles) {
  EXPECT_EQ(Looks::summary(std::nullopt), "off");
  Look look = Looks::fresh();
  look.shadow = false;
  EXPECT_EQ(Looks::summary(look), "Slate · 6% padding · 2.0% corner");
  look.padding = 0.4;  // held to the widest padding
  look.background = Look::Background{"nonesuch", std::nullopt, std::nullopt};
  EXPECT_EQ(Looks::summary(look), "Slate · 25% padding · 2.0% corner");
  look.background = Look::Background{"tide", "#a0b1c2", std::nullopt};
  EXPECT_EQ(Looks::groundSays(look), "#A0B1C2");
  look.background->image = "look/desk photo.png";
  EXPECT_EQ(Looks::groundSays(look), "desk photo.png");

  EXPECT_EQ(Subtitles::summary(std::nullopt), "Archivo · 5.0% · bottom");
  SubtitleStyle style;
  style.font = "   ";
  style.size = 20;  // held to the largest size
  style.position = "top";
  EXPECT_EQ(Subtitles::summary(style), "Archivo · 14.0% · top");
  style.anchor = SubtitleStyle::Anchor{2, 0.3};
  EXPECT_EQ(Subtitles::summary(style), "Archivo · 14.0% · 100% × 30%");
}

}  // namespace
}  // namespace tavorin
