#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "TestSupport.hpp"
#include "base/IsoDate.hpp"
#include "kit/RecordingStore.hpp"

using namespace tavorin;
using namespace std::chrono;
using testing::ElementsAre;
namespace fs = std::filesystem;

namespace {

const Clock::time_point morning = sys_days{2026y / 2 / 16} + 9h + 45min + 1s;

Recording sample(const std::string& title = "Halden") {
  Recording rec("halden", title);
  TimelineItem line("l1", ItemType::line);
  line.text = "Welcome to Halden.";
  rec.timeline.push_back(line);
  return rec;
}

size_t filesIn(const fs::path& dir) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

}  // namespace

TEST(RecordingStore, FirstSaveMakesTheFolderTheVersionAndTheManifest) {
  test::TempDir tmp;
  RecordingStore store(tmp / "halden");
  fs::create_directories(store.dir);

  Recording rec = sample();
  rec.schema = "velmora.recording.v1";
  const std::string name = store.saveNewVersion(rec, morning);

  EXPECT_EQ(name, "v0001-20260216-094501.json");
  EXPECT_TRUE(fs::is_regular_file(store.versionsDir() / name));
  EXPECT_EQ(store.manifest(), (RecordingStore::Manifest{name, {name}}));
  // Whatever the record held, the file carries the current tag.
  auto written = nlohmann::json::parse(test::readFile(store.versionsDir() / name));
  EXPECT_EQ(written["schema"], "tavorin.recording.v1");
  EXPECT_EQ(store.loadHead().title, "Halden");
}

TEST(RecordingStore, OrdinalsKeepNamesApartWithinOneSecondAndWidenPastFourDigits) {
  test::TempDir tmp;
  RecordingStore store(tmp.path());
  EXPECT_EQ(store.saveNewVersion(sample(), morning), "v0001-20260216-094501.json");
  EXPECT_EQ(store.saveNewVersion(sample(), morning), "v0002-20260216-094501.json");

  RecordingStore::Manifest big;
  for (int i = 1; i <= 9999; ++i) big.versions.push_back(RecordingStore::versionName(i, morning));
  big.head = big.versions.back();
  nlohmann::json j = {{"head", big.head}, {"versions", big.versions}};
  test::writeFile(store.manifestURL(), j.dump());

  const std::string tenThousandth = store.saveNewVersion(sample(), morning);
  EXPECT_EQ(tenThousandth, "v10000-20260216-094501.json");
  EXPECT_EQ(RecordingStore::shortVersion(tenThousandth), "v10000");
}

TEST(RecordingStore, SavingAfterMovingTheHeadBackAppendsTheHighestOrdinal) {
  test::TempDir tmp;
  RecordingStore store(tmp.path());
  const auto v1 = store.saveNewVersion(sample("one"), morning);
  const auto v2 = store.saveNewVersion(sample("two"), morning + 1s);
  store.setHead(v1);
  EXPECT_EQ(store.loadHead().title, "one");

  const auto v3 = store.saveNewVersion(sample("three"), morning + 2s);
  EXPECT_EQ(v3, "v0003-20260216-094503.json");
  EXPECT_EQ(store.manifest(), (RecordingStore::Manifest{v3, {v1, v2, v3}}));
}

TEST(RecordingStore, SetHeadRefusesAnUnlistedNameEvenWhenItsFileExists) {
  test::TempDir tmp;
  RecordingStore store(tmp.path());
  const auto v1 = store.saveNewVersion(sample(), morning);
  fs::copy_file(store.versionsDir() / v1, store.versionsDir() / "v0009-stray.json");
  const std::string before = test::readFile(store.manifestURL());

  try {
    store.setHead("v0009-stray.json");
    FAIL() << "setHead accepted an unlisted version";
  } catch (const StoreError& e) {
    EXPECT_EQ(e.code, 404);
    EXPECT_STREQ(e.what(), "no such version: v0009-stray.json");
  }
  EXPECT_EQ(test::readFile(store.manifestURL()), before);
  // A full name loads whether or not it is listed; a short name never does.
  EXPECT_NO_THROW(store.load("v0009-stray.json"));
  EXPECT_THROW(store.load("v0001"), std::runtime_error);
}

TEST(RecordingStore, LoadsNormaliseTheLegacyTagAndCarryUnknownOnes) {
  test::TempDir tmp;
  RecordingStore store(tmp.path());
  const auto v1 = store.saveNewVersion(sample(), morning);
  auto doc = nlohmann::json::parse(test::readFile(store.versionsDir() / v1));

  doc["schema"] = "velmora.recording.v1";
  test::writeFile(store.versionsDir() / v1, doc.dump());
  EXPECT_EQ(store.loadHead().schema, "tavorin.recording.v1");

  doc["schema"] = "someone.else.v7";
  test::writeFile(store.versionsDir() / v1, doc.dump());
  Recording odd = store.load(v1);
  EXPECT_EQ(odd.schema, "someone.else.v7");
  EXPECT_EQ(store.load(store.saveNewVersion(odd, morning)).schema, "tavorin.recording.v1");
}

