#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "TestSupport.hpp"
#include "kit/Zooms.hpp"

using namespace tavorin;

namespace {

Zoom zoom(const std::string& id, double from, double to, double scale = 2) {
  Zoom z;
  z.id = id;
  z.from = from;
  z.to = to;
  z.scale = scale;
  return z;
}

Recording with(std::vector<Zoom> zooms) {
  Recording r("p", "Film");
  r.zooms = std::move(zooms);
  return r;
}

std::vector<std::pair<double, double>> spans(const Recording& r) {
  std::vector<std::pair<double, double>> out;
  for (const auto& z : Zooms::list(r)) out.emplace_back(z.from, z.to);
  return out;
}

// The z expression of a zoompan filter, evaluated by ffmpeg's own expression evaluator
// at `rate` samples a second for `seconds`, with the clock named t.
std::vector<double> evaluatedByFfmpeg(const std::string& filter, int rate, double seconds) {
  const auto open = filter.find("z='") + 3;
  const std::string expression = filter.substr(open, filter.find('\'', open) - open);
  char graph[4096];
  std::snprintf(graph, sizeof graph, "aevalsrc='%s':s=%d:d=%g", expression.c_str(), rate, seconds);
  // The graph travels in the environment, so no shell quoting stands between it and ffmpeg.
  tavorin::test::ScopedEnv env("ZOOM_GRAPH", std::string(graph));
  FILE* pipe = popen("ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i \"$ZOOM_GRAPH\" -f f64le - 2>/dev/null",
                     "r");
  std::vector<double> values;
  if (!pipe) return values;
  double v;
  while (std::fread(&v, sizeof v, 1, pipe) == 1) values.push_back(v);
  pclose(pipe);
  return values;
}

bool haveFfmpeg() { return std::system("command -v ffmpeg >/dev/null 2>&1") == 0; }

}  // namespace

TEST(Zooms, ScaleRampAndAnchorLimits) {
  EXPECT_EQ(Zooms::clampScale(0.5), 1.1);
  EXPECT_EQ(Zooms::clampScale(9), 5);
  Zoom z = zoom("z1", 0, 2);
  z.ramp = 10;  // maxRamp, then the share of the zoom
  EXPECT_DOUBLE_EQ(Zooms::ramp(z), 0.8);
  z.ramp = -1;
  EXPECT_EQ(Zooms::ramp(z), 0);
  z.ramp.reset();
  EXPECT_DOUBLE_EQ(Zooms::ramp(z), 0.6);
  z.style = "spring";
  EXPECT_DOUBLE_EQ(Zooms::ramp(z), 0.45);
  z.style = "bouncy";  // anything unknown reads as smooth
  EXPECT_EQ(Zooms::style(z), Zooms::Style::smooth);
  EXPECT_EQ(Zooms::ramp(zoom("z2", 3, 3)), 0);

  EXPECT_EQ(Zooms::window(2, 0, 0), (Zooms::Frame{2, 0.25, 0.25}));
  EXPECT_EQ(Zooms::window(4, 1, 0.5), (Zooms::Frame{4, 0.875, 0.5}));
}

TEST(Zooms, ScaleIsOneOutsideAndEasesAtBothEnds) {
  Zoom z = zoom("z1", 1, 5, 3);
  EXPECT_EQ(Zooms::scale(z, 0.99), 1);
  EXPECT_EQ(Zooms::scale(z, 5), 1);  // `to` is outside
  EXPECT_EQ(Zooms::scale(z, 1), 1);
  EXPECT_DOUBLE_EQ(Zooms::scale(z, 3), 3);
  EXPECT_DOUBLE_EQ(Zooms::scale(z, 1.3), 1 + 2 * 0.5);   // half way up the ramp
  EXPECT_DOUBLE_EQ(Zooms::scale(z, 4.85), 1 + 2 * 0.0625);  // a quarter from the end
  z.style = "spring";
  // In the middle p is 1, and the spring has not quite settled.
  const double middle = Zooms::scale(z, 3);
  EXPECT_NE(middle, 3);
  EXPECT_NEAR(middle, 1 + 2 * (1 - std::exp(-5) * std::cos(7)), 1e-12);
  z.ramp = 0;
  EXPECT_EQ(Zooms::scale(z, 1.01), 3);
  z.scale = 40;
  EXPECT_EQ(Zooms::scale(z, 2), 5);
}

TEST(Zooms, FrameAimsAtTheClampedAnchorInsideThePicture) {
  Recording r = with({zoom("z1", 0, 4, 2)});
  EXPECT_EQ(Zooms::frame(5, r), (Zooms::Frame{1, 0.5, 0.5}));
  r.zooms->front().anchor = Zoom::Anchor{-3, 0.9};
  EXPECT_EQ(Zooms::frame(2, r), (Zooms::Frame{2, 0.25, 0.75}));
  EXPECT_EQ(Zooms::active(4, r), nullptr);
  EXPECT_EQ(Zooms::active(0, r), &r.zooms->front());
}

