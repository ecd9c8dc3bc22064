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
      // A breath between lines, which rendering keeps as the lines take their real lengths.
      EXPECT_NEAR(*line.start, *lines[i - 1]->start + *lines[i - 1]->hold + 0.7, 0.005);
    }
  }
}

// Filmable on a fresh machine: the voice it has, a page and a bed that travel with the
// production, and the finish of a film of our own.
TEST(HaldenDemo, CarriesEverythingItNeeds) {
  const Recording head = RecordingStore(demo).loadHead();
  EXPECT_EQ(head.voice.driver, "local");
  EXPECT_EQ(head.voice.character, std::optional<std::string>("espeak-ng"));

  std::vector<const TimelineItem*> beds;
  for (const auto& item : head.timeline)
    if (item.type == ItemType::audio) beds.push_back(&item);
  ASSERT_EQ(beds.size(), 1u);
  ASSERT_TRUE(beds[0]->file && beds[0]->gain && beds[0]->duration);
  EXPECT_TRUE(std::filesystem::is_regular_file(demo / *beds[0]->file)) << *beds[0]->file;
  EXPECT_LE(*beds[0]->gain, -18);  // quiet under the voice
  EXPECT_EQ(beds[0]->start, std::optional<double>(0));  // under the title from the first frame

  Look look = Looks::fresh();
  look.background = Look::Background{std::string("tide"), std::nullopt, std::nullopt};
  EXPECT_EQ(head.look, look);
  ASSERT_TRUE(head.subtitles && head.subtitles->burn);
  EXPECT_TRUE(*head.subtitles->burn);
  ASSERT_TRUE(head.zooms && !head.zooms->empty());
  for (const auto& zoom : *head.zooms) EXPECT_LT(zoom.from, zoom.to) << zoom.id;

  // The script opens the page of the production's own folder.
  const std::string script = test::readFile(demo / *head.blocking);
  std::smatch open;
  ASSERT_TRUE(std::regex_search(script, open, std::regex("\nopen \"([^\"]+)\"")));
  EXPECT_TRUE(std::filesystem::is_regular_file(demo / open[1].str())) << open[1];
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
