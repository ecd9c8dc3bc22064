#include <gtest/gtest.h>

#include <cstdlib>

#include "TestSupport.hpp"
#include "platform/LookPainter.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {

int red(std::uint32_t p) { return (p >> 16) & 0xFF; }
int green(std::uint32_t p) { return (p >> 8) & 0xFF; }
int blue(std::uint32_t p) { return p & 0xFF; }

Look withGround(Look::Background background, bool shadow = false) {
  Look look = Looks::fresh();
  look.shadow = shadow;
  look.background = std::move(background);
  return look;
}

}  // namespace

TEST(Wallpapers, NoiseIsTheSameForTheSameSeed) {
  const auto a = Wallpapers::noise(16, 42), b = Wallpapers::noise(16, 42), c = Wallpapers::noise(16, 43);
  EXPECT_EQ(a.size(), 16u * 16 * 4);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, c);
  EXPECT_TRUE(Wallpapers::noise(0, 42).empty());
  // Not one value over and over: the bytes spread across the range.
  int low = 0, high = 0;
  for (auto v : a) (v < 128 ? low : high)++;
  EXPECT_GT(low, 300);
  EXPECT_GT(high, 300);
}

TEST(Wallpapers, StoreKeepsTheNewestFew) {
  Wallpapers::Store store(2);
  const auto& fields = std::get<Looks::Fields>(Looks::named("field-dusk").wallpaper);
  store.hold(fields, 10, 10, Image{10, 10, {}});
  store.hold(fields, 20, 20, Image{20, 20, {}});
  store.hold(fields, 10, 10, Image{10, 10, {1}});  // painted again: newest now
  store.hold(fields, 30, 30, Image{30, 30, {}});
  EXPECT_EQ(store.size(), 2u);
  EXPECT_FALSE(store.find(fields, 20, 20));
  EXPECT_EQ(store.find(fields, 10, 10)->pixels, std::vector<std::uint32_t>{1});
}

TEST(LookPainter, GroundsPaintTheirColours) {
  const Looks::Rect picture{20, 20, 160, 80};
  const fs::path none;
  const Image colour = LookPainter::background(withGround({std::nullopt, "#2060C0", std::nullopt}), {200, 120}, picture, none);
  EXPECT_EQ(colour.at(0, 0) & 0xFFFFFF, 0x2060C0u);
  EXPECT_EQ(colour.at(199, 119) & 0xFFFFFF, 0x2060C0u);

  // Slate runs from dark at the top to lighter at the bottom.
  const Image slate = LookPainter::background(withGround({"slate", std::nullopt, std::nullopt}), {200, 120}, picture, none);
  EXPECT_LT(blue(slate.at(100, 2)), blue(slate.at(100, 117)));
  EXPECT_LT(red(slate.at(100, 0)), red(slate.at(100, 119)));

  // A fields wallpaper has its warm pool low in the frame, and comes from the cache the second time.
  const Look dusk = withGround({"field-dusk", std::nullopt, std::nullopt});
  const Image a = LookPainter::background(dusk, {320, 180}, picture, none);
  const Image b = LookPainter::background(dusk, {320, 180}, picture, none);
  EXPECT_EQ(a.pixels, b.pixels);
  EXPECT_GT(red(a.at(186, 175)), red(a.at(186, 5)));

  // The shadow darkens the ground just under the picture and nowhere far from it.
  const Image shadowed = LookPainter::background(withGround({std::nullopt, "#FFFFFF", std::nullopt}, true),
                                                 {200, 120}, picture, none);
  EXPECT_LT(green(shadowed.at(100, 101)), 230);
  EXPECT_EQ(shadowed.at(2, 2) & 0xFFFFFF, 0xFFFFFFu);
}

TEST(LookPainter, ImageGroundCoversTheFrameAndMissingOneFallsBack) {
  test::TempDir dir;
  fs::create_directories(dir / "look");
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i color=c=0x00FF00:size=40x10 -frames:v 1 " +
                         (dir / "look/green.png").string()).c_str()), 0);
  const Looks::Rect picture{10, 10, 80, 80};
  const Image image =
      LookPainter::background(withGround({std::nullopt, std::nullopt, "look/green.png"}), {100, 100}, picture, dir.path());
  EXPECT_EQ(image.at(0, 0) & 0xFFFFFF, 0x00FE00u);
  EXPECT_EQ(image.at(99, 99) & 0xFFFFFF, 0x00FE00u);
  const Image fallback =
      LookPainter::background(withGround({std::nullopt, std::nullopt, "look/gone.png"}), {100, 100}, picture, dir.path());
  const Image slate = LookPainter::background(withGround({"slate", std::nullopt, std::nullopt}), {100, 100}, picture, dir.path());
  EXPECT_EQ(fallback.pixels, slate.pixels);
}

TEST(LookPainter, MaskRoundsTheCornersAndIsWritten) {
  const Image mask = LookPainter::mask({100, 60}, 12);
  EXPECT_EQ(mask.at(0, 0) & 0xFFFFFF, 0u);
  EXPECT_EQ(mask.at(99, 59) & 0xFFFFFF, 0u);
  EXPECT_EQ(mask.at(50, 0) & 0xFFFFFF, 0xFFFFFFu);
  EXPECT_EQ(mask.at(12, 12) & 0xFFFFFF, 0xFFFFFFu);
  EXPECT_EQ(LookPainter::mask({10, 10}, 0).at(0, 0) & 0xFFFFFF, 0xFFFFFFu);

  test::TempDir dir;
  LookPainter::write(mask, dir / "mask.png");
  EXPECT_GT(fs::file_size(dir / "mask.png"), 0u);
  EXPECT_EQ(test::refusal([&] { LookPainter::write(mask, dir / "no/such/mask.png"); }),
            "couldn't write mask.png: No such file or directory");
}
