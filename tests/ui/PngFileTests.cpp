#include <gtest/gtest.h>
#include <stb/stb_image.h>

#include <vector>

#include "TestSupport.hpp"
#include "ui/PngFile.hpp"
#include "ui/StudioWindow.hpp"

using namespace tavorin;

TEST(PngFile, WritesOpenGLsBottomUpRowsTopFirst) {
  test::TempDir dir;
  // Two rows as OpenGL reads them: the bottom row (blue) first, then the top (red).
  std::vector<std::uint8_t> rgba = {0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255,
                                    255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255};
  const auto path = dir.path() / "deep/er/shot.png";
  PngFile::writeFromGL(path, 3, 2, rgba);
  int w = 0, h = 0, n = 0;
  unsigned char* px = stbi_load(path.c_str(), &w, &h, &n, 4);
  ASSERT_NE(px, nullptr);
  EXPECT_EQ(w, 3);
  EXPECT_EQ(h, 2);
  EXPECT_EQ(px[0], 255);    // top-left is red
  EXPECT_EQ(px[2], 0);
  EXPECT_EQ(px[3 * 4 + 2], 255);  // bottom-left is blue
  stbi_image_free(px);
}

TEST(PngFile, RefusesAPictureThatDoesNotMatchItsSizeAndAPathItCannotWrite) {
  test::TempDir dir;
  EXPECT_THROW(PngFile::writeFromGL(dir.path() / "a.png", 2, 2, std::vector<std::uint8_t>(4)), std::runtime_error);
  EXPECT_THROW(PngFile::writeFromGL(dir.path() / "a.png", 0, 0, {}), std::runtime_error);
  test::writeFile(dir.path() / "file", "x");
  try {
    PngFile::writeFromGL(dir.path() / "file/a.png", 1, 1, std::vector<std::uint8_t>(4, 255));
    FAIL() << "a path under a file was written";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()).rfind("can't write the PNG to " + (dir.path() / "file/a.png").string() + ". ", 0), 0u)
        << e.what();
  }
}

TEST(StudioWindowSize, FollowsTheScreenLess48WithinItsBounds) {
  EXPECT_EQ(StudioWindow::sizeFor(1280, 800), (std::pair{1232, 752}));
  EXPECT_EQ(StudioWindow::sizeFor(1000, 600), (std::pair{1180, 720}));
  EXPECT_EQ(StudioWindow::sizeFor(2560, 1440), (std::pair{1440, 900}));
}
