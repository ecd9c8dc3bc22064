#include "platform/MusicImport.hpp"

#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "Wav.hpp"

namespace tavorin {
namespace {

using test::TempDir;

TEST(MusicImport, CopiesInWithoutOverwritingANamesake) {
  TempDir source;
  TempDir production;
  test::writeLevel(source / "theme.wav", 1.5, 0.5f, 8000);
  const auto first = MusicImport::copyIn(production.path(), source / "theme.wav");
  EXPECT_EQ(first.name, "theme.wav");
  EXPECT_DOUBLE_EQ(first.seconds, 1.5);
  test::writeLevel(source / "theme.wav", 0.5, 0.25f, 8000);
  const auto second = MusicImport::copyIn(production.path(), source / "theme.wav");
  EXPECT_NE(second.name, "theme.wav");
  EXPECT_TRUE(second.name.starts_with("theme-") && second.name.ends_with(".wav")) << second.name;
  EXPECT_DOUBLE_EQ(second.seconds, 0.5);
  EXPECT_EQ(std::filesystem::file_size(production / "music" / "theme.wav"),
            std::filesystem::file_size(source / "theme.wav") + 8000 * 4);  // the first is untouched
}

TEST(MusicImport, BadFilesAreRefusedAndLeaveNothing) {
  TempDir source;
  TempDir production;
  test::writeFile(source / "notes.txt", "not a song");
  test::writeWav(source / "zero.wav", {}, 8000, 1);
  test::writeFile(source / "cut.wav", "RIFF\x24\x00\x00\x00WAVEfmt ");
  const std::string tail = " has no length this app can measure. Try a wav or an mp3.";
  EXPECT_EQ(test::refusal([&] { MusicImport::copyIn(production.path(), source / "notes.txt"); }), "notes.txt" + tail);
  EXPECT_EQ(test::refusal([&] { MusicImport::copyIn(production.path(), source / "zero.wav"); }), "zero.wav" + tail);
  EXPECT_EQ(test::refusal([&] { MusicImport::copyIn(production.path(), source / "cut.wav"); }), "cut.wav" + tail);
  EXPECT_EQ(test::refusal([&] { MusicImport::copyIn(production.path(), source / "gone.wav"); }),
            "There is no file at " + (source / "gone.wav").string() + ".");
  EXPECT_FALSE(std::filesystem::exists(production / "music"));
}

}  // namespace
}  // namespace tavorin
