#include <gtest/gtest.h>

#include <ctime>
#include <set>

#include "TestSupport.hpp"
#include "operator/BuildStamp.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono;
using BuildStamp::Change;
using BuildStamp::TimePoint;
using BuildStamp::Verdict;

namespace {

// A wall-clock time in the local zone, the way the clock reads it.
TimePoint local(int year, int month, int day, int hour, int minute, int second = 0) {
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  tm.tm_isdst = -1;
  return BuildStamp::Clock::from_time_t(std::mktime(&tm));
}

void touch(const fs::path& file, TimePoint when) {
  test::writeFile(file, "x");
  fs::last_write_time(file, file_clock::from_sys(when));
}

}  // namespace

TEST(BuildStamp, FindsTheCheckoutAboveTheNearestBuildFolder) {
  std::set<fs::path> present = {"/w/repo/build-a/CMakeCache.txt", "/w/repo/CMakeLists.txt", "/w/repo/src",
                                "/w/CMakeCache.txt"};
  auto exists = [&](const fs::path& p) { return present.count(p) > 0; };

  EXPECT_EQ(BuildStamp::checkoutRoot("/w/repo/build-a/src/main/tavorinctl", exists), fs::path("/w/repo"));
  EXPECT_EQ(BuildStamp::checkoutRoot("/w/repo/build-a/tests/Tests", exists), fs::path("/w/repo"));

  // The nearest build folder decides: one whose parent is no checkout means no
  // root, even with another build folder further up.
  present.insert("/w/repo/build-a/nested/CMakeCache.txt");
  EXPECT_EQ(BuildStamp::checkoutRoot("/w/repo/build-a/nested/bin/tavorinctl", exists), std::nullopt);

  // A checkout needs both its CMakeLists.txt and src/.
  present.erase("/w/repo/src");
  EXPECT_EQ(BuildStamp::checkoutRoot("/w/repo/build-a/src/main/tavorinctl", exists), std::nullopt);

  // An installed binary sits in no build folder at all.
  auto nothing = [](const fs::path&) { return false; };
  EXPECT_EQ(BuildStamp::checkoutRoot("/usr/local/bin/tavorinctl", nothing), std::nullopt);
  EXPECT_EQ(BuildStamp::checkoutRoot("tavorinctl", nothing), std::nullopt);
}

TEST(BuildStamp, NewestSourceChangeSkipsHiddenFilesAndLooksOnlyUnderSrc) {
  test::TempDir root;
  const TimePoint base = local(2024, 3, 3, 9, 0);
  touch(root / "CMakeLists.txt", base);
  touch(root / "src/kit/Schedule.cpp", base + 10s);
  touch(root / "src/kit/Schedule.hpp", base + 20s);
  touch(root / "src/app/AppModel.cpp", base + 5s);
  // Newer, but not sources that count: hidden files and folders, and files beside src/.
  touch(root / "src/.Schedule.cpp.swp", base + 100s);
  touch(root / "src/kit/.cache/index", base + 100s);
  touch(root / "tests/kit/ScheduleTests.cpp", base + 100s);
  touch(root / "README.md", base + 100s);

  auto newest = BuildStamp::newestSourceChange(root.path());
  ASSERT_TRUE(newest);
  EXPECT_EQ(newest->file, fs::path("src/kit/Schedule.hpp"));
  EXPECT_EQ(time_point_cast<seconds>(newest->modified), time_point_cast<seconds>(base + 20s));

  // The top CMakeLists.txt counts, and on a tie the first met (it is met first) stays.
  touch(root / "CMakeLists.txt", base + 20s);
  EXPECT_EQ(BuildStamp::newestSourceChange(root.path())->file, fs::path("CMakeLists.txt"));
}

