// The save panel through a zenity of the test's own: a script that answers as the
// person would, and records what it was asked.
#include "app/export/FolderChooser.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <future>
#include <thread>

#include "TestSupport.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

class FolderChooserTest : public ::testing::Test {
 protected:
  // A zenity whose body is `script`; its arguments land in args.txt, one a line.
  fs::path zenity(const std::string& script) {
    const fs::path program = dir.path() / "bin/zenity";
    test::writeFile(program, "#!/bin/sh\nfor a in \"$@\"; do echo \"$a\" >> '" + (dir.path() / "args.txt").string() +
                                 "'; done\n" + script + "\n");
    ::chmod(program.c_str(), 0755);
    return program;
  }

  test::TempDir dir;
};

}  // namespace

TEST_F(FolderChooserTest, AnswersTheFolderChosenNothingOnCancelAndAFailureInItsWords) {
  const fs::path start = dir.path() / "Videos";
  const fs::path chosen = dir.path() / "Films for the launch";
  EXPECT_EQ(FolderChooser::ask(zenity("echo '" + chosen.string() + "'"), "Choose the folder", start), chosen);
  // It opens inside the starting folder, choosing folders only.
  EXPECT_EQ(test::readFile(dir.path() / "args.txt"), "--file-selection\n--directory\n--title=Choose the folder\n--filename=" +
                                                          start.string() + "/\n");

  EXPECT_EQ(FolderChooser::ask(zenity("exit 1"), "Choose", start), std::nullopt);
  // Said nothing but succeeded: nothing was chosen either.
  EXPECT_EQ(FolderChooser::ask(zenity("exit 0"), "Choose", start), std::nullopt);
  EXPECT_EQ(test::refusal([&] {
              FolderChooser::ask(zenity("echo 'Gtk-WARNING: cannot open display: :99' >&2\necho >&2\nexit 255"),
                                 "Choose", start);
            }),
            "the folder chooser failed: Gtk-WARNING: cannot open display: :99");
  EXPECT_EQ(test::refusal([&] { FolderChooser::ask(zenity("kill -9 $$"), "Choose", start); }),
            "the folder chooser failed with status 137");
}

TEST_F(FolderChooserTest, IsFoundOnThePathOrSaysWhatToInstall) {
  const fs::path program = zenity("echo /tmp");
  {
    test::ScopedEnv path{"PATH", "/nowhere:" + program.parent_path().string()};
    EXPECT_EQ(FolderChooser::program(), program);
    EXPECT_EQ(FolderChooser::ask("Choose", "/"), fs::path("/tmp"));
  }
  test::ScopedEnv path{"PATH", (dir.path() / "empty").string()};
  EXPECT_EQ(FolderChooser::program(), std::nullopt);
  EXPECT_EQ(test::refusal([] { FolderChooser::ask("Choose", "/"); }),
            "there is no folder chooser on this desktop: install zenity (Debian package zenity)");
}

// Last in the file: once closed, the process raises no chooser again.
TEST_F(FolderChooserTest, ClosingAllAnswersAPanelStillUpAsCancelled) {
  const fs::path program = zenity("exec sleep 30");
  auto answer = std::async(std::launch::async, [&] { return FolderChooser::ask(program, "Choose", "/"); });
  // Closed before or after it was raised, it answers at once, and no later one is raised.
  while (!fs::exists(dir.path() / "args.txt")) std::this_thread::sleep_for(5ms);
  FolderChooser::closeAll();
  ASSERT_EQ(answer.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(answer.get(), std::nullopt);
  fs::remove(dir.path() / "args.txt");
  EXPECT_EQ(FolderChooser::ask(program, "Choose", "/"), std::nullopt);
  EXPECT_FALSE(fs::exists(dir.path() / "args.txt"));
}
