#include <gtest/gtest.h>

#include "kit/Looks.hpp"

using namespace tavorin;

namespace {
Look on(std::optional<double> padding = std::nullopt, std::optional<double> radius = std::nullopt) {
  Look l;
  l.on = true;
  l.padding = padding;
  l.radius = radius;
  return l;
}
}  // namespace

TEST(Looks, FractionHoldsPaddingInItsRange) {
  EXPECT_DOUBLE_EQ(Looks::fraction(std::nullopt), 0.88);
  EXPECT_DOUBLE_EQ(Looks::fraction(on()), 0.88);
  EXPECT_DOUBLE_EQ(Looks::fraction(on(0.25)), 0.5);
  EXPECT_DOUBLE_EQ(Looks::fraction(on(0.3)), 0.5);
  EXPECT_DOUBLE_EQ(Looks::fraction(on(-1)), 1);
}

TEST(Looks, GeometryOfThePictureInTheFrame) {
  Look off = on();
  off.on = false;
  EXPECT_EQ(Looks::pixels(1001, 601, off), (Looks::Rect{0, 0, 1000, 600}));
  EXPECT_EQ(Looks::inset(1000, 600, off), (Looks::Rect{0, 0, 1000, 600}));
  off.radius = 0.1;
  EXPECT_EQ(Looks::corner(1000, 600, off), 0);

  const Look look = on(0.1, 0.05);
  EXPECT_EQ(Looks::inset(1000, 600, look), (Looks::Rect{100, 60, 800, 480}));
  EXPECT_DOUBLE_EQ(Looks::corner(1000, 600, look), 30);
  // Whole even pixels, centred to within a pixel.
  const auto px = Looks::pixels(1922, 1082, on());
  EXPECT_EQ(px, (Looks::Rect{116, 64, 1690, 952}));
  for (double v : {px.x, px.y, px.width, px.height}) EXPECT_EQ(int(v) % 2, 0);
}

TEST(Looks, GroundsAndTheirWords) {
  Look look = on();
  EXPECT_EQ(Looks::summary(look), "Slate · 6% padding · 2.0% corner · shadow");
  look.shadow = false;
  EXPECT_EQ(Looks::summary(look), "Slate · 6% padding · 2.0% corner");
  look.background = Look::Background{"nowhere", std::nullopt, std::nullopt};
  EXPECT_EQ(Looks::preset(look)->id, "slate");
  look.background = Look::Background{"field-ocean", "#abc", std::nullopt};
  EXPECT_EQ(Looks::groundSays(look), "#ABC");
  EXPECT_EQ(Looks::preset(look)->title, "Ocean");
  EXPECT_TRUE(std::holds_alternative<Looks::Fields>(Looks::named("field-ocean").wallpaper));
  EXPECT_EQ(std::get<Looks::Gradient>(Looks::named("ember").wallpaper).stops.size(), 3u);
}

TEST(Looks, ColoursAndGradientLines) {
  EXPECT_EQ(Looks::hex(1, 0.5, -2), "#FF8000");
  EXPECT_EQ(Looks::rgb("#0f0"), (Looks::RGB{0, 1, 0}));
  EXPECT_EQ(Looks::rgb("#102030")->b, 0x30 / 255.0);
  for (const char* bad : {"0F0", "#12", "#12345G", "", "#1234567"}) EXPECT_FALSE(Looks::isColor(bad)) << bad;
  const auto [from, to] = Looks::line(180);
  EXPECT_NEAR(from.y, 1, 1e-9);
  EXPECT_NEAR(to.y, 0, 1e-9);
  EXPECT_NEAR(from.x, 0.5, 1e-9);
}
