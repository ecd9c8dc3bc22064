#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "TestSupport.hpp"
#include "kit/TakesStore.hpp"

using namespace tavorin;
using namespace std::chrono;
namespace fs = std::filesystem;
using tavorin::test::readFile;
using tavorin::test::refusal;
using tavorin::test::TempDir;
using tavorin::test::writeFile;

namespace {

const Clock::time_point morning = sys_days{2026y / 2 / 16} + 9h + 45min + 1s;

Take shot(const std::string& id) {
  Take t;
  t.id = id;
  t.startedAt = "2026-02-16T09:45:01Z";
  t.seconds = 12.5;
  t.video = "take.mov";
  t.fromVersion = "v0003-20260216-094500.json";
  t.scheduleDigest = "d1";
  t.pads = {1.5, 2};
  t.status = Take::Status::complete;
  return t;
}

nlohmann::json record() { return nlohmann::json::parse(shot("a").encoded()); }

}  // namespace

TEST(Take, WritesSortedKeysAndLeavesMissingValuesOut) {
  Take t = shot("20260216-094501-intro");
  const std::string text = t.encoded();
  EXPECT_EQ(text.find("provenance"), std::string::npos);
  EXPECT_EQ(text.find("capture"), std::string::npos);
  EXPECT_LT(text.find("\"fromVersion\""), text.find("\"id\""));
  EXPECT_LT(text.find("\"scheduleDigest\""), text.find("\"seconds\""));
  EXPECT_EQ(Take::decode(text), t);

  t.capture = CaptureConfig{"window", "Safari", 30, true};
  t.provenance = Take::Provenance::imported;
  EXPECT_EQ(Take::decode(t.encoded()), t);
}

TEST(Take, EveryRequiredKeyIsRequired) {
  for (const char* key : {"id", "startedAt", "seconds", "video", "fromVersion", "scheduleDigest", "pads", "status"}) {
    auto j = record();
    j.erase(key);
    EXPECT_NE(refusal([&] { Take::decode(j.dump()); }).find(std::string("\"") + key + "\""), std::string::npos)
        << key;
  }
  auto j = record();
  j["pads"].erase("tail");
  EXPECT_NE(refusal([&] { Take::decode(j.dump()); }).find("\"tail\""), std::string::npos);
}

TEST(Take, WrongTypesAndUnknownNamesRefuse) {
  auto j = record();
  j["seconds"] = "12";
  EXPECT_NE(refusal([&] { Take::decode(j.dump()); }), "(no refusal)");
  j = record();
  j["status"] = "paused";
  EXPECT_NE(refusal([&] { Take::decode(j.dump()); }).find("rolling, complete, aborted, failed"), std::string::npos);
  j = record();
  j["provenance"] = "borrowed";
  EXPECT_NE(refusal([&] { Take::decode(j.dump()); }), "(no refusal)");
  j = record();
  j["pads"] = 2;
  EXPECT_NE(refusal([&] { Take::decode(j.dump()); }), "(no refusal)");
  EXPECT_NE(refusal([] { Take::decode("[1,2]"); }), "(no refusal)");
  EXPECT_NE(refusal([] { Take::decode("{\"id\": \"a\""); }), "(no refusal)");
}

TEST(Take, UnknownKeysAreReadPastAndLostOnWriting) {
  auto j = record();
  j["lens"] = "35mm";
  j["capture"] = {{"fps", 60}, {"future", true}};
  j["provenance"] = nullptr;
  Take t = Take::decode(j.dump());
  EXPECT_FALSE(t.provenance);
  EXPECT_EQ(t.origin(), Take::Provenance::shot);
  EXPECT_EQ(t.capture->fps, 60);
  EXPECT_EQ(t.encoded().find("lens"), std::string::npos);
  EXPECT_EQ(t.encoded().find("future"), std::string::npos);
}

TEST(Take, FootageNeedsAnEndStateAndLength) {
  Take t = shot("a");
  t.status = Take::Status::aborted;
  t.seconds = 12;
  EXPECT_TRUE(t.hasFootage());
  t.status = Take::Status::complete;
  t.seconds = 0;
  EXPECT_FALSE(t.hasFootage());
  t.seconds = 30;
  for (auto s : {Take::Status::rolling, Take::Status::failed}) {
    t.status = s;
    EXPECT_FALSE(t.hasFootage());
  }
  // Footage runs between the pads and never below nothing.
  t.pads = {1.5, 2};
  EXPECT_DOUBLE_EQ(t.footage(), 26.5);
  t.pads = {20, 20};
  EXPECT_EQ(t.footage(), 0);
}

