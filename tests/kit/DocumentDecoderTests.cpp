// Each document decoder speaks for itself whatever the JSON library trips on:
// a syntax error, a number past the range of a double, nesting thousands deep.
#include "base/IsoDate.hpp"
#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "kit/Project.hpp"
#include "kit/Recording.hpp"
#include "kit/RecordingStore.hpp"
#include "kit/VariantsStore.hpp"

using namespace tavorin;
using test::refusal;
namespace fs = std::filesystem;

namespace {

std::string nested(int depth) { return std::string(depth, '[') + std::string(depth, ']'); }

}  // namespace

TEST(DocumentDecoders, ANumberTooLargeForADoubleIsTheDocumentsOwnSentence) {
  EXPECT_EQ(refusal([] { Recording::decode(R"({"id":"film","title":"Film","version":5E555})"); }),
            "The document is not valid JSON: it holds a number too large to read.");
  EXPECT_EQ(refusal([] { ProjectInfo::decode(R"({"name":"films","notes":1e999})"); }),
            "project.json is not valid JSON.");
  EXPECT_EQ(refusal([] { VariantsStore::Index::decode(R"({"lines":{"l1":[{"take":-1e999}]}})"); }),
            "audio/variants.json is not valid JSON.");
}

TEST(DocumentDecoders, AnOverflowingNumberInAProductionsFilesNamesTheFile) {
  test::TempDir tmp;
  const RecordingStore store(tmp / "film");
  store.saveNewVersion(Recording("film", "Film"));
  const std::string head = store.manifest().head;

  test::writeFile(store.versionsDir() / head, R"({"id":"film","title":"Film","timeline":[],"x":5E555})");
  EXPECT_EQ(refusal([&] { store.loadHead(); }),
            "The document is not valid JSON: it holds a number too large to read.");

  test::writeFile(store.manifestURL(), R"({"head":"v","versions":[],"n":1e999})");
  EXPECT_EQ(refusal([&] { store.manifest(); }), "manifest.json is not valid JSON.");
}

TEST(DocumentDecoders, DeepNestingIsRefusedWithoutExhaustingTheStack) {
  const std::string deep = R"({"id":"film","title":"Film","timeline":)" + nested(100000) + "}";
  EXPECT_NE(refusal([&] { Recording::decode(deep); }), "(no refusal)");
  EXPECT_NE(refusal([&] { ProjectInfo::decode(R"({"name":)" + nested(100000) + "}"); }), "(no refusal)");
  EXPECT_NE(refusal([&] { VariantsStore::Index::decode(R"({"lines":)" + nested(100000) + "}"); }), "(no refusal)");
}

// Found by fuzzing variants.json: a date past what the clock can count overflowed it.
TEST(DocumentDecoders, ADateTheClockCannotHoldIsNoDate) {
  EXPECT_FALSE(IsoDate::parse("5208-03-01T00:00:00Z"));
  EXPECT_FALSE(IsoDate::parse("1066-10-14T09:00:00Z"));
  EXPECT_TRUE(IsoDate::parse("2261-12-31T23:59:59Z"));
  EXPECT_TRUE(IsoDate::parse("1970-01-01T00:00:00+01:00"));
  const std::string variant =
      R"({"number":1,"file":"audio/l1.wav","text":"Words.","seconds":1.5,"made":"5208-03-01T00:00:00Z"})";
  EXPECT_EQ(refusal([&] { VariantsStore::Index::decode(R"({"lines":{"l1":[)" + variant + R"(]},"removed":{}})"); }),
            "audio/variants.json has a variant whose \"made\" is not an ISO 8601 date.");
}
