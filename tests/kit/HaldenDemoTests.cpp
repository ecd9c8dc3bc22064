#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <regex>
#include <sstream>

#include "TestSupport.hpp"
#include "kit/Looks.hpp"
#include "kit/RecordingStore.hpp"

// The demo production is the first thing a new user opens, so it must be exactly
// what the program itself would have written, and its script must fit its lines.
namespace tavorin {
namespace {

namespace fs = std::filesystem;

const fs::path demo = fs::path(__FILE__).parent_path() / "../../examples/halden-demo";

std::size_t words(const std::string& text) {
  std::istringstream in(text);
  std::size_t n = 0;
  for (std::string w; in >> w;) ++n;
  return n;
}

TEST(HaldenDemo, IsWhatTheStoreWouldWrite) {
  const RecordingStore store(demo);
  const auto manifest = store.manifest();
  ASSERT_EQ(manifest.versions, std::vector{manifest.head});
  const Recording head = store.loadHead();

  using namespace std::chrono;
  const auto savedAt = sys_days{year{2026} / February / 16} + hours{9} + minutes{45} + seconds{1};
  test::TempDir dir;
  const RecordingStore copy(dir.path());
  EXPECT_EQ(copy.saveNewVersion(head, savedAt), manifest.head);
  EXPECT_EQ(test::readFile(copy.versionsDir() / manifest.head), test::readFile(store.versionsDir() / manifest.head));
  EXPECT_EQ(test::readFile(copy.manifestURL()), test::readFile(store.manifestURL()));
}

TEST(HaldenDemo, IsAFreshProductionReadyToRender) {
  const Recording head = RecordingStore(demo).loadHead();
  EXPECT_EQ(head.schema, Schema::current);
  EXPECT_EQ(head.id, "halden-demo");
  EXPECT_EQ(head.blocking, "blocking.stage");
  EXPECT_EQ(head.look, Looks::fresh());
  ASSERT_TRUE(head.origin && head.origin->prompt);
  EXPECT_TRUE(fs::is_regular_file(demo / *head.blocking));

  const auto lines = head.lines();
  ASSERT_GE(lines.size(), 6u);
  ASSERT_LE(lines.size(), 10u);
  EXPECT_EQ(lines.size(), head.timeline.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const auto& line = *lines[i];
    SCOPED_TRACE(line.id);
    EXPECT_EQ(line.id, "l" + std::to_string(i + 1));
    EXPECT_FALSE(line.audio);
    ASSERT_TRUE(line.text && line.start && line.hold);
    // About 2.6 words a second, and the next line a quarter second after.
    EXPECT_NEAR(*line.hold, double(words(*line.text)) / 2.6, 0.5);
    if (i + 1 < lines.size()) {
      EXPECT_NEAR(*lines[i + 1]->start, *line.start + *line.hold + 0.25, 0.005);
    }
  }
}

TEST(HaldenDemo, ScriptAnchorsOnlyToItsLines) {
  const Recording head = RecordingStore(demo).loadHead();
  std::istringstream script(test::readFile(demo / "blocking.stage"));
  const std::regex header(R"(^\s*(with|after)\s+(\S+)[^:]*:\s*(#.*)?$)");
  int anchors = 0;
  for (std::string text; std::getline(script, text);) {
    // A "#" inside quotes would cut the step short and lose it in silence.
    const auto hash = text.find('#');
    const auto quote = text.find('"');
    if (quote < hash) {
      EXPECT_LT(text.find('"', quote + 1), hash) << text;
    }
    std::smatch m;
    if (std::regex_match(text, m, header)) {
      ++anchors;
      EXPECT_TRUE(head.item(m[2].str())) << text;
    }
  }
  EXPECT_GE(anchors, int(head.lines().size()));
}

}  // namespace
}  // namespace tavorin
