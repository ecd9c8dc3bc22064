#include <gtest/gtest.h>

#include <ctime>

#include "TestSupport.hpp"
#include "platform/FreedesktopTrash.hpp"

using namespace tavorin;
using namespace std::chrono;
namespace fs = std::filesystem;

namespace {

const FreedesktopTrash::Clock::time_point morning = sys_days{2026y / 2 / 16} + 9h + 45min + 1s;

// Local time is UTC for the length of a test, so the deletion date is known.
struct UtcZone {
  test::ScopedEnv tz{"TZ", "UTC"};
  UtcZone() { tzset(); }
  ~UtcZone() { tzset(); }
};

}  // namespace

TEST(FreedesktopTrash, MovesAFolderIntoTheHomeTrashWithAnInfoFileNamingWhereItWas) {
  UtcZone utc;
  test::TempDir tmp;
  test::ScopedEnv data("XDG_DATA_HOME", (tmp / "data").string());
  const fs::path project = tmp / "Tavorin" / "My films é";
  test::writeFile(project / "recordings" / "a" / "manifest.json", "{}");

  FreedesktopTrash trash(std::nullopt, [] { return morning; });
  const fs::path moved = trash.moveToTrash(project);

  const fs::path home = tmp / "data" / "Trash";
  EXPECT_EQ(moved, home / "files" / "My films é");
  EXPECT_FALSE(fs::exists(project));
  EXPECT_EQ(test::readFile(moved / "recordings" / "a" / "manifest.json"), "{}");
  EXPECT_EQ(test::readFile(home / "info" / "My films é.trashinfo"),
            "[Trash Info]\nPath=" + tmp.path().string() + "/Tavorin/My%20films%20%C3%A9\n" +
                "DeletionDate=2026-02-16T09:45:01\n");
  EXPECT_EQ(fs::status(home).permissions() & fs::perms::all, fs::perms::owner_all);
}

TEST(FreedesktopTrash, ATakenNameGetsANumberAndItsOwnInfo) {
  test::TempDir tmp;
  FreedesktopTrash trash(tmp / "Trash");
  test::writeFile(tmp / "one" / "films" / "x", "1");
  test::writeFile(tmp / "two" / "films" / "x", "2");
  test::writeFile(tmp / "three" / "films" / "x", "3");

  EXPECT_EQ(trash.moveToTrash(tmp / "one" / "films"), tmp / "Trash" / "files" / "films");
  EXPECT_EQ(trash.moveToTrash(tmp / "two" / "films"), tmp / "Trash" / "files" / "films.2");
  // An info file alone, left by someone else, still holds its name.
  test::writeFile(tmp / "Trash" / "info" / "films.3.trashinfo", "");
  EXPECT_EQ(trash.moveToTrash(tmp / "three" / "films/"), tmp / "Trash" / "files" / "films.4");

  EXPECT_EQ(test::readFile(tmp / "Trash" / "files" / "films.2" / "x"), "2");
  auto names = [&](const std::string& info, const fs::path& original) {
    return test::readFile(tmp / "Trash" / "info" / info).find("Path=" + original.string() + "\n") != std::string::npos;
  };
  EXPECT_TRUE(names("films.2.trashinfo", tmp / "two" / "films"));
  EXPECT_TRUE(names("films.4.trashinfo", tmp / "three" / "films"));
}

TEST(FreedesktopTrash, AMissingItemIsRefusedAndLeavesNoInfoBehind) {
  test::TempDir tmp;
  FreedesktopTrash trash(tmp / "Trash");
  EXPECT_THROW(trash.moveToTrash(tmp / "nothing-here"), std::runtime_error);
  EXPECT_FALSE(fs::exists(tmp / "Trash" / "info" / "nothing-here.trashinfo"));
}

TEST(FreedesktopTrash, TheHomeTrashFollowsXdgDataHomeOnlyWhenAbsolute) {
  test::TempDir tmp;
  test::ScopedEnv home("HOME", tmp.path().string());
  {
    test::ScopedEnv data("XDG_DATA_HOME", "relative/share");
    EXPECT_EQ(FreedesktopTrash::defaultHome(), tmp / ".local" / "share" / "Trash");
  }
  test::ScopedEnv data("XDG_DATA_HOME", (tmp / "xdg").string());
  EXPECT_EQ(FreedesktopTrash::defaultHome(), tmp / "xdg" / "Trash");
}

TEST(FreedesktopTrash, PathsAreEscapedByteByByteExceptTheSafeOnes) {
  EXPECT_EQ(FreedesktopTrash::percentEncoded("/home/u/a-b_c.d~e"), "/home/u/a-b_c.d~e");
  EXPECT_EQ(FreedesktopTrash::percentEncoded("/a b/100%/x#y?z"), "/a%20b/100%25/x%23y%3Fz");
  EXPECT_EQ(FreedesktopTrash::percentEncoded("/ü"), "/%C3%BC");
}
