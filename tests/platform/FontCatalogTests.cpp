#include "platform/FontCatalog.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "TestSupport.hpp"

namespace tavorin {
namespace {

using test::TempDir;

TEST(FontCatalog, TheHouseFolderIsChosenThenTheCheckout) {
  TempDir dir;
  {
    test::ScopedEnv chosen("TAVORIN_FONTS", dir.path().string());
    // An empty folder holds no faces, so the checkout's are used.
    const auto folder = FontCatalog::houseFolder();
    ASSERT_TRUE(folder);
    EXPECT_TRUE(std::filesystem::exists(*folder / "Archivo-Regular.ttf"));
    test::writeFile(dir / "Custom.TTF", "");
    EXPECT_EQ(FontCatalog::houseFolder(), dir.path());
  }
}

TEST(FontCatalog, HouseFacesComeFirstAndTheRestInOrder) {
  test::ScopedEnv chosen("TAVORIN_FONTS", std::nullopt);
  ASSERT_TRUE(FontCatalog::registerHouseFaces());
  const auto all = FontCatalog::families();
  ASSERT_GE(all.size(), 2u);
  EXPECT_EQ(all[0], "Archivo");
  EXPECT_EQ(all[1], "IBM Plex Mono");
  EXPECT_EQ(std::count(all.begin(), all.end(), "Archivo"), 1);
  const auto lowered = [](std::string s) {
    std::ranges::transform(s, s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
  };
  EXPECT_TRUE(std::is_sorted(all.begin() + 2, all.end(),
                             [&](const auto& a, const auto& b) { return lowered(a) < lowered(b); }));
  if (FontCatalog::has(FontCatalog::fallbackFace)) {
    EXPECT_NE(std::find(all.begin(), all.end(), FontCatalog::fallbackFace), all.end());
  }

  EXPECT_EQ(FontCatalog::families("plex"), std::vector<std::string>{"IBM Plex Mono"});
  EXPECT_TRUE(FontCatalog::families("no face is called this").empty());

  const auto report = FontCatalog::report();
  ASSERT_EQ(report.faces.size(), 2u);
  EXPECT_TRUE(report.faces[0].second);
  EXPECT_TRUE(report.faces[1].second);
  EXPECT_FALSE(report.note);
}

}  // namespace
}  // namespace tavorin
