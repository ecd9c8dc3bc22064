#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TestSupport.hpp"
#include "operator/OperatorControlFile.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {
mode_t modeOf(const fs::path& p) {
  struct stat st {};
  ::stat(p.c_str(), &st);
  return st.st_mode & 0777;
}
}  // namespace

TEST(OperatorControlFile, WritesPrivatelyAndReadsBack) {
  test::TempDir dir;
  const fs::path file = dir / "deep/er/operator.json";
  OperatorControlFile f{1, "127.0.0.1", 4242, std::string(72, 'A'), 99};
  f.write(file);
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_EQ(OperatorControlFile::read(file), f);
  // No temporary file is left beside it.
  EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), fs::directory_iterator()), 1);
}

TEST(OperatorControlFile, ModeIsTightenedWhenTheFileExistedOpen) {
  test::TempDir dir;
  const fs::path file = dir / "operator.json";
  test::writeFile(file, "old");
  ::chmod(file.c_str(), 0644);
  OperatorControlFile{1, "127.0.0.1", 1, "t", 1}.write(file);
  EXPECT_EQ(modeOf(file), 0600u);
}

TEST(OperatorControlFile, RemoveSwallowsAMissingFile) {
  test::TempDir dir;
  EXPECT_NO_THROW(OperatorControlFile::remove(dir / "never-there.json"));
}

TEST(OperatorControlFile, DefaultURLFollowsTheDesktopDataFolderNotTheSupportFolder) {
  test::ScopedEnv xdg("XDG_DATA_HOME", "/tmp/xdg-data");
  test::ScopedEnv support("TAVORIN_SUPPORT", "/tmp/elsewhere");
  EXPECT_EQ(OperatorControlFile::defaultURL(), fs::path("/tmp/xdg-data/Tavorin/operator.json"));
  test::ScopedEnv relative("XDG_DATA_HOME", "not/absolute");
  test::ScopedEnv home("HOME", "/home/someone");
  EXPECT_EQ(OperatorControlFile::defaultURL(), fs::path("/home/someone/.local/share/Tavorin/operator.json"));
}

TEST(OperatorControlFile, LivenessOfAPid) {
  EXPECT_TRUE((OperatorControlFile{1, "127.0.0.1", 1, "t", static_cast<std::int32_t>(::getpid())}.isLive()));
  // A pid far beyond any the kernel hands out.
  EXPECT_FALSE((OperatorControlFile{1, "127.0.0.1", 1, "t", 0x3FFFFFF0}.isLive()));
}
