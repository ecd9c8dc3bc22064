#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "app/model/AppStore.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/Scope.hpp"
#include "kit/Pasteboard.hpp"
#include "kit/RecordingStore.hpp"
#include "platform/FreedesktopTrash.hpp"

using namespace tavorin;
using test::refusal;
namespace fs = std::filesystem;

namespace {

// A studio on a temporary productions root, support folder and Trash.
struct Studio {
  explicit Studio(const fs::path& tmp)
      : tmp(tmp),
        model(actor, SessionStore(tmp / "support/session.json"), pasteboard),
        store(model, Library(tmp / "root"), SessionStore(tmp / "support/session.json"), trash) {
    store.fixtureSearch = {std::nullopt, tmp / "nowhere", tmp / "nowhere/bin/tavorin"};
  }
  bool saw(const std::string& event) const {
    for (const auto& e : model.events())
      if (e == event) return true;
    return false;
  }
  fs::path tmp;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  FreedesktopTrash trash{tmp / "Trash"};
  AppModel model;
  AppStore store;
};

// A small production folder like the demo fixture.
fs::path makeFixture(const fs::path& at) {
  Recording r("halden-demo", "Halden");
  TimelineItem l1("l1", ItemType::line);
  l1.text = "Hello.";
  l1.start = 0;
  l1.hold = 1;
  r.timeline.push_back(l1);
  r.blocking = "blocking.stage";
  RecordingStore(at / "examples/halden-demo").saveNewVersion(r, std::chrono::system_clock::now());
  test::writeFile(at / "examples/halden-demo/blocking.stage", "at l1:\n  wait 1\n");
  return at / "examples/halden-demo";
}

class AppStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Scope::resetForTesting();
    scripting.emplace("TAVORIN_SCRIPTING", std::nullopt);
    support.emplace("TAVORIN_SUPPORT", (tmp / "support").string());
  }
  void TearDown() override { Scope::resetForTesting(); }
  test::TempDir tmp;
  std::optional<test::ScopedEnv> scripting, support;
};

}  // namespace

TEST_F(AppStoreTest, AFirstLaunchSeedsTheDemoAndASecondResumesWhereTheUserWas) {
  makeFixture(tmp / "checkout");
  {
    Studio s(tmp.path());
    s.store.fixtureSearch = {std::nullopt, tmp / "checkout", tmp / "checkout/build/src/main/tavorin"};
    s.store.bootstrap({});
    EXPECT_TRUE(s.saw("seeded ~/Tavorin with the demo project"));
    EXPECT_TRUE(fs::exists(tmp / "root/demo/recordings/halden-demo/manifest.json"));
    EXPECT_EQ(s.store.route().page, Page::library);
    s.store.openProject("demo");
    s.store.openRecording("halden-demo");
    s.store.go(Route::of(Page::script));
  }
  Studio again(tmp.path());
  again.store.bootstrap({});
  EXPECT_FALSE(again.saw("seeded ~/Tavorin with the demo project"));
  ASSERT_TRUE(again.model.isOpen());
  EXPECT_EQ(again.model.recording().id, "halden-demo");
  EXPECT_EQ(again.store.route().page, Page::script);
  EXPECT_EQ(again.store.currentProject()->name(), "demo");
  EXPECT_EQ(again.model.blocking(), "at l1:\n  wait 1\n");
}

TEST_F(AppStoreTest, AFirstLaunchWithNoFixtureStartsQuietlyOnTheLibrary) {
  Studio s(tmp.path());
  s.store.bootstrap({});
  EXPECT_FALSE(s.saw("seeded ~/Tavorin with the demo project"));
  EXPECT_TRUE(fs::is_directory(tmp / "root"));
  EXPECT_EQ(s.store.route().page, Page::library);
  EXPECT_FALSE(s.model.isOpen());
}

TEST_F(AppStoreTest, OnlyTheFirstNonOptionArgumentCountsAndARefusalStillResumes) {
  makeFixture(tmp / "checkout");
  const fs::path production = tmp / "checkout/examples/halden-demo";
  {
    Studio s(tmp.path());
    s.store.bootstrap({"--verbose", production.string(), (tmp / "ignored").string()});
    EXPECT_TRUE(s.model.isOpen());
    EXPECT_EQ(s.store.route().page, Page::edit);
  }
  Studio again(tmp.path());
  again.store.bootstrap({(tmp / "not-a-production").string()});
  EXPECT_TRUE(again.saw("not-a-production isn't a production or a project (a production has a manifest.json beside versions/)."));
  EXPECT_TRUE(again.model.isOpen());  // resumed the last session all the same
}

