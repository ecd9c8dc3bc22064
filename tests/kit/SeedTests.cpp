#include <gtest/gtest.h>

#include <set>

#include "TestSupport.hpp"
#include "kit/Library.hpp"
#include "kit/Seed.hpp"

using namespace tavorin;
using test::refusal;
using namespace std::chrono;
namespace fs = std::filesystem;

namespace {

const Clock::time_point morning = sys_days{2026y / 2 / 16} + 9h + 45min + 1s;


// A small stand-in for the demo fixture: a production with a version, a script and audio.
fs::path fixture(const fs::path& at) {
  const fs::path dir = at / "examples" / "halden-demo";
  fs::create_directories(dir);
  RecordingStore(dir).saveNewVersion(Recording("halden-demo", "Halden"), morning);
  test::writeFile(dir / "blocking.stage", "wait 1\n");
  test::writeFile(dir / "audio" / "l1.wav", "RIFF");
  return dir;
}

}  // namespace

TEST(Seed, SlugsCollapseRunsAndNeverComeOutEmpty) {
  EXPECT_EQ(Seed::slug("Hello, World!"), "hello-world");
  EXPECT_EQ(Seed::slug("!!!"), "untitled");
  EXPECT_EQ(Seed::slug("  A -- b  "), "a-b");
  EXPECT_EQ(Seed::slug(std::string(80, 'z')).size(), 80u);  // no length cap here
}

TEST(Seed, RecordingMakesAFirstVersionAnEmptyScriptAndKeepsThePromptVerbatim) {
  test::TempDir tmp;
  Project p = Library(tmp.path()).createProject("films", morning);
  const std::string prompt = "  A tour of Halden's\tsettings page.\n";
  auto r = Seed::recording(p, "halden-tour", std::nullopt, prompt, "claude-code", morning);

  EXPECT_EQ(r.dir, p.recordingsDir() / "halden-tour");
  EXPECT_EQ(r.slug, "halden-tour");
  EXPECT_EQ(r.version, "v0001-20260216-094501.json");
  EXPECT_EQ(test::readFile(r.dir / "blocking.stage"), "");
  Recording rec = RecordingStore(r.dir).loadHead();
  EXPECT_EQ(rec.id, "halden-tour");
  EXPECT_EQ(rec.title, "halden-tour");  // no title: the slug stands in
  EXPECT_EQ(rec.blocking, "blocking.stage");
  EXPECT_EQ(rec.origin, (Origin{prompt, "claude-code", "", "2026-02-16T09:45:01Z"}));

  auto blank = Seed::recording(p, "blank", "A blank film", std::nullopt, std::nullopt, morning);
  Recording b = RecordingStore(blank.dir).loadHead();
  EXPECT_EQ(b.title, "A blank film");
  EXPECT_EQ(b.origin, std::nullopt);
}

TEST(Seed, RecordingRefusesATakenSlugAndABlankPromptWithoutWritingAnything) {
  test::TempDir tmp;
  Project p = Library(tmp.path()).createProject("films", morning);
  Seed::recording(p, "taken", std::nullopt, std::nullopt, std::nullopt, morning);

  EXPECT_EQ(refusal([&] { Seed::recording(p, "taken", std::nullopt, "again", std::nullopt, morning); }),
            "there is already a recording called 'taken' in this project");
  EXPECT_EQ(refusal([&] { Seed::recording(p, "fresh", std::nullopt, " \n\t", std::nullopt, morning); }),
            "say what the production should be — that sentence is the record of why it exists");
  EXPECT_FALSE(fs::exists(p.recordingsDir() / "fresh"));
  EXPECT_EQ(RecordingStore(p.recordingsDir() / "taken").manifest().versions.size(), 1u);
}

TEST(Seed, DemoFixtureLooksInResourcesThenUpFromTheWorkingDirectoryThenUpFromTheExecutable) {
  std::set<fs::path> present;
  auto exists = [&](const fs::path& p) { return present.count(p) > 0; };
  const fs::path res = "/opt/tavorin/share/tavorin";
  const fs::path cwd = "/home/u/work/sub";
  const fs::path exe = "/src/tavorin/build/src/main/tavorin";
  const fs::path installedExe = "/usr/local/bin/tavorin";

  EXPECT_EQ(Seed::demoFixture(res, cwd, exe, exists), std::nullopt);

  present = {"/usr/local/share/tavorin/examples/halden-demo/manifest.json"};
  EXPECT_EQ(Seed::demoFixture(std::nullopt, cwd, installedExe, exists),
            fs::path("/usr/local/share/tavorin/examples/halden-demo"));

  present.insert("/src/tavorin/examples/halden-demo/manifest.json");  // a checkout above the build folder
  EXPECT_EQ(Seed::demoFixture(std::nullopt, cwd, exe, exists), fs::path("/src/tavorin/examples/halden-demo"));

  present.insert("/home/u/examples/halden-demo/manifest.json");  // above the working directory
  EXPECT_EQ(Seed::demoFixture(std::nullopt, cwd, exe, exists), fs::path("/home/u/examples/halden-demo"));

  present.insert(res / "examples/halden-demo/manifest.json");
  EXPECT_EQ(Seed::demoFixture(res, cwd, exe, exists), res / "examples/halden-demo");

  // Without a test of its own it asks the disk.
  test::TempDir tmp;
  const fs::path real = fixture(tmp.path());
  EXPECT_EQ(Seed::demoFixture(std::nullopt, tmp / "a" / "b", "/nowhere/bin/tavorin"), real);
}

TEST(Seed, SeedDemoCopiesTheFixtureIntoTheDemoProject) {
  test::TempDir tmp;
  const fs::path from = fixture(tmp / "checkout");
  Library library(tmp / "Tavorin");

  Project demo = library.seedDemo(from, "demo", "halden-demo");
  EXPECT_EQ(demo.name(), "demo");
  EXPECT_FALSE(library.isEmpty());
  const fs::path copy = demo.recordingsDir() / "halden-demo";
  EXPECT_EQ(RecordingStore(copy).loadHead().title, "Halden");
  EXPECT_EQ(test::readFile(copy / "blocking.stage"), "wait 1\n");
  EXPECT_EQ(test::readFile(copy / "audio" / "l1.wav"), "RIFF");
  EXPECT_TRUE(fs::exists(from / "manifest.json"));  // copied, not moved

  EXPECT_EQ(refusal([&] { library.seedDemo(from, "demo", "halden-demo"); }),
            "there is already a recording called 'halden-demo' in this project");
  EXPECT_EQ(refusal([&] { library.seedDemo(tmp / "checkout", "demo", "other"); }),
            "'other' is a folder in this project, but there is no manifest.json in it, so there is no production "
            "to copy");
}
