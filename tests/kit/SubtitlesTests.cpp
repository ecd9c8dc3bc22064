#include "kit/Subtitles.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "Processes.hpp"
#include "TestSupport.hpp"

namespace tavorin {
namespace {

using test::TempDir;

SubtitleStyle styled(std::optional<double> size = std::nullopt) {
  SubtitleStyle style;
  style.size = size;
  return style;
}

TEST(Subtitles, SizesAndOutlinesInPixels) {
  EXPECT_DOUBLE_EQ(Subtitles::size(styled(1)), 2);
  EXPECT_DOUBLE_EQ(Subtitles::size(styled(20)), 14);
  EXPECT_DOUBLE_EQ(Subtitles::size(styled()), 5);
  EXPECT_EQ(Subtitles::fontPixels(5, 1080), 54);
  EXPECT_EQ(Subtitles::outlinePixels(54), 3);
  EXPECT_EQ(Subtitles::outlinePixels(4), 1);
  EXPECT_EQ(Subtitles::fontPixels(2, 10), 1);  // never under a pixel
}

TEST(Subtitles, AssTimeCutsHundredthsAndFloorsAtZero) {
  EXPECT_EQ(Subtitles::assTime(3661.999), "1:01:01.99");
  EXPECT_EQ(Subtitles::assTime(0.07), "0:00:00.07");
  EXPECT_EQ(Subtitles::assTime(59.995), "0:00:59.99");
  EXPECT_EQ(Subtitles::assTime(-4), "0:00:00.00");
  EXPECT_EQ(Subtitles::assTime(36000), "10:00:00.00");
}

TEST(Subtitles, EscapeClosesOverridesAndKeepsLineBreaks) {
  EXPECT_EQ(Subtitles::escape("a {\\b1} b"), "a (\\b1) b");
  EXPECT_EQ(Subtitles::escape("one\r\ntwo\nthree\rfour"), "one\\Ntwo\\Nthree\\Nfour");
  EXPECT_EQ(Subtitles::escape("\n\r"), "\\N\\N");  // LF then CR are two breaks, not one pair
  EXPECT_EQ(Subtitles::escape("typed \\N stays"), "typed \\N stays");
  EXPECT_EQ(Subtitles::escape("שלום, עולם"), "שלום, עולם");
}

TEST(Subtitles, TheWholeFileByteForByte) {
  const std::vector<Subtitles::Caption> captions{{1.5, 1.5, "Hello"}, {3.25, -1, "{x}\nline"}};
  const std::string expected =
      "[Script Info]\n; Written by Tavorin\nScriptType: v4.00+\nWrapStyle: 0\nScaledBorderAndShadow: yes\n"
      "PlayResX: 1920\nPlayResY: 1080\n\n"
      "[V4+ Styles]\n"
      "Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, Italic, "
      "Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, Alignment, MarginL, "
      "MarginR, MarginV, Encoding\n"
      "Style: Default,Archivo,54,&H00FFFFFF,&H000000FF,&H00000000,&H80000000,0,0,0,0,100,100,0,0,1,3,0,5,154,154,"
      "154,1\n\n"
      "[Events]\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
      "Dialogue: 0,0:00:01.50,0:00:03.00,Default,,0,0,0,,{\\pos(960,999)}Hello\n"
      "Dialogue: 0,0:00:03.25,0:00:03.25,Default,,0,0,0,,{\\pos(960,999)}(x)\\Nline\n";
  EXPECT_EQ(Subtitles::ass(captions, std::nullopt, 0, -1), expected);
}

TEST(Subtitles, AStyledFileWithoutCaptionsEndsAfterTheEventsFormat) {
  SubtitleStyle style;
  style.font = "  IBM Plex Mono ";
  style.size = 10;
  style.anchor = SubtitleStyle::Anchor{2, -1};
  const auto text = Subtitles::ass({}, style, 1280, 720);
  EXPECT_NE(text.find("PlayResX: 1280\nPlayResY: 720\n"), std::string::npos);
  EXPECT_NE(text.find("Style: Default,IBM Plex Mono,72,"), std::string::npos);
  EXPECT_NE(text.find(",1,4,0,5,102,102,102,1\n"), std::string::npos);
  EXPECT_TRUE(text.ends_with("Effect, Text\n"));
  EXPECT_EQ(Subtitles::anchor(style), (SubtitleStyle::Anchor{1, 0}));
}

TEST(Subtitles, FontNamesThatWouldBreakTheStyleLine) {
  EXPECT_FALSE(Subtitles::fontRefusal("Noto \"Sans\" {Hebrew}"));
  EXPECT_TRUE(Subtitles::fontRefusal("Sans, Bold"));
  EXPECT_TRUE(Subtitles::fontRefusal("Sans\nBold"));
  SubtitleStyle style;
  style.font = "Sans, Bold";  // a document written by hand still makes a well-formed line
  const auto line = Subtitles::styleLine(style, 1920, 1080);
  EXPECT_EQ(std::count(line.begin(), line.end(), ','), 22);
  style.font = "   ";
  EXPECT_EQ(Subtitles::font(style), "Archivo");
}

TEST(Subtitles, FilterPathEscapesBothLevels) {
  EXPECT_EQ(Subtitles::filterPath("/tmp/a.ass"), "/tmp/a.ass");
  EXPECT_EQ(Subtitles::filterPath("C:x"), "C\\\\:x");
  EXPECT_EQ(Subtitles::filterPath("it's"), "it\\\\\\'s");
  EXPECT_EQ(Subtitles::filterPath("a,b[c]"), "a\\,b\\[c\\]");
}

// Renders `ass` over a black picture with libass through ffmpeg; the gray frame.
std::string burn(const TempDir& dir, const std::filesystem::path& assFile, const std::string& text) {
  test::writeFile(assFile, text);
  const auto frame = dir / "frame.gray";
  const auto fonts = std::filesystem::path(TAVORIN_TEST_DATA).parent_path().parent_path() / "resources" / "fonts";
  std::string filter = "subtitles=filename=";
  filter.append(Subtitles::filterPath(assFile.string()));
  filter.append(":fontsdir=");
  filter.append(Subtitles::filterPath(fonts.string()));
  const auto run = test::spawn("/usr/bin/ffmpeg",
                               {"-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i", "color=black:s=320x180:d=1",
                                "-vf", filter, "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "gray",
                                frame.string()},
                               {}, dir.path());
  const int status = test::waitFor(run.pid, std::chrono::seconds(60));
  EXPECT_EQ(status, 0) << test::readFile(run.err);
  return status == 0 ? test::readFile(frame) : std::string();
}

// Lit pixels in the rows [top, bottom) of a 320 × 180 gray frame.
int lit(const std::string& frame, int top, int bottom) {
  int count = 0;
  for (int y = top; y < bottom; ++y)
    for (int x = 0; x < 320; ++x)
      if (static_cast<unsigned char>(frame[std::size_t(y) * 320 + x]) > 64) ++count;
  return count;
}

TEST(Subtitles, LibassDrawsTheFileWhereTheAnchorSays) {
  if (!std::filesystem::exists("/usr/bin/ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
  TempDir dir;
  // A folder name that needs both levels of the filter's escaping.
  const auto folder = dir / "it's, a: [test]";
  std::filesystem::create_directories(folder);
  SubtitleStyle style;
  style.position = "top";
  style.size = 12;
  const auto frame = burn(dir, folder / "top.ass",
                          Subtitles::ass({{0, 1, "Hello {\\an2} עולם"}}, style, 320, 180));
  ASSERT_EQ(frame.size(), 320u * 180u);
  EXPECT_GT(lit(frame, 0, 40), 50);    // text near the top
  EXPECT_EQ(lit(frame, 100, 180), 0);  // and nothing at the bottom

  style.position = "bottom";
  style.font = "Unknown \"Face\" {odd}";  // an unknown face falls back and still draws
  const auto bottom = burn(dir, folder / "bottom.ass", Subtitles::ass({{0, 1, "Hello\nthere"}}, style, 320, 180));
  ASSERT_EQ(bottom.size(), 320u * 180u);
  EXPECT_EQ(lit(bottom, 0, 60), 0);
  EXPECT_GT(lit(bottom, 100, 180), 50);
}

}  // namespace
}  // namespace tavorin
