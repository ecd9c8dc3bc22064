#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

#include "TestSupport.hpp"
#include "kit/Looks.hpp"
#include "kit/RecordingStore.hpp"

// The demo production is the first thing a new user opens: it must be exactly what
// the program would write, and its script must fit its lines.
namespace tavorin {
namespace {

const std::filesystem::path demo = std::filesystem::path(TAVORIN_TEST_DATA) / "../../examples/halden-demo";

TEST(HaldenDemo, IsWhatTheStoreWouldWrite) {
  const RecordingStore store(demo);
  const auto manifest = store.manifest();
  ASSERT_EQ(manifest.versions, std::vector{manifest.head});

  using namespace std::chrono;
  test::TempDir dir;
  const RecordingStore copy(dir.path());
  const auto savedAt = sys_days{year{2026} / February / 16} + hours{9} + minutes{45} + seconds{1};
  EXPECT_EQ(copy.saveNewVersion(store.loadHead(), savedAt), manifest.head);
  EXPECT_EQ(test::readFile(copy.versionsDir() / manifest.head), test::readFile(store.versionsDir() / manifest.head));
  EXPECT_EQ(test::readFile(copy.manifestURL()), test::readFile(store.manifestURL()));
}

TEST(HaldenDemo, LinesAreUnrenderedAndPacedForSpeech) {
  const Recording head = RecordingStore(demo).loadHead();
  EXPECT_EQ(head.id, "halden-demo");
  EXPECT_EQ(head.look, Looks::fresh());
  ASSERT_TRUE(head.origin && head.origin->prompt);

  const auto lines = head.lines();
  ASSERT_TRUE(lines.size() >= 6 && lines.size() <= 10);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const auto& line = *lines[i];
    SCOPED_TRACE(line.id);
    EXPECT_EQ(line.id, "l" + std::to_string(i + 1));
    EXPECT_FALSE(line.audio);
    ASSERT_TRUE(line.text && line.start && line.hold);
    std::istringstream words(*line.text);
    const auto count = std::distance(std::istream_iterator<std::string>(words), {});
    EXPECT_NEAR(*line.hold, double(count) / 2.6, 0.5);
    if (i > 0) {
      EXPECT_NEAR(*line.start, *lines[i - 1]->start + *lines[i - 1]->hold + 0.25, 0.005);
    }
  }
}

TEST(HaldenDemo, ScriptAnchorsToItsOwnLines) {
  const Recording head = RecordingStore(demo).loadHead();
  std::istringstream script(test::readFile(demo / *head.blocking));
  const std::regex header(R"(^\s*(with|after)\s+(\S+)[^:#]*:\s*(#.*)?$)");
  std::set<std::string> anchored;
  for (std::string text; std::getline(script, text);) {
    // A "#" inside quotes would cut the step short and lose it in silence.
    const auto hash = text.find('#'), quote = text.find('"');
    if (quote < hash) {
      EXPECT_LT(text.find('"', quote + 1), hash) << text;
    }
    if (std::smatch m; std::regex_match(text, m, header)) {
      EXPECT_TRUE(head.item(m[2].str())) << text;
      anchored.insert(m[2].str());
    }
  }
  EXPECT_EQ(anchored.size(), head.lines().size());
}

}  // namespace
}  // namespace tavorin