TEST(TakesStore, IdsStampTheTimeAndCleanTheSlug) {
  EXPECT_EQ(TakesStore::id("Intro: Act 1!", morning), "20260216-094501-intro-act-1");
  EXPECT_EQ(TakesStore::id("Café crème", morning), "20260216-094501-café-crème");
  EXPECT_EQ(TakesStore::id("?!--", morning), "20260216-094501");
  EXPECT_LT(TakesStore::id("z", morning), TakesStore::id("a", morning + 1s));
}

TEST(TakesStore, ListsNewestFirstAndSkipsWhatWillNotRead) {
  TempDir dir;
  TakesStore store(dir.path());
  EXPECT_TRUE(store.list().empty());  // no takes/ folder yet

  store.begin(shot("20260216-094501"));
  store.begin(shot("20260217-100000"));
  fs::create_directories(store.folder / "20260218-000000");
  writeFile(store.folder / "20260218-000000" / "take.json", "{ half a record");
  writeFile(store.folder / "stray.txt", "not a take");

  auto takes = store.list();
  ASSERT_EQ(takes.size(), 2u);
  EXPECT_EQ(takes[0].id, "20260217-100000");
  EXPECT_EQ(takes[1].id, "20260216-094501");
  EXPECT_TRUE(fs::exists(store.folder / "20260218-000000"));  // kept, only not listed
  EXPECT_FALSE(store.take("20260218-000000"));
  EXPECT_FALSE(store.take("../../etc"));
}

TEST(TakesStore, ARollingTakeOnDiskWasCutOff) {
  TempDir dir;
  TakesStore store(dir.path());
  Take t = shot("20260216-094501");
  t.status = Take::Status::rolling;
  t.seconds = 0;
  store.begin(t);
  EXPECT_TRUE(readFile(store.folder / t.id / "take.json").find("\"rolling\"") != std::string::npos);
  auto found = store.take(t.id);
  ASSERT_TRUE(found);
  EXPECT_TRUE(found->wasCutOff());
  EXPECT_FALSE(found->hasFootage());

  Take done = store.finish(*found, 9.25, Take::Status::complete);
  EXPECT_EQ(store.take(t.id), done);
  EXPECT_FALSE(done.wasCutOff());
  EXPECT_FALSE(fs::exists(store.folder / t.id / "take.json.tmp"));
}

TEST(TakesStore, ImportCopiesIntoAFolderOfItsOwn) {
  TempDir dir;
  TakesStore store(dir / "production");
  writeFile(dir / "my film.MP4", "film bytes");

  Take first = store.importVideo(dir / "my film.MP4", "Demo", -3, "v0001", "dd", std::nullopt, morning);
  EXPECT_EQ(first.id, "20260216-094501-demo");
  EXPECT_EQ(first.video, "take.MP4");
  EXPECT_EQ(first.seconds, 0);  // a negative length is floored
  EXPECT_EQ(first.status, Take::Status::complete);
  EXPECT_EQ(first.provenance, Take::Provenance::imported);
  EXPECT_EQ(first.pads, (Take::Pads{0, 0}));
  EXPECT_EQ(first.startedAt, "2026-02-16T09:45:01Z");
  EXPECT_EQ(readFile(store.video(first)), "film bytes");
  EXPECT_TRUE(fs::exists(dir / "my film.MP4"));  // copied, never moved

  writeFile(dir / "noext", "more");
  Take second = store.importVideo(dir / "noext", "demo", 4, "v0001", "dd", CaptureConfig{"screen", {}, 30, {}},
                                  morning);
  EXPECT_EQ(second.id, "20260216-094501-demo-2");
  EXPECT_EQ(second.video, "take.mov");
  EXPECT_EQ(store.take(second.id), second);

  EXPECT_NE(refusal([&] { store.importVideo(dir / "gone.mov", "x", 1, "v", "d", std::nullopt, morning); }),
            "(no refusal)");
}
