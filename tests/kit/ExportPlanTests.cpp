#include <gtest/gtest.h>

#include <cmath>

#include "kit/Export.hpp"
#include "kit/ExportPlan.hpp"

using namespace tavorin;

namespace {

TimelineItem line(const std::string& id, std::optional<double> start, std::optional<double> duration,
                  std::optional<std::string> audio, std::string text = "words") {
  TimelineItem it(id, ItemType::line);
  it.start = start;
  it.duration = duration;
  it.audio = audio;
  it.text = text;
  return it;
}

TimelineItem bed(const std::string& id, double start, std::optional<std::string> file, double gain) {
  TimelineItem it(id, ItemType::audio);
  it.start = start;
  it.file = file;
  it.duration = 30;
  it.trimIn = 2;
  it.trimOut = 12;
  it.gain = gain;
  return it;
}

Take take(double seconds, double slate = 0.5, double tail = 0.5) {
  Take t;
  t.id = "t1";
  t.video = "film.mp4";
  t.seconds = seconds;
  t.pads = {slate, tail};
  t.status = Take::Status::complete;
  t.startedAt = "2026-01-01T00:00:00Z";
  return t;
}

}  // namespace

TEST(ExportSize, NeverEnlargesAndKeepsTheAspect) {
  ExportTarget target;
  target.height = 4000;
  auto size = Export::size(target, 1920, 1080, 30);
  EXPECT_EQ(size.height, 1080);
  EXPECT_FALSE(size.scaled);

  target.height = 720;
  size = Export::size(target, 1920, 1080, 30);
  EXPECT_EQ(size.frame(), "1280 × 720");
  EXPECT_TRUE(size.scaled);
  EXPECT_EQ(size.pixels(), 1280 * 720);

  // Odd sizes are brought to even ones, halved, rounded and doubled, before anything else.
  size = Export::size({}, 1001, 599, 0);
  EXPECT_EQ(size.width, 1002);
  EXPECT_EQ(size.height, 600);
  EXPECT_EQ(size.fps, 30);
}

TEST(ExportSize, GifCapsWidthAndRate) {
  ExportTarget target;
  target.format = ExportFormat::gif;
  auto size = Export::size(target, 2560, 1440, 60);
  EXPECT_EQ(size.width, 1280);
  EXPECT_EQ(size.height, 720);
  EXPECT_EQ(size.fps, 15);
  EXPECT_TRUE(size.rated);
  EXPECT_TRUE(size.scaled);
  EXPECT_EQ(Export::scaleFilter(size), "scale=1280:720:flags=lanczos");
  EXPECT_EQ(Export::scaleFilter(Export::size({}, 1280, 720, 30)), std::nullopt);

  ExportTarget slower;
  slower.fps = 24;
  EXPECT_FALSE(Export::size(slower, 640, 360, 23.976).rated);
  EXPECT_TRUE(Export::size(slower, 640, 360, 60).rated);
}

TEST(ExportSize, ChoicesOfSizeAndRate) {
  auto ids = [](const std::vector<ExportRateChoice>& rates) {
    std::vector<std::string> out;
    for (const auto& r : rates) out.push_back(r.id);
    return out;
  };
  EXPECT_EQ(ids(Export::rates(29.97)), (std::vector<std::string>{"native", "24"}));
  EXPECT_EQ(ids(Export::rates(30)), (std::vector<std::string>{"native", "24"}));
  EXPECT_EQ(ids(Export::rates(60)), (std::vector<std::string>{"native", "30", "24"}));
  EXPECT_EQ(Export::rates(59.94)[0].title, "Native (60)");

  ExportTarget target;
  EXPECT_EQ(Export::sizeId(target), "native");
  EXPECT_EQ(Export::rateId(target), "native");
  target.height = 2160;
  target.fps = 24;
  EXPECT_EQ(Export::sizeId(target), "2160");
  EXPECT_EQ(Export::sizeTitle("2160"), "4K");
  EXPECT_EQ(Export::rateId(target), "24");
  EXPECT_EQ(Export::even(-3), 0);
  EXPECT_EQ(Export::even(1081), 1082);
}

