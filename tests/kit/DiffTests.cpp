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

TimelineItem bed(std::string id) {
  TimelineItem item(std::move(id), ItemType::audio);
  item.file = "music/bed.m4a";
  item.start = 0;
  item.duration = 60;
  return item;
}

Zoom zoom(std::string id, double from, double to) {
  Zoom z;
  z.id = std::move(id);
  z.from = from;
  z.to = to;
  z.scale = 2;
  return z;
}

Segment segment(std::string id, double to) {
  Segment s;
  s.id = std::move(id);
  s.take = "take-1";
  s.to = to;
  return s;
}

Recording production() {
  Recording r("demo", "Demo");
  r.timeline = {line("l1", "Hello there.", 0), line("l2", "This is the app.", 2.25), bed("m1")};
  return r;
}

TEST(Diff, EqualProductionsHaveNoChangesAndAreJustAnEdit) {
  const auto r = production();
  const auto result = Diff::between(r, r);
  EXPECT_TRUE(result.isEmpty());
  EXPECT_EQ(result.summary(), "no changes");
  EXPECT_EQ(Diff::name(r, r), "the edit");
}

TEST(Diff, LineEditsAreCountedByKind) {
  const auto before = production();
  auto after = before;
  after.timeline[0].text = "Hello, and welcome.";
  after.timeline[1].start = 3;
  after.timeline[1].voice = "bf_emma";
  after.timeline.push_back(line("l3", "One more thing.", 6));

  const auto result = Diff::between(before, after);
  ASSERT_EQ(result.items.size(), 3u);
  EXPECT_EQ(result.items[0].id, "l1");
  EXPECT_EQ(result.items[0].changes, std::vector{Diff::Change::of(Kind::retexted)});
  EXPECT_EQ(result.items[1].id, "l2");
  EXPECT_EQ(result.items[1].changes,
            (std::vector{Diff::Change::retimed(2.25, 3), Diff::Change::revoiced(std::nullopt, "bf_emma")}));
  EXPECT_EQ(result.items[2].id, "l3");
  EXPECT_TRUE(result.items[2].has(Kind::added));
  EXPECT_EQ(result.summary(), "1 added · 1 retexted · 1 revoiced · 1 retimed");
}

TEST(Diff, ItemsAreSortedById) {
  auto before = production();
  auto after = before;
  after.timeline.erase(after.timeline.begin());  // l1 goes
  after.timeline.insert(after.timeline.begin(), line("a0", "First.", 0));
  const auto result = Diff::between(before, after);
  ASSERT_EQ(result.items.size(), 2u);
  EXPECT_EQ(result.items[0].id, "a0");
  EXPECT_EQ(result.items[1].id, "l1");
  EXPECT_TRUE(result.items[1].has(Kind::removed));
  EXPECT_EQ(result.summary(), "1 added · 1 removed");
}

TEST(Diff, DefaultsCountAsTheirValues) {
  auto before = production();
  auto after = before;
  after.timeline[0].rate = 1;       // a rate of 1 is the missing rate
  after.timeline[2].gain = -18;     // the default level of a bed
  after.timeline[0].start.reset();  // a missing start is 0
  EXPECT_TRUE(Diff::between(before, after).items.empty());
}

TEST(Diff, BedsAndRendersAreReported) {
  auto before = production();
  before.timeline[1].audio = "audio/l2.wav";
  auto after = before;
  after.timeline[0].audio = "audio/l1.wav";
  after.timeline[1].audio.reset();
  after.timeline[2].trimIn = 4;
  after.timeline[2].gain = -12;
  after.timeline[0].rate = 1.1;

  const auto result = Diff::between(before, after);
  ASSERT_EQ(result.items.size(), 3u);
  EXPECT_TRUE(result.items[0].has(Kind::rendered));
  EXPECT_TRUE(result.items[0].has(Kind::rerated));
  EXPECT_TRUE(result.items[1].has(Kind::unrendered));
  EXPECT_EQ(result.items[2].changes, (std::vector{Diff::Change::regained(-18, -12), Diff::Change::of(Kind::retrimmed)}));
  EXPECT_EQ(result.summary(), "1 re-rated · 1 rendered · 1 now unrendered · 1 music adjusted");

  // A different file is a new render too.
  auto again = after;
  again.timeline[0].audio = "audio/l1-2.wav";
  EXPECT_TRUE(Diff::between(after, again).items.at(0).has(Kind::rendered));
}

