#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "TestSupport.hpp"
#include "base/AtomicFile.hpp"
#include "base/Hex.hpp"
#include "base/IsoDate.hpp"
#include "base/LifetimeToken.hpp"
#include "base/Text.hpp"

using namespace tavorin;
namespace fs = std::filesystem;

namespace {
std::string slurp(const fs::path& file) {
  std::ifstream in(file);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}
}  // namespace

TEST(AtomicFile, ReplacesWholeAndLeavesNoTemporaryBehind) {
  test::TempDir tmp;
  const fs::path file = tmp / "doc.json";
  AtomicFile::write(file, "first");
  AtomicFile::write(file, "second, longer");
  EXPECT_EQ(slurp(file), "second, longer");
  EXPECT_EQ(std::distance(fs::directory_iterator(tmp.path()), fs::directory_iterator{}), 1);
}

TEST(AtomicFile, APrivateFileIsTheUsersAloneAndAFailureIsASentence) {
  test::TempDir tmp;
  const fs::path secret = tmp / "control.json";
  AtomicFile::write(secret, "token", AtomicFile::Access::privateToUser);
  struct stat st {};
  ASSERT_EQ(::stat(secret.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  try {
    AtomicFile::write(tmp / "missing" / "doc.json", "x");
    FAIL() << "wrote into a folder that is not there";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()).rfind("could not write " + (tmp / "missing" / "doc.json").string() + ": ", 0), 0u);
  }
}

TEST(Hex, TwoLowerDigitsAByte) {
  const unsigned char bytes[] = {0x00, 0x0f, 0xa0, 0xff};
  EXPECT_EQ(hexDigits(bytes, 4), "000fa0ff");
  EXPECT_EQ(hexDigits(bytes, 0), "");
}

TEST(Text, TrimsLowersJoinsAndSplits) {
  EXPECT_EQ(Text::trimBlanks(" \tword\r\t "), "word\r");
  EXPECT_EQ(Text::trimSpace("\n word \f"), "word");
  EXPECT_EQ(Text::trim("--a-b--", "-"), "a-b");
  EXPECT_EQ(Text::trimBlanks("   "), "");
  EXPECT_EQ(Text::lower("MiXeD Ä"), "mixed Ä");
  EXPECT_TRUE(Text::equalsIgnoringCase("Archivo", "ARCHIVO"));
  EXPECT_FALSE(Text::equalsIgnoringCase("Archivo", "Archiv"));
  EXPECT_EQ(Text::join({"a", "b", "c"}, ", "), "a, b, c");
  EXPECT_EQ(Text::join({}, ", "), "");
  EXPECT_EQ(Text::split("a,,b", ','), (std::vector<std::string_view>{"a", "", "b"}));
  EXPECT_EQ(Text::split("", ','), (std::vector<std::string_view>{""}));
}

TEST(IsoDate, RoundTripsAndReadsOffsets) {
  const auto t = IsoDate::parse("2026-02-16T09:45:01Z");
  ASSERT_TRUE(t);
  EXPECT_EQ(IsoDate::format(*t), "2026-02-16T09:45:01Z");
  EXPECT_EQ(IsoDate::stamp(*t), "20260216-094501");
  EXPECT_EQ(IsoDate::parse("2026-02-16T10:45:01.250+01:00"), t);
  for (const char* bad : {"2026-02-30T00:00:00Z", "2026-02-16 09:45:01Z", "2026-02-16T09:45:01", "2026-02-16T09:45:01Zx"})
    EXPECT_FALSE(IsoDate::parse(bad)) << bad;
}

TEST(LifetimeToken, DropsWorkWhoseOwnerIsGone) {
  int ran = 0;
  std::function<void(int)> later;
  {
    LifetimeToken token;
    auto guarded = token.guard([&](int n) { ran += n; });
    guarded(1);
    later = guarded;
  }
  later(10);
  EXPECT_EQ(ran, 1);
}