TEST(RecordingStore, ALostManifestRestartsTheLogAndABrokenVersionSurfaces) {
  test::TempDir tmp;
  RecordingStore store(tmp.path());
  store.saveNewVersion(sample(), morning);
  fs::remove(store.manifestURL());
  EXPECT_THROW(store.manifest(), std::runtime_error);
  EXPECT_EQ(store.saveNewVersion(sample(), morning + 5s), "v0001-20260216-094506.json");

  test::writeFile(store.versionsDir() / "v0001-20260216-094506.json", R"({"schema":"tavorin.recording.v1"})");
  EXPECT_THROW(store.loadHead(), DocumentError);
}

TEST(RecordingStore, DraftsRoundTripAndAreReplacedWhole) {
  test::TempDir tmp;
  RecordingStore store(tmp.path());
  const auto v1 = store.saveNewVersion(sample(), morning);
  EXPECT_FALSE(store.hasDraft());
  EXPECT_EQ(store.readDraft(), std::nullopt);

  Recording edited = sample("Halden, edited");
  edited.schema = "velmora.recording.v1";
  store.writeDraft(edited, v1, morning + 30s);
  store.writeDraft(edited, v1, morning + 31s);
  ASSERT_TRUE(store.hasDraft());
  auto draft = store.readDraft();
  ASSERT_TRUE(draft);
  EXPECT_EQ(draft->basedOn, v1);
  EXPECT_EQ(draft->savedAt, "2026-02-16T09:45:32Z");
  EXPECT_EQ(draft->recording.title, "Halden, edited");
  EXPECT_EQ(draft->recording.schema, "tavorin.recording.v1");
  // Only the manifest, versions/ and the draft: no temporary file stays behind.
  EXPECT_EQ(filesIn(store.dir), 3u);

  store.clearDraft();
  EXPECT_FALSE(store.hasDraft());
  store.clearDraft();  // none left: still quiet
}

TEST(RecordingStore, ADraftThatWillNotDecodeIsNoDraftAndStaysOnDisk) {
  test::TempDir tmp;
  RecordingStore store(tmp.path());
  store.saveNewVersion(sample(), morning);
  for (const std::string bad : {"{ not json", R"({"basedOn":"v1","savedAt":"x"})",
                                R"({"basedOn":"v1","savedAt":"x","recording":{"id":"a"}})"}) {
    test::writeFile(store.draftURL(), bad);
    EXPECT_EQ(store.readDraft(), std::nullopt) << bad;
    EXPECT_EQ(test::readFile(store.draftURL()), bad);
  }
}

TEST(RecordingStore, ADraftStandsByItsBaseAgainstTheManifest) {
  using S = RecordingStore::DraftStanding;
  RecordingStore::Manifest m{"v0002-b.json", {"v0001-a.json", "v0002-b.json"}};
  RecordingStore::Draft d{"v0002-b.json", "", sample()};
  EXPECT_EQ(RecordingStore::standing(d, m), S::restorable);
  d.basedOn = "v0001-a.json";
  EXPECT_EQ(RecordingStore::standing(d, m), S::savedSince);
  d.basedOn = "v0007-elsewhere.json";
  EXPECT_EQ(RecordingStore::standing(d, m), S::foreign);
}

TEST(RecordingStore, ResolveVersionTakesFullThenNewestShortThenOldestPrefix) {
  // Two v0001 entries, as after a lost manifest.
  const std::vector<std::string> versions{"v0001-20260101-000000.json", "v0002-20260102-000000.json",
                                          "v0001-20260103-000000.json", "v0003-20260104-000000.json"};
  EXPECT_EQ(RecordingStore::resolveVersion("v0002-20260102-000000.json", versions), versions[1]);
  EXPECT_EQ(RecordingStore::resolveVersion("v0001", versions), versions[2]);
  EXPECT_EQ(RecordingStore::resolveVersion("v000", versions), versions[0]);
  EXPECT_EQ(RecordingStore::resolveVersion("v0003-2026", versions), versions[3]);

  try {
    RecordingStore::resolveVersion("v9", versions);
    FAIL() << "resolved a name that matches nothing";
  } catch (const VersionNotFound& e) {
    EXPECT_EQ(e.name, "v9");
    EXPECT_THAT(e.recent, ElementsAre(versions[1], versions[2], versions[3]));
    EXPECT_STREQ(e.what(),
                 "The system found no version named 'v9'. Pick a short or full name v0002-20260102-000000.json, "
                 "v0001-20260103-000000.json, v0003-20260104-000000.json, or run `versions` to see all saved "
                 "states.");
  }
  EXPECT_EQ(RecordingStore::shortVersion("plain"), "plain");
}

TEST(RecordingStore, DatesWriteInUtcAndReadWithOffsets) {
  EXPECT_EQ(IsoDate::stamp(morning), "20260216-094501");
  EXPECT_EQ(IsoDate::format(morning), "2026-02-16T09:45:01Z");
  EXPECT_EQ(IsoDate::parse("2026-02-16T09:45:01Z"), morning);
  EXPECT_EQ(IsoDate::parse("2026-02-16T10:45:01.250+01:00"), morning);
  EXPECT_EQ(IsoDate::parse("2026-02-16T04:45:01-0500"), morning);
  for (const char* bad : {"", "2026-02-16", "2026-02-30T00:00:00Z", "2026-02-16T09:45:01", "2026-02-16T09:45:01Zjunk"})
    EXPECT_EQ(IsoDate::parse(bad), std::nullopt) << bad;
}
