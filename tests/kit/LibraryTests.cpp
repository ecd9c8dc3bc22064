#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestSupport.hpp"
#include "kit/Library.hpp"
#include "kit/SessionStore.hpp"
#include "kit/Slug.hpp"

using namespace tavorin;
using test::refusal;
using namespace std::chrono;
using testing::ElementsAre;
namespace fs = std::filesystem;

namespace {

const Clock::time_point morning = sys_days{2026y / 2 / 16} + 9h + 45min + 1s;

// Makes a production with one saved version under <project>/recordings/<slug>.
fs::path production(const Project& project, const std::string& slug, const std::string& title) {
  Recording rec(slug, title);
  TimelineItem line("l1", ItemType::line);
  line.text = "Welcome.";
  line.start = 1.0;
  line.duration = 2.5;
  line.audio = "audio/l1.wav";  // no receipt: stale
  rec.timeline.push_back(line);
  rec.origin = Origin{"a film", "claude-code", "s-42", std::nullopt};
  fs::create_directories(project.recordingsDir() / slug);
  RecordingStore(project.recordingsDir() / slug).saveNewVersion(rec, morning);
  return project.recordingsDir() / slug;
}


// A trash of the test's own: a folder, or a failure when asked to fail.
struct FolderTrash : Trash {
  fs::path home;
  bool fail = false;
  explicit FolderTrash(fs::path home) : home(std::move(home)) {}
  fs::path moveToTrash(const fs::path& item) override {
    if (fail) throw std::runtime_error("the trash is full");
    fs::create_directories(home);
    fs::rename(item, home / item.filename());
    return home / item.filename();
  }
};

}  // namespace

TEST(Slug, MakesLowercaseDashedNamesOfAtMost64Characters) {
  EXPECT_EQ(Slug::make("Hello, World!"), "hello-world");
  EXPECT_EQ(Slug::make("!!!"), "untitled");
  EXPECT_EQ(Slug::make(""), "untitled");
  EXPECT_EQ(Slug::make("  Ship -- it  "), "ship-it");
  EXPECT_EQ(Slug::make("Café Olé — ÉTÉ 2026"), "café-olé-été-2026");
  EXPECT_EQ(Slug::make("Cafe\u0301 noir"), "cafe\u0301-noir");  // a mark stays on its letter
  EXPECT_EQ(Slug::make("a\xff" "b"), "a-b");                      // a broken byte is punctuation

  const std::string longest = Slug::make(std::string(80, 'x'));
  EXPECT_EQ(longest, std::string(64, 'x'));
  // Characters, not bytes: 70 two-byte letters keep 64 letters whole.
  std::string accents;
  for (int i = 0; i < 70; ++i) accents += "é";
  EXPECT_EQ(Slug::make(accents).size(), 128u);

  EXPECT_EQ(Slug::clean("--!!--"), "");
}

TEST(Slug, PlainNamesAreOneVisibleFolderEntry) {
  EXPECT_TRUE(Slug::isPlain("halden-demo"));
  for (const char* name : {"", ".", "..", ".hidden", "a/b", "a\\b", "/abs"}) EXPECT_FALSE(Slug::isPlain(name)) << name;
}

TEST(Project, TrashAndRestoreTakeAFreeSlugWhenTheOldOneWasTaken) {
  test::TempDir tmp;
  Library library(tmp.path());
  Project p = library.createProject("films", morning);
  production(p, "halden", "Halden");

  const std::string entry = p.trash("halden", morning);
  EXPECT_EQ(entry, "20260216-094501-halden");
  EXPECT_FALSE(fs::exists(p.recordingsDir() / "halden"));
  EXPECT_THAT(p.trashed(), ElementsAre(Project::TrashedRecording{entry, "halden", "Halden"}));

  production(p, "halden", "A new Halden");
  EXPECT_EQ(p.restore(entry), "halden-2");
  EXPECT_EQ(RecordingStore(p.recordingsDir() / "halden-2").loadHead().title, "Halden");
  EXPECT_TRUE(p.trashed().empty());
  EXPECT_EQ(refusal([&] { p.restore(entry); }), "nothing called '20260216-094501-halden' in the trash");

  // The same slug trashed twice in one second keeps both.
  const std::string again = p.trash("halden", morning);
  production(p, "halden", "Third");
  EXPECT_NE(p.trash("halden", morning), again);
  EXPECT_EQ(p.trashed().size(), 2u);

  EXPECT_EQ(refusal([&] { p.restore("../recordings"); }), "nothing called '../recordings' in the trash");
  EXPECT_EQ(refusal([&] { p.trash("gone", morning); }), "no recording 'gone' in this project");
  EXPECT_EQ(Project::slugOfTrashEntry("not-a-stamp"), "not-a-stamp");
}