TEST(Diff, ProductionSentencesComeInOrderAfterTheCounts) {
  auto before = production();
  auto after = before;
  after.title = "Demo, take two";
  after.voice.voice = "af_heart";
  after.voice.driver = "local";
  after.gap = 0.5;
  after.description = "A short film.";
  after.timeline[0].text = "Hi.";

  const auto result = Diff::between(before, after, true);
  EXPECT_EQ(result.production, (std::vector<std::string>{"title: Demo → Demo, take two", "cast: — — → — af_heart",
                                                         "voice: kokoro → local", "gap: 0.00 → 0.50",
                                                         "description changed"}));
  EXPECT_EQ(result.summary(),
            "1 retexted · title: Demo → Demo, take two · cast: — — → — af_heart · voice: kokoro → local · "
            "gap: 0.00 → 0.50 · description changed · blocking changed");
}

TEST(Diff, PictureSentencesNameCountsAndSummaries) {
  auto before = production();
  before.zooms = std::vector{zoom("z1", 1, 3), zoom("z2", 4, 6), zoom("z3", 7, 9)};
  auto after = before;
  for (auto& z : *after.zooms) z.scale = 1.5;
  after.segments = std::vector{segment("s1", 10)};
  after.look = Looks::fresh();
  SubtitleStyle style;
  style.size = 6;
  after.subtitles = style;

  EXPECT_EQ(Diff::between(before, after).production,
            (std::vector<std::string>{"subtitles Archivo · 6.0% · bottom", "cut: 0 → 1", "zooms: 3 changed",
                                      "look: Slate · 6% padding · 2.0% corner · shadow"}));

  // No segments stored and an empty list are the same cut.
  auto empty = before;
  empty.segments = std::vector<Segment>{};
  EXPECT_TRUE(Diff::between(before, empty).isEmpty());
}

TEST(Diff, SpanLine) {
  EXPECT_EQ(Diff::spanLine("zooms", 3, 3), "zooms: 3 changed");
  EXPECT_EQ(Diff::spanLine("cut", 2, 4), "cut: 2 → 4");
}

TEST(DiffName, ArrivalsAndDepartures) {
  const auto before = production();
  auto one = before;
  one.timeline.push_back(line("l3", "More.", 5));
  EXPECT_EQ(Diff::name(before, one), "the new line");

  auto label = before;
  label.timeline.push_back(TimelineItem("g1", ItemType::label));
  EXPECT_EQ(Diff::name(before, label), "the label");
  auto music = before;
  music.timeline.push_back(bed("m2"));
  EXPECT_EQ(Diff::name(before, music), "the music");

  auto two = one;
  two.timeline.push_back(line("l4", "Even more.", 7));
  EXPECT_EQ(Diff::name(before, two), "the paste");

  auto gone = before;
  gone.timeline.erase(gone.timeline.begin());
  EXPECT_EQ(Diff::name(before, gone), "the delete");

  // One in, one out is no paste.
  auto swapped = gone;
  swapped.timeline.push_back(line("l9", "Other.", 9));
  EXPECT_EQ(Diff::name(before, swapped), "the edit");
}

TEST(DiffName, OneItemIsNamedByItsWeightiestField) {
  const auto before = production();
  const auto named = [&](auto change, std::size_t index = 0) {
    auto after = before;
    change(after.timeline[index]);
    return Diff::name(before, after);
  };
  EXPECT_EQ(named([](auto& i) { i.text = "Changed."; }), "the line text");
  EXPECT_EQ(named([](auto& i) { i.audio = "audio/l1.wav"; }), "the render");
  EXPECT_EQ(named([](auto& i) { i.character = "Narrator"; }), "the casting");
  EXPECT_EQ(named([](auto& i) { i.approved = true; }), "the approval");
  EXPECT_EQ(named([](auto& i) {
              i.start = 1;
              i.rate = 1.2;
            }), "the move");
  EXPECT_EQ(named([](auto& i) { i.rate = 1.2; }), "the rate");
  EXPECT_EQ(named([](auto& i) { i.hold = 3; }), "the hold");
  EXPECT_EQ(named([](auto& i) { i.note = "check the pause"; }), "the note");
  EXPECT_EQ(named([](auto& i) { i.gain = -10; }, 2), "the level");
  EXPECT_EQ(named([](auto& i) { i.trimOut = 30; }, 2), "the trim");
  EXPECT_EQ(named([](auto& i) { i.source = "https://example.org/bed"; }, 2), "the music");
  EXPECT_EQ(named([](auto& i) { i.code = "wait 1"; }), "the edit");

  auto rendered = before;
  rendered.timeline[0].audio = "audio/l1.wav";
  auto dropped = rendered;
  dropped.timeline[0].audio.reset();
  EXPECT_EQ(Diff::name(rendered, dropped), "the audio");

  auto labelled = before;
  labelled.timeline.push_back(TimelineItem("g1", ItemType::label));
  auto relabelled = labelled;
  relabelled.timeline.back().text = "Step one";
  EXPECT_EQ(Diff::name(labelled, relabelled), "the label");

  auto both = before;
  both.timeline[0].text = "A.";
  both.timeline[1].text = "B.";
  EXPECT_EQ(Diff::name(before, both), "the edit");
}