TEST(Zooms, RoomKeepsZoomsApartButLetsThemTouch) {
  Recording r = with({zoom("z1", 1, 3), zoom("z2", 5, 7)});
  EXPECT_EQ(Zooms::room(r, "", 3, 5), (Zooms::Span{3, 5}));  // end to start is fine
  EXPECT_EQ(Zooms::room(r, "", 2, 4), (Zooms::Span{3, 4}));
  EXPECT_EQ(Zooms::room(r, "", 4, 9), (Zooms::Span{4, 5}));
  EXPECT_FALSE(Zooms::room(r, "", 4.9, 6));
  EXPECT_EQ(Zooms::room(r, "z2", 4, 9), (Zooms::Span{4, 9}));  // a zoom does not block itself

  Recording tight = with({zoom("z1", 0, 1), zoom("z2", 1.15, 3)});
  EXPECT_FALSE(Zooms::add(tight, 1, 0.1, 2, {}, {}));  // raised to 0.2, but only 0.15 is free
  EXPECT_EQ(tight.zooms->size(), 2u);
}

TEST(Zooms, AddAndDuplicateFindTheirRoom) {
  Recording r("p", "Film");
  auto id = Zooms::add(r, -1, 0.1, 9, Zoom::Anchor{0.2, 0.3}, "spring");
  ASSERT_TRUE(id);
  EXPECT_EQ(*id, "z1");
  EXPECT_EQ(r.zooms->front(), (Zoom{"z1", 0, 0.2, 5, Zoom::Anchor{0.2, 0.3}, "spring", {}}));

  ASSERT_TRUE(Zooms::add(r, 5, 2, 2, {}, {}));
  auto copy = Zooms::duplicate(r, "z1", std::nullopt);  // right after the original
  ASSERT_TRUE(copy);
  EXPECT_EQ(*copy, "z3");
  EXPECT_EQ(spans(r), (std::vector<std::pair<double, double>>{{0, 0.2}, {0.2, 0.4}, {5, 7}}));
  EXPECT_EQ(Zooms::zoom("z3", r)->style, "spring");
  EXPECT_FALSE(Zooms::duplicate(r, "z1", 4.9));  // only a tenth of a second before z2
  EXPECT_FALSE(Zooms::duplicate(r, "z9", 1));
}

TEST(Zooms, MoveLandsBesideANeighbourOrNowhere) {
  Recording r = with({zoom("z1", 0, 2), zoom("z2", 4, 6)});
  EXPECT_TRUE(Zooms::move(r, "z1", 3.5));  // middle 4.5 is before z2's 5: lands before it
  EXPECT_EQ(spans(r).front(), (std::pair<double, double>{2, 4}));
  EXPECT_TRUE(Zooms::move(r, "z1", 4.5));  // middle 5.5 is past z2's: lands after it
  EXPECT_EQ(spans(r).back(), (std::pair<double, double>{6, 8}));
  EXPECT_TRUE(Zooms::move(r, "z1", 10.12345));
  EXPECT_EQ(Zooms::zoom("z1", r)->from, 10.123);

  Recording boxed = with({zoom("z1", 0, 3), zoom("z2", 3.5, 5), zoom("z3", 5, 9)});
  EXPECT_FALSE(Zooms::move(boxed, "z2", 0.5));  // no gap anywhere near holds 1.5s
  EXPECT_EQ(spans(boxed)[1], (std::pair<double, double>{3.5, 5}));
}

TEST(Zooms, ResizeHoldsTheLeastLengthAndTheNeighbours) {
  Recording r = with({zoom("z1", 1, 3), zoom("z2", 5, 7)});
  EXPECT_TRUE(Zooms::resize(r, "z1", 2.95, std::nullopt));
  EXPECT_DOUBLE_EQ(Zooms::zoom("z1", r)->from, 2.8);
  EXPECT_TRUE(Zooms::resize(r, "z1", std::nullopt, 9));
  EXPECT_EQ(Zooms::zoom("z1", r)->to, 5);  // stops at z2
  EXPECT_FALSE(Zooms::resize(r, "z2", 4.95, 5.1));
  EXPECT_FALSE(Zooms::resize(r, "z9", 1, 2));
}

TEST(Zooms, SettersClampAndRound) {
  Recording r = with({zoom("z1", 1, 3)});
  EXPECT_TRUE(Zooms::setScale(r, "z1", 0.3));
  EXPECT_EQ(r.zooms->front().scale, 1.1);
  EXPECT_TRUE(Zooms::setAnchor(r, "z1", 0.123456, 7));
  EXPECT_EQ(r.zooms->front().anchor, (Zoom::Anchor{0.1235, 1}));
  EXPECT_TRUE(Zooms::setRamp(r, "z1", 12));
  EXPECT_EQ(r.zooms->front().ramp, 4);
  EXPECT_TRUE(Zooms::setRamp(r, "z1", std::nullopt));
  EXPECT_FALSE(r.zooms->front().ramp);
  EXPECT_TRUE(Zooms::setStyle(r, "z1", "spring"));
  EXPECT_EQ(Zooms::summary(r.zooms->front()), "1.10× spring at 12% × 100%");
  EXPECT_FALSE(Zooms::setScale(r, "z2", 2));
  EXPECT_TRUE(Zooms::remove(r, "z1"));
  EXPECT_FALSE(Zooms::remove(r, "z1"));
  EXPECT_FALSE(r.zooms);
}