TEST(Project, DuplicateCopiesUnderAFreeSlugWithoutTheDraftAndSavesACopyVersion) {
  test::TempDir tmp;
  Project p = Library(tmp.path()).createProject("films", morning);
  const fs::path original = production(p, "halden", "Halden");
  RecordingStore(original).writeDraft(Recording("halden", "unsaved"), "v0001-20260216-094501.json", morning);
  test::writeFile(original / "audio" / "l1.wav", "RIFF");

  EXPECT_EQ(p.duplicate("halden", morning + 1s), "halden-2");
  RecordingStore copy(p.recordingsDir() / "halden-2");
  EXPECT_FALSE(copy.hasDraft());
  EXPECT_EQ(copy.loadHead().title, "Halden copy");
  EXPECT_EQ(copy.manifest().versions.size(), 2u);
  EXPECT_EQ(test::readFile(copy.dir / "audio" / "l1.wav"), "RIFF");
  // The original keeps its draft and its one version.
  EXPECT_TRUE(RecordingStore(original).hasDraft());
  EXPECT_EQ(RecordingStore(original).manifest().versions.size(), 1u);
  EXPECT_EQ(p.duplicate("halden", morning + 2s), "halden-3");

  fs::create_directories(p.recordingsDir() / "loose");
  EXPECT_EQ(refusal([&] { p.duplicate("loose"); }),
            "'loose' is a folder in this project, but there is no manifest.json in it, so there is no production "
            "to copy");
  EXPECT_EQ(refusal([&] { p.duplicate("nope"); }), "no recording 'nope' in this project");

  // A copy whose head will not load is refused and leaves nothing behind.
  const fs::path broken = production(p, "broken", "Broken");
  test::writeFile(broken / "versions" / "v0001-20260216-094501.json", "{}");
  EXPECT_THAT(refusal([&] { p.duplicate("broken"); }), testing::StartsWith("'broken' would not copy: "));
  EXPECT_FALSE(fs::exists(p.recordingsDir() / "broken-2"));
}

TEST(Project, ListsProductionsWithTheirSummariesAndKnowsWhatItHolds) {
  test::TempDir tmp;
  Project p = Library(tmp.path()).createProject("films", morning);
  const fs::path dir = production(p, "halden", "Halden");
  test::writeFile(dir / "takes" / "t1" / "take.json", "{}");
  fs::create_directories(dir / "takes" / "t2");  // no record: not a take
  fs::create_directories(p.recordingsDir() / "loose");
  const fs::path broken = production(p, "broken", "Broken");
  fs::remove(broken / "versions" / "v0001-20260216-094501.json");

  auto list = p.recordings();
  ASSERT_EQ(list.size(), 2u);
  const auto& s = list[0].slug == "halden" ? list[0] : list[1];
  EXPECT_EQ(s.title, "Halden");
  EXPECT_EQ(s.lines, 1);
  EXPECT_EQ(s.stale, 1);
  EXPECT_EQ(s.versions, 1);
  EXPECT_EQ(s.takes, 1);
  EXPECT_DOUBLE_EQ(s.length, 3.5);
  EXPECT_EQ(s.agent, "claude-code");
  EXPECT_EQ(s.sessionId, "s-42");
  EXPECT_EQ(s.head, "v0001-20260216-094501.json");
  EXPECT_EQ(s.dir, dir);
  const auto& b = list[0].slug == "broken" ? list[0] : list[1];
  EXPECT_EQ(b.title, "broken");  // listed by its slug so that it can still be trashed

  EXPECT_TRUE(p.holds(dir));
  EXPECT_TRUE(p.holds(p.dir / "recordings" / ".." / "recordings" / "halden"));
  EXPECT_FALSE(p.holds(p.recordingsDir()));
  EXPECT_FALSE(p.holds(tmp / "elsewhere" / "recordings" / "halden"));
  EXPECT_EQ(p.uniqueSlug("fresh"), "fresh");
  EXPECT_EQ(p.uniqueSlug("loose"), "loose-2");
}

TEST(Library, MakesListsAndFindsProjects) {
  test::TempDir tmp;
  Library library(tmp / "Tavorin");
  EXPECT_TRUE(library.isEmpty());

  library.createProject("zeta", morning);
  library.createProject("alpha", morning);
  fs::create_directories(tmp / "Tavorin" / "stray");      // neither recordings/ nor project.json
  fs::create_directories(tmp / "Tavorin" / ".cache" / "recordings");
  std::vector<std::string> names;
  for (const auto& p : library.projects()) names.push_back(p.name());
  EXPECT_THAT(names, ElementsAre("alpha", "zeta"));
  EXPECT_FALSE(library.isEmpty());
  EXPECT_EQ(library.project("alpha").info(), (ProjectInfo{"alpha", std::nullopt, std::nullopt, "2026-02-16T09:45:01Z"}));

  EXPECT_EQ(refusal([&] { library.createProject("alpha"); }), "a project called 'alpha' already exists");
  EXPECT_EQ(refusal([&] { library.project("omega"); }), "no project 'omega' in ~/Tavorin");
  EXPECT_EQ(refusal([&] { library.project("../x"); }), "no project '../x' in ~/Tavorin");
  EXPECT_EQ(refusal([&] { library.createProject(".hidden"); }),
            "'.hidden' can't name a folder: a name must not be empty, begin with a dot or hold a slash");
}

