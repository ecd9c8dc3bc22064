#pragma once
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/model/AppModel.hpp"
#include "app/model/LaunchTarget.hpp"
#include "kit/Library.hpp"
#include "kit/Project.hpp"
#include "kit/Seed.hpp"
#include "kit/SessionStore.hpp"

namespace tavorin {

class Trash;

enum class Page { script, edit, library };
// "script", "edit", "library": the words persisted and shown.
std::string word(Page);
std::optional<Page> pageNamed(std::string_view word);

struct Route {
  Page page = Page::library;
  static Route of(Page p) { return Route{p}; }
  bool operator==(const Route&) const = default;
};

// The application-level state: which page is up, which projects there are, what
// stands over the page. It owns no production of its own: the one AppModel is
// reopened in place.
class AppStore {
 public:
  struct Failure : std::runtime_error {
    enum class Kind { noSuchRoute, nothingToEdit };
    Kind kind;
    Failure(Kind kind, const std::string& text) : std::runtime_error(text), kind(kind) {}
    static Failure noSuchRoute(const std::string& name);
    static Failure nothingToEdit();
  };

  // What a path did.
  struct Landing {
    LaunchTarget target;
    bool accepted = false;
    std::string refusal;
  };

  // Where the demo fixture is looked for on a first launch.
  struct FixtureSearch {
    std::optional<std::filesystem::path> resources;
    std::filesystem::path workingDirectory;
    std::filesystem::path executable;
  };

  AppStore(AppModel& production, Library library, SessionStore session, Trash& trash);

  AppModel& production() { return production_; }
  const AppModel& production() const { return production_; }
  const Library& library() const { return library_; }
  const SessionStore& session() const { return session_; }
  // The recent list as it stands once every change already made has landed.
  std::vector<RecentProduction> recentProductions();

  Route route() const { return route_; }
  Page pageBeneath() const { return pageBeneath_; }
  const std::vector<Project>& projects() const { return projects_; }
  const std::optional<Project>& currentProject() const { return currentProject_; }
  const std::vector<RecordingSummary>& summaries() const { return summaries_; }
  const std::vector<Project::TrashedRecording>& trashed() const { return trashed_; }

  bool showingSlate = false;
  bool showingVersionMenu = false;
  bool showingExportSheet = false;
  bool exportSheetArmed = false;
  bool showingFetchSheet = false;
  // What the fetch sheet holds as typed: the source and the slice of it, in seconds.
  struct FetchAsk {
    std::string url;
    std::optional<double> start, end;
  };
  FetchAsk fetchAsk;
  // Runs a fetch as the music.fetch verb does; the service that owns yt-dlp sets it.
  std::function<void(const FetchAsk&)> fetchMusic;
  bool landed = false;
  FixtureSearch fixtureSearch;

  // ---- The start ---------------------------------------------------------------
  // The start sequence: root, first-launch seed, then the first path given, else
  // where the user left off. Nothing in it stops the launch.
  void bootstrap(const std::vector<std::string>& arguments);
  void seedIfEmpty();
  void resume();
  // The one door for a path: launch argument, drop, open.
  Landing accept(const std::filesystem::path& url);

  // ---- Pages ---------------------------------------------------------------------
  void go(Route route);
  // The nav verb's grammar.
  void navigate(const std::string& to);
  void refresh();
  void openProduction(const std::filesystem::path& dir);
  void adoptProjectOfOpenRecording();

  // ---- Flows over the page -------------------------------------------------------
  void beginShoot();
  void openExportSheet();
  // The export sheet with YouTube as its destination.
  void exportToYouTube();
  void dismissExportSheet();
  // File → Fetch audio…: the sheet where a URL and a range are typed in. Closing it
  // leaves a running fetch running; a fetch that lands closes it.
  void openFetchSheet();
  void dismissFetchSheet();
  // The sheet's Fetch button: the typed URL and range, at the playhead.
  void fetchFromSheet();
  // Closes what stands over the page; true when something was closed.
  bool endFlow();
  void openVersionMenu();
  void dismissVersionMenu();

  // ---- Library -------------------------------------------------------------------
  Project createProject(const std::string& name);
  Project openProject(const std::string& name);
  Project duplicateCurrentProject();
  std::filesystem::path trashProject(const std::string& name);
  void openRecording(const std::string& slug);
  std::string duplicateRecording(const std::string& slug);
  std::string trashRecording(const std::string& slug);
  std::string restoreRecording(const std::string& entry);
  Seed::Result newBlankRecording(const std::string& title);
  Seed::Result newRecording(const std::optional<std::string>& title, const std::string& prompt);
  void clearRecents();

 private:
  const Project& requireProject() const;
  void remember();

  AppModel& production_;
  Library library_;
  SessionStore session_;
  Trash& trash_;
  Route route_{Page::library};
  Page pageBeneath_ = Page::library;
  std::vector<Project> projects_;
  std::optional<Project> currentProject_;
  std::vector<RecordingSummary> summaries_;
  std::vector<Project::TrashedRecording> trashed_;
};

}  // namespace tavorin