TEST(Zooms, SlideFollowsTheCutAndKeepsTheLeastLength) {
  Recording r = with({zoom("z1", 0, 2), zoom("z2", 3, 5), zoom("z3", 6, 8)});
  Zooms::slide(r, 2.5, -2.8);  // z2 is squeezed onto the join, z3 keeps its length
  EXPECT_EQ(spans(r), (std::vector<std::pair<double, double>>{{0, 2}, {2.5, 2.7}, {3.2, 5.2}}));
  Recording across = with({zoom("z1", 1, 4)});
  Zooms::slide(across, 2, 1.00049);  // only the end past the join moves
  EXPECT_EQ(spans(across).front(), (std::pair<double, double>{1, 5}));
}

TEST(Zooms, RatesPrintAsFfmpegReadsThem) {
  EXPECT_EQ(Zooms::rate(29.97), "29.970");
  EXPECT_EQ(Zooms::rate(30.004), "30");
  EXPECT_EQ(Zooms::rate(0), "30");
  EXPECT_EQ(Zooms::rate(59.94), "59.940");
}

TEST(Zooms, FilterTextSpellsTheGateTheCurveAndTheAim) {
  Zoom z = zoom("z1", 1, 3, 2);
  z.anchor = Zoom::Anchor{0.25, 0.75};
  z.ramp = 0;
  auto text = Zooms::filter({z}, 1280, 720, 30, "t");
  ASSERT_TRUE(text);
  EXPECT_EQ(*text,
            "fps=30,zoompan=z='1+1.0000*between(t,1.0000,3.0000)*(if(lt(1,0.5),4*pow(1,3),1-pow(2-2*1,3)/2))'"
            ":x='iw*(0.5-0.2500*between(t,1.0000,3.0000))-iw/zoom/2'"
            ":y='ih*(0.5+0.2500*between(t,1.0000,3.0000))-ih/zoom/2':d=1:s=1280x720:fps=30");
  EXPECT_FALSE(Zooms::filter({zoom("z1", 1, 1.1)}, 1280, 720, 30, "t"));
  EXPECT_FALSE(Zooms::filter({z}, 0, 720, 30, "t"));
  EXPECT_EQ(Zooms::curve("p", Zooms::Style::spring), "1-exp(-5*p)*cos(7*p)");
}

// The expression text is what the export runs, so it is checked by ffmpeg's own
// evaluator against the curves written out here by hand.
TEST(Zooms, FfmpegEvaluatesTheFilterToTheCurves) {
  if (!haveFfmpeg()) GTEST_SKIP() << "ffmpeg is not installed (Debian package ffmpeg)";
  Zoom eased = zoom("z1", 0.5, 2.5, 3);  // smooth, ramp 0.6
  Zoom spring = zoom("z2", 3, 4, 2);     // spring, ramp 0.4 (the share of 1 second)
  spring.style = "spring";
  auto text = Zooms::filter({eased, spring}, 320, 240, 30, "t");
  ASSERT_TRUE(text);
  const int rate = 20;
  auto values = evaluatedByFfmpeg(*text, rate, 5);
  ASSERT_EQ(values.size(), 100u);

  auto cubic = [](double p) { return p < 0.5 ? 4 * p * p * p : 1 - (2 - 2 * p) * (2 - 2 * p) * (2 - 2 * p) / 2; };
  auto bounce = [](double p) { return 1 - std::exp(-5 * p) * std::cos(7 * p); };
  auto expected = [&](double t) {
    if (t >= 0.5 && t <= 2.5) return 1 + 2 * cubic(std::clamp(std::min((t - 0.5) / 0.6, (2.5 - t) / 0.6), 0.0, 1.0));
    if (t >= 3 && t <= 4) return 1 + 1 * bounce(std::clamp(std::min((t - 3) / 0.4, (4 - t) / 0.4), 0.0, 1.0));
    return 1.0;
  };
  for (int n : {0, 9, 12, 14, 20, 30, 45, 48, 50, 61, 64, 68, 70, 80, 99}) {
    const double t = static_cast<double>(n) / rate;
    EXPECT_NEAR(values[n], expected(t), 1e-9) << "t = " << t;
  }
  // And the monitor's curve agrees with the export's inside each zoom.
  EXPECT_NEAR(values[20], Zooms::scale(eased, 1.0), 1e-9);
  EXPECT_NEAR(values[64], Zooms::scale(spring, 3.2), 1e-9);
}