TEST(ExportSize, EstimatesOfBytesAndTime) {
  ExportSize size{1920, 1080, 30, false, false, ExportFormat::mp4};
  // (10 × 192000 + 30 × 0.03 × 1920 × 1080 × 10) × 0.125
  EXPECT_EQ(Export::sizeBytes(size, 10, ExportQuality::balanced), 2572800);
  EXPECT_GT(*Export::sizeBytes(size, 10, ExportQuality::studio), *Export::sizeBytes(size, 10, ExportQuality::small));
  size.format = ExportFormat::gif;
  size.fps = 15;
  EXPECT_EQ(Export::sizeBytes(size, 2, ExportQuality::balanced), std::llround(15 * 1920 * 0.026 * 1080 * 2));
  EXPECT_EQ(Export::sizeBytes(size, 0, ExportQuality::balanced), std::nullopt);
  EXPECT_EQ(Export::estimateSeconds(10, std::nullopt), 40);
  EXPECT_EQ(Export::estimateSeconds(10, 0.5), 5);
}

TEST(ExportRefusals, InTheOrderAUserFixesThem) {
  Export::Footing f;
  EXPECT_EQ(Export::canExport(f, true, 0, 0), "no production is open");
  f.open = true;
  EXPECT_EQ(Export::canExport(f, true, 0, 0), "an export is already running");
  EXPECT_EQ(Export::missingFootage(f), "nothing shot, imported or dropped yet — roll a take or drop a video in");
  f.anythingShotOrImported = true;
  EXPECT_EQ(Export::missingFootage(f), "no take holds film to cut from");
  f.take = take(10);
  EXPECT_EQ(Export::missingFootage(f), "take t1 has metadata but no film on disk");
  f.takeHasFilm = f.anyTakeHasFilm = true;
  EXPECT_EQ(Export::missingFootage(f), std::nullopt);
  EXPECT_EQ(Export::canExport(f, false, 9, 9), std::nullopt);
  EXPECT_EQ(Export::canExport(f, false, 9, 12),
            "take t1 gives 9.00 s of film but the timeline runs 12.00 s — shorten the timeline or roll a longer take");
  EXPECT_EQ(Export::destinationRefusal(ExportFormat::gif, ExportDestination::youtube),
            "YouTube takes no GIF. Choose MP4 to send this one up.");
  EXPECT_EQ(Export::heightRefusal(2160, 1080), "This film holds 1080 lines of picture, so it stops there.");
  EXPECT_EQ(Export::heightRefusal(720, 1080), std::nullopt);
}

TEST(ExportRefusals, PicksTheMonitoredTakeElseTheNewestCompleteOne) {
  Take a = take(10), b = take(10), c = take(10);
  a.id = "a", b.id = "b", c.id = "c";
  b.startedAt = "2026-02-01T00:00:00Z";
  c.startedAt = "2026-03-01T00:00:00Z";
  c.status = Take::Status::aborted;
  auto all = [](const Take&) { return true; };
  EXPECT_EQ(Export::pickTake({a, b, c}, std::nullopt, all)->id, "b");
  EXPECT_EQ(Export::pickTake({a, b, c}, "a", all)->id, "a");
  EXPECT_EQ(Export::pickTake({a, b, c}, "c", all)->id, "b");
  EXPECT_EQ(Export::pickTake({a, b}, std::nullopt, [](const Take& t) { return t.id == "a"; })->id, "a");
  EXPECT_EQ(Export::pickTake({}, std::nullopt, all), std::nullopt);
}