TEST_F(AppStoreTest, AcceptClassifiesInItsTestOrder) {
  Studio s(tmp.path());
  s.store.bootstrap({});
  fs::create_directories(tmp / "both/recordings");
  RecordingStore(tmp / "both").saveNewVersion(Recording("both", "Both"), std::chrono::system_clock::now());
  auto landing = s.store.accept(tmp / "both");
  EXPECT_EQ(landing.target.kind, LaunchTarget::Kind::production);  // manifest wins over recordings
  EXPECT_TRUE(landing.accepted);
  EXPECT_EQ(s.store.route().page, Page::edit);

  fs::create_directories(tmp / "proj/recordings");
  landing = s.store.accept(tmp / "proj");
  EXPECT_EQ(landing.target.word(), "project");
  EXPECT_EQ(s.store.route().page, Page::library);

  landing = s.store.accept(tmp / "root/");
  EXPECT_EQ(landing.target.word(), "root");
  EXPECT_TRUE(landing.accepted);

  test::writeFile(tmp / "voice.wav", "RIFF....WAVEfmt ");
  landing = s.store.accept(tmp / "voice.wav");
  EXPECT_EQ(landing.target.word(), "audio");
  EXPECT_FALSE(landing.accepted);

  fs::create_directories(tmp / "plain");
  landing = s.store.accept(tmp / "plain");
  EXPECT_EQ(landing.target.word(), "unknown");
  EXPECT_EQ(landing.refusal, "plain isn't a production or a project (a production has a manifest.json beside versions/).");
}

TEST_F(AppStoreTest, MediaWithNothingOpenIsRefusedByName) {
  Studio s(tmp.path());
  test::writeFile(tmp / "clip.mov", "x");
  const auto landing = s.store.accept(tmp / "clip.mov");
  EXPECT_EQ(landing.refusal, "clip.mov needs a production to go into. Open one from Projects, then drop it again.");
  EXPECT_EQ(s.store.route().page, Page::library);  // a refused path never moves the page
}

TEST_F(AppStoreTest, ABrokenProductionIsRefusedAndTheOpenOneStays) {
  Studio s(tmp.path());
  makeFixture(tmp / "checkout");
  s.store.accept(tmp / "checkout/examples/halden-demo");
  test::writeFile(tmp / "broken/manifest.json", "{}");
  const auto landing = s.store.accept(tmp / "broken");
  EXPECT_FALSE(landing.accepted);
  EXPECT_EQ(landing.refusal, "no production at " + (tmp / "broken").string() +
                                 " (expected a manifest.json beside versions/)");
  EXPECT_EQ(s.model.recording().id, "halden-demo");
}

TEST_F(AppStoreTest, NavigateGrammar) {
  Studio s(tmp.path());
  s.store.bootstrap({});
  EXPECT_EQ(refusal([&] { s.store.navigate("script"); }), "nothing to edit — open a production first");
  EXPECT_EQ(refusal([&] { s.store.navigate("shoot"); }), "nothing to edit — open a production first");
  EXPECT_EQ(refusal([&] { s.store.navigate("editor:nonsense"); }),
            "no route 'editor:nonsense'. Try: script, edit, library[:project], shoot, export");
  EXPECT_EQ(refusal([&] { s.store.navigate("elsewhere"); }),
            "no route 'elsewhere'. Try: script, edit, library[:project], shoot, export");

  s.store.createProject("Films");
  s.store.newBlankRecording("Intro");
  s.store.navigate("editor:script");
  EXPECT_EQ(s.store.route().page, Page::script);
  s.store.navigate("edit");
  EXPECT_EQ(s.store.pageBeneath(), Page::script);
  s.store.navigate("projects");
  EXPECT_EQ(s.store.route().page, Page::library);
  s.store.navigate("editor");
  EXPECT_EQ(s.store.route().page, Page::edit);
  s.store.navigate("library:Films");
  EXPECT_EQ(s.store.currentProject()->name(), "Films");
  s.store.navigate("shoot");
  EXPECT_TRUE(s.store.showingSlate);
  s.store.navigate("editor:export");
  EXPECT_TRUE(s.store.showingExportSheet);
  EXPECT_TRUE(s.store.endFlow());
  EXPECT_TRUE(s.store.endFlow());
  EXPECT_FALSE(s.store.endFlow());
  EXPECT_TRUE(s.saw("slate dismissed"));
}

TEST_F(AppStoreTest, WithScriptingOffTheScriptPageLandsOnEditAndPersistsEdit) {
  test::ScopedEnv off("TAVORIN_SCRIPTING", "0");
  Scope::resetForTesting();
  Studio s(tmp.path());
  s.store.createProject("Films");
  s.store.newBlankRecording("Intro");
  s.store.navigate("script");
  EXPECT_EQ(s.store.route().page, Page::edit);
  s.actor.drain();  // the workers write the session
  EXPECT_EQ(SessionStore(tmp / "support/session.json").read().page, "edit");
}

TEST_F(AppStoreTest, RecordingsAreMadeTrashedAndRestored) {
  Studio s(tmp.path());
  EXPECT_EQ(refusal([&] { s.store.newBlankRecording("Intro"); }), "no project open. Open one in Projects first");
  s.store.createProject("Films");
  s.store.newBlankRecording("Intro");
  const auto seeded = s.store.newRecording(std::nullopt, "A short tour of the export sheet, for new users");
  EXPECT_EQ(seeded.slug, "a-short-tour-of-the-export");  // the first six words
  EXPECT_EQ(s.model.recording().origin->agent, "claude-code");
  EXPECT_NE(refusal([&] { s.store.trashRecording(seeded.slug); }).find("is open in the editor"), std::string::npos);

  const auto entry = s.store.trashRecording("intro");
  EXPECT_EQ(s.store.summaries().size(), 1u);
  EXPECT_EQ(s.store.trashed().size(), 1u);
  EXPECT_EQ(s.store.restoreRecording(entry), "intro");
  EXPECT_EQ(s.store.summaries().size(), 2u);
}