TEST(BuildStamp, VerdictWeighsTheBinaryAgainstTheNewestChange) {
  const TimePoint changed = local(2024, 3, 3, 9, 0);
  const Change change{"src/kit/Schedule.cpp", changed};

  EXPECT_EQ(BuildStamp::verdict(changed, std::nullopt, 2), Verdict::unknown());
  EXPECT_EQ(BuildStamp::verdict(std::nullopt, std::nullopt, 2), Verdict::unknown());
  EXPECT_EQ(BuildStamp::verdict(changed + 60s, change, 2), Verdict::current());
  EXPECT_EQ(BuildStamp::verdict(changed, change, 0), Verdict::current());
  // Within the tolerance, on its edge, then past it.
  EXPECT_EQ(BuildStamp::verdict(changed - 1500ms, change, 2), Verdict::current());
  EXPECT_EQ(BuildStamp::verdict(changed - 2s, change, 2), Verdict::current());
  const Verdict late = BuildStamp::verdict(changed - 2001ms, change, 2);
  EXPECT_EQ(late.kind, Verdict::Kind::stale);
  EXPECT_EQ(late.change, change);
  ASSERT_TRUE(late.behind);
  EXPECT_NEAR(*late.behind, 2.001, 1e-9);
  // Dates centuries apart do not overflow the comparison.
  const Verdict ancient = BuildStamp::verdict(TimePoint::min(), Change{"CMakeLists.txt", TimePoint::max()}, 2);
  EXPECT_EQ(ancient.kind, Verdict::Kind::stale);
  EXPECT_GT(ancient.behind.value_or(0), 1e10);
  // A binary that will not say when it was built is taken as stale.
  EXPECT_EQ(BuildStamp::verdict(std::nullopt, change, 2), Verdict::stale(change, std::nullopt));
}

TEST(BuildStamp, RefusalNamesTheFileTheTimesAndTheWayOut) {
  const TimePoint now = local(2024, 3, 3, 18, 0);
  const Change change{"src/kit/Schedule.cpp", local(2024, 3, 3, 9, 41)};
  EXPECT_EQ(BuildStamp::refusal(change, local(2024, 3, 2, 17, 5), "/home/ana/tavorin", now),
            "Tavorin is answering from a build older than the source in /home/ana/tavorin. "
            "src/kit/Schedule.cpp changed at 09:41; that window was built at 2 Mar 17:05. "
            "Quit it with `tavorinctl quit`, then run this again.");
  EXPECT_EQ(BuildStamp::refusal(change, std::nullopt, "/home/ana/tavorin", now),
            "Tavorin is answering from a build older than the source in /home/ana/tavorin. "
            "src/kit/Schedule.cpp changed at 09:41, and that window will not say when it was built. "
            "Quit it with `tavorinctl quit`, then run this again.");
}

TEST(BuildStamp, ClockGivesTheDayOnlyWhenItIsNotToday) {
  const TimePoint now = local(2024, 3, 3, 18, 0);
  EXPECT_EQ(BuildStamp::clock(local(2024, 3, 3, 0, 0), now), "00:00");
  EXPECT_EQ(BuildStamp::clock(local(2024, 3, 3, 9, 5, 59), now), "09:05");
  EXPECT_EQ(BuildStamp::clock(local(2024, 3, 2, 23, 59), now), "2 Mar 23:59");
  EXPECT_EQ(BuildStamp::clock(local(2024, 12, 25, 7, 30), now), "25 Dec 07:30");
  // The same day of another year is not today.
  EXPECT_EQ(BuildStamp::clock(local(2023, 3, 3, 9, 5), now), "3 Mar 09:05");
}

TEST(BuildStamp, ReadsTheBuildDateTheStudioReports) {
  const TimePoint expected = sys_days(2024y / 3 / 3) + 9h + 41min + 7s;
  EXPECT_EQ(BuildStamp::parseDate("2024-03-03T09:41:07Z"), expected);
  EXPECT_EQ(BuildStamp::parseDate("2024-03-03T09:41:07+00:00"), expected);
  EXPECT_EQ(BuildStamp::parseDate("2024-03-03T09:41:07.250Z"), expected + 250ms);
  for (const char* bad : {"", "2024-03-03", "2024-03-03 09:41:07Z", "2024-03-03T09:41:07", "2024-02-30T09:41:07Z",
                          "2024-03-03T24:00:00Z", "2024-03-03T09:41:07+02:00", "2024-03-03T09:41:07.Z", "yesterday",
                          "9999-01-01T00:00:00Z"})
    EXPECT_EQ(BuildStamp::parseDate(bad), std::nullopt) << bad;

  auto status = [](JSONValue modified) {
    return JSONValue::object(
        {{"version", "0.1.0"},
         {"build", JSONValue::object({{"version", "0.1.0"}, {"modified", modified}, {"bundled", false}})}});
  };
  EXPECT_EQ(BuildStamp::reportedBuildDate(status("2024-03-03T09:41:07Z")), expected);
  EXPECT_EQ(BuildStamp::reportedBuildDate(status(JSONValue())), std::nullopt);
  EXPECT_EQ(BuildStamp::reportedBuildDate(status(12)), std::nullopt);
  EXPECT_EQ(BuildStamp::reportedBuildDate(JSONValue::object({{"version", "0.1.0"}})), std::nullopt);
}