TEST(ExportPlan, LinesBecomePiecesCaptionsOrReasons) {
  Recording r("p", "Film");
  r.timeline = {line("l1", std::nullopt, 2, "audio/l1.wav"), line("l2", 3, 0, "audio/l2.wav"),
                line("l3", 4, 1, std::nullopt), line("l4", 5, std::nullopt, std::nullopt),
                line("l5", 6, 2, "audio/g.wav")};
  r.timeline[3].hold = 1.5;
  r.timeline[4].rate = 2;
  r.timeline[4].renderedFrom = RenderedFrom{};
  r.timeline[4].renderedFrom->group = "g1";
  r.timeline[4].renderedFrom->offset = 3.25;
  const auto plan = ExportPlan::make(r, take(20));

  ASSERT_EQ(plan.pieces.size(), 2u);
  EXPECT_EQ(plan.pieces[0], (ExportPlan::Piece{"l1", "audio/l1.wav", 0, 2, 1, "words", std::nullopt}));
  EXPECT_EQ(plan.pieces[1].at, 6);
  EXPECT_EQ(plan.pieces[1].seconds, 1);  // two seconds at double speed
  EXPECT_EQ(plan.pieces[1].rate, 2);
  EXPECT_EQ(plan.pieces[1].slice, (ExportPlan::Piece::Slice{3.25, 2}));
  EXPECT_EQ(plan.pieces[1].slice->filter(), "atrim=start=3.2500:end=5.2500,asetpts=PTS-STARTPTS");
  EXPECT_EQ(plan.skipped, (std::vector<std::string>{"l2 is trimmed to nothing", "l3 has no rendered audio"}));
  // A held pause is silent by design: a caption while it holds, no piece, no reason.
  ASSERT_EQ(plan.captions.size(), 4u);
  EXPECT_EQ(plan.captions[0].at, 0);
  EXPECT_EQ(plan.captions[2].at, 5);
  EXPECT_EQ(plan.captions[2].seconds, 1.5);
}

TEST(ExportPlan, BedsAreTrimmedAndTheirGainHeld) {
  Recording r("p", "Film");
  r.timeline = {bed("m1", 1, "music/a.m4a", 12), bed("m2", 0, "music/b.m4a", -90), bed("m3", 0, std::nullopt, 0)};
  const auto plan = ExportPlan::make(r, take(20));
  ASSERT_EQ(plan.beds.size(), 2u);
  EXPECT_EQ(plan.beds[0], (ExportPlan::Bed{"m1", "music/a.m4a", 1, 2, 10, 6}));
  EXPECT_EQ(plan.beds[1].gainDb, -60);
  EXPECT_EQ(plan.skipped, (std::vector<std::string>{"m3 has no music file"}));
}

TEST(ExportPlan, ThePictureFollowsTheCut) {
  Recording r("p", "Film");
  r.timeline = {line("l1", 0, 1, "audio/l1.wav")};
  r.zooms = std::vector<Zoom>{{"z1", 1, 2, 2, std::nullopt, std::nullopt, std::nullopt},
                              {"z2", 11.995, 13, 2, std::nullopt, std::nullopt, std::nullopt}};
  auto plan = ExportPlan::make(r, take(11, 0.5, 0.5));
  EXPECT_EQ(plan.video, "takes/t1/film.mp4");
  EXPECT_EQ(plan.trimHead, 0.5);
  EXPECT_EQ(plan.duration, 10);
  EXPECT_FALSE(plan.hasCut());  // one segment from 0 at speed 1
  EXPECT_EQ(plan.sourceEnd(), 10);
  EXPECT_EQ(plan.zooms.size(), 1u);
  EXPECT_EQ(ExportPlan::runtime(r, take(11, 0.5, 0.5)), 10);

  r.segments = std::vector<Segment>{{"s1", std::nullopt, 0, 4, std::nullopt}, {"s2", std::nullopt, 6, 10, 2}};
  plan = ExportPlan::make(r, take(11, 0.5, 0.5));
  EXPECT_TRUE(plan.hasCut());
  EXPECT_EQ(plan.duration, 6);  // four seconds, then four at double speed
  EXPECT_EQ(plan.sourceEnd(), 10);

  ExportPlan one;
  one.cut = {{"s1", std::nullopt, 0.002, 5, std::nullopt}};
  EXPECT_TRUE(one.hasCut());
  one.cut = {{"s1", std::nullopt, 0, 5, 40}};  // held to 8
  EXPECT_TRUE(one.hasCut());
}

TEST(ExportPlan, WithoutFilmTheTimelineSetsTheLength) {
  Recording r("p", "Film");
  r.timeline = {line("l1", 2, 3, "audio/l1.wav")};
  r.look = Look{};
  r.look->on = true;
  r.exportTarget = ExportTarget{};
  r.exportTarget->format = ExportFormat::gif;
  const auto plan = ExportPlan::make(r, take(1, 0.5, 0.5));
  EXPECT_EQ(plan.duration, 5);
  EXPECT_TRUE(plan.hasLook());
  EXPECT_EQ(plan.target->effectiveFormat(), ExportFormat::gif);
}