TEST(DiffName, ProductionFieldsInPriorityOrder) {
  const auto before = production();
  const auto named = [&](auto change) {
    auto after = before;
    change(after);
    return Diff::name(before, after);
  };
  EXPECT_EQ(named([](Recording& r) {
              r.zooms = std::vector{zoom("z1", 0, 2)};
              r.title = "X";
            }), "the zoom");
  EXPECT_EQ(named([](Recording& r) { r.segments = std::vector{segment("s1", 5)}; }), "the cut");
  EXPECT_EQ(named([](Recording& r) { r.subtitles = SubtitleStyle{}; }), "the subtitles");
  EXPECT_EQ(named([](Recording& r) { r.look = Looks::fresh(); }), "the look");
  EXPECT_EQ(named([](Recording& r) { r.voice.driver = "local"; }), "the casting");
  EXPECT_EQ(named([](Recording& r) { r.title = "Other"; }), "the title");
  EXPECT_EQ(named([](Recording& r) { r.description = "About."; }), "the description");
  EXPECT_EQ(named([](Recording& r) { r.capture = CaptureConfig{{}, "Firefox", {}, {}}; }), "the capture");
  EXPECT_EQ(named([](Recording& r) { r.agent = AgentPolicy{}; }), "the agent rules");
  EXPECT_EQ(named([](Recording& r) { r.gap = 0.4; }), "the gap");
}

TEST(Summaries, Looks) {
  EXPECT_EQ(Looks::summary(std::nullopt), "off");
  Look look = Looks::fresh();
  look.shadow = false;
  EXPECT_EQ(Looks::summary(look), "Slate · 6% padding · 2.0% corner");
  look.on = false;
  EXPECT_EQ(Looks::summary(look), "off");

  look = Looks::fresh();
  look.padding = 0.4;  // held to the largest padding
  look.radius = 0.035;
  look.background = Look::Background{"nonesuch", {}, {}};
  EXPECT_EQ(Looks::summary(look), "Slate · 25% padding · 3.5% corner · shadow");
  look.background = Look::Background{"tide", "#a0b1c2", {}};
  EXPECT_EQ(Looks::groundSays(look), "#A0B1C2");
  EXPECT_EQ(Looks::ground(look), (Looks::Ground{Looks::Ground::Kind::color, "#a0b1c2"}));
  look.background->image = "look/desk photo.png";
  EXPECT_EQ(Looks::groundSays(look), "desk photo.png");
  look.background = Look::Background{"field-ocean", {}, {}};
  EXPECT_EQ(Looks::groundSays(look), "Ocean");
}

TEST(Summaries, Subtitles) {
  EXPECT_EQ(Subtitles::summary(std::nullopt), "Archivo · 5.0% · bottom");
  SubtitleStyle style;
  style.font = "   ";
  style.size = 20;  // held to the largest size
  style.position = "top";
  EXPECT_EQ(Subtitles::summary(style), "Archivo · 14.0% · top");
  style.font = "IBM Plex Mono";
  style.size = 1;
  style.position = "center";
  EXPECT_EQ(Subtitles::summary(style), "IBM Plex Mono · 2.0% · center");
  style.anchor = SubtitleStyle::Anchor{2, 0.3};
  EXPECT_EQ(Subtitles::summary(style), "IBM Plex Mono · 2.0% · 100% × 30%");
}

}  // namespace
}  // namespace tavorin