TEST(Library, ProjectInfoKeepsItsCaptureAndReadsLeniently) {
  test::TempDir tmp;
  Project p(tmp.path());
  ProjectInfo info{"films", "notes", CaptureConfig{"window", "Safari", 30, true}, "2026-02-16T09:45:01Z"};
  p.writeInfo(info);
  EXPECT_EQ(p.info(), info);
  EXPECT_EQ(ProjectInfo::decode(R"({"name":"x","notes":null})"), (ProjectInfo{"x", {}, {}, {}}));
  EXPECT_THROW(ProjectInfo::decode(R"({"notes":"no name"})"), DocumentError);
  test::writeFile(p.infoURL(), "[");
  EXPECT_EQ(p.info().name, p.name());  // an unreadable file falls back to the folder's name
}

TEST(Library, DuplicateClonesBesideItselfWithoutDrafts) {
  test::TempDir tmp;
  Library library(tmp.path());
  Project films = library.createProject("films", morning);
  const fs::path dir = production(films, "halden", "Halden");
  RecordingStore(dir).writeDraft(Recording("halden", "unsaved"), "v0001-20260216-094501.json", morning);

  EXPECT_EQ(Library::clonedName("films", morning), "films_cloned_20260216-094501");
  Project clone = library.duplicate("films", morning + 1h);
  EXPECT_EQ(clone.name(), "films_cloned_20260216-104501");
  EXPECT_EQ(clone.info().name, "films_cloned_20260216-104501");
  EXPECT_EQ(clone.info().createdAt, "2026-02-16T10:45:01Z");
  EXPECT_FALSE(RecordingStore(clone.recordingsDir() / "halden").hasDraft());
  EXPECT_EQ(RecordingStore(clone.recordingsDir() / "halden").loadHead().title, "Halden");
  EXPECT_TRUE(RecordingStore(dir).hasDraft());

  EXPECT_EQ(refusal([&] { library.duplicate("films", morning + 1h); }),
            "a project called 'films_cloned_20260216-104501' already exists");
  EXPECT_EQ(refusal([&] { library.duplicate("nope"); }), "no project 'nope' in ~/Tavorin");
}

TEST(Library, TrashMovesAProjectUnlessOneOfItsProductionsIsOpen) {
  test::TempDir tmp;
  Library library(tmp / "root");
  Project films = library.createProject("films", morning);
  const fs::path open = production(films, "halden", "Halden");
  Project other = library.createProject("other", morning);
  const fs::path elsewhere = production(other, "x", "X");
  FolderTrash trash(tmp / "trash");

  EXPECT_EQ(refusal([&] { library.trash("films", trash, open); }),
            "'films' can't move to the Trash while one of its recordings is open. Open a recording from another "
            "project first.");
  EXPECT_TRUE(fs::exists(films.dir));

  trash.fail = true;
  EXPECT_EQ(refusal([&] { library.trash("films", trash, elsewhere); }),
            "'films' would not move to the Trash: the trash is full");
  trash.fail = false;

  EXPECT_EQ(library.trash("films", trash, elsewhere), tmp / "trash" / "films");
  EXPECT_FALSE(fs::exists(films.dir));
  EXPECT_EQ(refusal([&] { library.trash("films", trash); }), "no project 'films' in ~/Tavorin");
}

TEST(SessionStore, RemembersOneFieldAtATimeAndDropsWhatIsGone) {
  test::TempDir tmp;
  SessionStore session(tmp / "support" / "session.json");
  EXPECT_EQ(session.read(), SessionMemory{});

  Project films = Library(tmp / "root").createProject("films", morning);
  const fs::path a = production(films, "a", "Film A");
  const fs::path b = production(films, "b", "Film B");
  session.rememberPage("edit");
  session.rememberProduction(a);
  session.rememberProduction(b);
  session.rememberProduction(a);
  session.rememberProject("films");
  session.rememberExportSpeed("mp4", 2.5);
  session.rememberCollapsed({"timing"});

  SessionMemory m = session.read();
  EXPECT_EQ(m.production, a.string());
  EXPECT_EQ(m.page, "edit");
  EXPECT_EQ(m.project, "films");
  EXPECT_THAT(m.recents, ElementsAre(a.string(), b.string()));
  EXPECT_EQ(m.exportSpeeds, (std::map<std::string, double>{{"mp4", 2.5}}));
  EXPECT_THAT(session.recentProductions(),
              ElementsAre(RecentProduction{a, "Film A", "films"}, RecentProduction{b, "Film B", "films"}));

  for (int i = 0; i < 12; ++i) session.rememberProduction(tmp / ("p" + std::to_string(i)));
  EXPECT_EQ(session.read().recents.size(), SessionStore::recentLimit);

  // The last production went away: it is forgotten, the rest stays.
  session.rememberProduction(b);
  session.rememberProduction(a);
  fs::remove_all(a);
  m = session.read();
  EXPECT_EQ(m.production, std::nullopt);
  EXPECT_EQ(m.page, "edit");
  EXPECT_THAT(session.recentProductions(), ElementsAre(RecentProduction{b, "Film B", "films"}));

  session.clearRecents();
  EXPECT_TRUE(session.read().recents.empty());
  test::writeFile(session.file, "{ torn");
  EXPECT_EQ(session.read(), SessionMemory{});
}
