#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "app/model/ImportRouter.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

TEST(ImportRouter, SortsByExtensionThenByWhatTheBytesSay) {
  test::TempDir tmp;
  using K = ImportRouter::Kind;
  EXPECT_EQ(ImportRouter::kind(tmp / "Voice.WAV"), K::audio);  // the name alone, in any case
  EXPECT_EQ(ImportRouter::kind(tmp / "screen.webm"), K::video);
  EXPECT_EQ(ImportRouter::kind(tmp / "still.jpeg"), K::still);
  test::writeFile(tmp / "recording", std::string("RIFF\x24\0\0\0WAVEfmt ", 16));
  EXPECT_EQ(ImportRouter::kind(tmp / "recording"), K::audio);
  test::writeFile(tmp / "clip", std::string("\0\0\0\x18" "ftypisom", 12));
  EXPECT_EQ(ImportRouter::kind(tmp / "clip"), K::video);
  test::writeFile(tmp / "notes", "just words");
  EXPECT_EQ(ImportRouter::kind(tmp / "notes"), std::nullopt);
  EXPECT_EQ(ImportRouter::kind(tmp.path()), std::nullopt);  // a folder is no media
}

TEST(ImportRouter, ARefusalNamesTheTypeAsTheDesktopsMimeDatabaseDoes) {
  test::TempDir mime;
  test::writeFile(mime / "globs2", "# comment\n50:application/x-demo:*.demo\n50:text/x-other:*.demo\n10:text/x-low:*.low\n");
  test::writeFile(mime / "application/x-demo.xml",
                  "<mime-type type=\"application/x-demo\">\n  <comment>Demo document</comment>\n"
                  "  <comment xml:lang=\"fr\">document démo</comment>\n</mime-type>\n");
  EXPECT_EQ(ImportRouter::describe(".DEMO", {mime.path()}), "Demo document");  // the heaviest glob wins
  EXPECT_EQ(ImportRouter::describe(".low", {mime.path()}), std::nullopt);      // a type with no description
  EXPECT_EQ(ImportRouter::describe(".none", {mime.path()}), std::nullopt);
  EXPECT_EQ(ImportRouter::describe("", {mime.path()}), std::nullopt);

  test::ScopedEnv home{"XDG_DATA_HOME", (mime / "..").string()};
  test::ScopedEnv dirs{"XDG_DATA_DIRS", mime.path().string()};  // no system database at all
  EXPECT_EQ(ImportRouter::refusal("/x/odd.xyz"), "can't use odd.xyz — .xyz. Tavorin takes video, audio and stills.");
  EXPECT_EQ(ImportRouter::refusal("/x/README"), "can't use README — no file type. Tavorin takes video, audio and stills.");
}
