#include <gtest/gtest.h>

#include "Processes.hpp"
#include "TestSupport.hpp"

namespace fs = std::filesystem;
using namespace tavorin;

namespace {

struct Ran {
  int rc = -1;
  std::string out, err;
};

Ran phonemize(const std::string& shell, const std::vector<std::string>& env = {}) {
  test::TempDir logs;
  const auto program = (test::programs() / "tavorin-phonemize").string();
  const auto s = test::spawn("/bin/sh", {"-c", shell, "sh", program}, env, logs.path());
  Ran ran;
  ran.rc = test::waitFor(s.pid, std::chrono::seconds(30));
  ran.out = test::readFile(s.out);
  ran.err = test::readFile(s.err);
  return ran;
}

}  // namespace

TEST(TavorinPhonemize, ArgumentsStandardInputAndTokens) {
  const auto args = phonemize("\"$1\" The water is cold.");
  EXPECT_EQ(args.rc, 0) << args.err;
  EXPECT_EQ(args.out, "ðˌə wˈɔTəɹ ˈɪz kˈOld.\n");

  const auto input = phonemize("printf 'the apple' | \"$1\"");
  EXPECT_EQ(input.rc, 0) << input.err;
  EXPECT_EQ(input.out, "ði ˈæpᵊl\n");

  const auto tokens = phonemize("\"$1\" --tokens the cat");
  EXPECT_EQ(tokens.out, "the\tDeterminer/DT\tðə\t4\ncat\tNoun/NN\tkˈæt\t4\n");

  const auto british = phonemize("\"$1\" --british water");
  EXPECT_EQ(british.rc, 0);
  EXPECT_NE(british.out.find("ː"), std::string::npos) << british.out;
}

TEST(TavorinPhonemize, RefusesWithASentence) {
  const auto unknown = phonemize("\"$1\" --loud hello");
  EXPECT_EQ(unknown.rc, 2);
  EXPECT_EQ(unknown.err.rfind("tavorin-phonemize does not know the option --loud.\n", 0), 0u) << unknown.err;

  const auto missing = phonemize("\"$1\" hello", {"TAVORIN_SPEECH_DATA=/nonexistent/speech"});
  EXPECT_EQ(missing.rc, 1);
  EXPECT_NE(missing.err.find("could not be read."), std::string::npos) << missing.err;
}

TEST(TavorinPhonemize, UnknownWordsComeFromTheModelWithRatingTwo) {
  const auto tokens = phonemize("\"$1\" --tokens zorblax");
  EXPECT_EQ(tokens.rc, 0) << tokens.err;
  const auto fields = tokens.out.substr(tokens.out.rfind('\t') + 1);
  EXPECT_EQ(fields, "2\n") << tokens.out;
  EXPECT_EQ(tokens.out.find("❓"), std::string::npos) << tokens.out;
}
