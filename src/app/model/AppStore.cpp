#include "app/model/AppStore.hpp"

#include <sstream>

#include "app/model/ImportRouter.hpp"
#include "app/model/Scope.hpp"
#include "base/Text.hpp"
#include "kit/Trash.hpp"
#include "platform/TavorinPaths.hpp"

namespace tavorin {

namespace fs = std::filesystem;

std::string word(Page p) {
  switch (p) {
    case Page::script: return "script";
    case Page::edit: return "edit";
    case Page::library: return "library";
  }
  return "library";
}

std::optional<Page> pageNamed(std::string_view w) {
  if (w == "script") return Page::script;
  if (w == "edit") return Page::edit;
  if (w == "library") return Page::library;
  return std::nullopt;
}

AppStore::Failure AppStore::Failure::noSuchRoute(const std::string& name) {
  return Failure(Kind::noSuchRoute, "no route '" + name + "'. Try: script, edit, library[:project], shoot, export");
}
AppStore::Failure AppStore::Failure::nothingToEdit() {
  return Failure(Kind::nothingToEdit, "nothing to edit — open a production first");
}

AppStore::AppStore(AppModel& production, Library library, SessionStore session, Trash& trash)
    : production_(production), library_(std::move(library)), session_(std::move(session)), trash_(trash) {}

// ---- The start ------------------------------------------------------------------

void AppStore::bootstrap(const std::vector<std::string>& arguments) {
  std::error_code ec;
  fs::create_directories(library_.root, ec);
  seedIfEmpty();
  production_.loadPanelState();
  refresh();
  if (landed) return;
  for (const auto& argument : arguments) {
    if (!argument.empty() && argument.front() == '-') continue;
    // Only the first path counts; a refused one still resumes the last session.
    if (accept(Environment::expandTilde(argument)).accepted) {
      landed = true;
      return;
    }
    break;
  }
  resume();
  landed = true;
}

void AppStore::seedIfEmpty() {
  if (!library_.isEmpty()) return;
  const auto fixture =
      Seed::demoFixture(fixtureSearch.resources, fixtureSearch.workingDirectory, fixtureSearch.executable);
  if (!fixture) return;
  try {
    library_.seedDemo(*fixture, "demo", "halden-demo");
    production_.note("seeded ~/Tavorin with the demo project");
  } catch (const std::exception& e) {
    // A failed seed leaves an empty library, which is a working one.
    production_.note(std::string("the demo project could not be seeded: ") + e.what());
  }
}

void AppStore::resume() {
  production_.sessionWriter().flush();
  const SessionMemory memory = session_.read();
  if (memory.production) {
    try {
      openProduction(*memory.production);
    } catch (const std::exception&) {
      // Seen through the model: nothing opened.
    }
  }
  if (production_.isOpen()) {
    go(Route::of(memory.page ? pageNamed(*memory.page).value_or(Page::edit) : Page::edit));
    return;
  }
  if (memory.production)
    production_.note("last production is no longer at " + *memory.production + " — opened Projects");
  if (memory.project) {
    try {
      openProject(*memory.project);
    } catch (const std::exception& e) {
      production_.note("last project could not be opened: " + std::string(e.what()));
    }
  }
  go(Route::of(Page::library));
}

AppStore::Landing AppStore::accept(const fs::path& url) {
  Landing landing;
  landing.target = LaunchTarget::of(url, library_.root);
  landed = true;
  switch (landing.target.kind) {
    case LaunchTarget::Kind::root:
      refresh();
      go(Route::of(Page::library));
      landing.accepted = true;
      break;
    case LaunchTarget::Kind::project: {
      // A known project, or one outside the productions folder taken as it is.
      currentProject_ = Project(landing.target.url);
      for (const auto& p : projects_)
        if (standardized(p.dir) == landing.target.url) currentProject_ = p;
      refresh();
      go(Route::of(Page::library));
      landing.accepted = true;
      break;
    }
    case LaunchTarget::Kind::production:
      try {
        openProduction(landing.target.url);
        go(Route::of(Page::edit));
        landing.accepted = true;
      } catch (const std::exception&) {
        landing.refusal = AppModel::Failure::cannotOpen(landing.target.url.string()).what();
        production_.note(landing.refusal);
      }
      break;
    case LaunchTarget::Kind::media:
      if (!production_.isOpen()) {
        landing.refusal = LaunchTarget::refusalWithNothingOpen(landing.target.url);
      } else {
        // Importing lands with the takes; until then a media file is refused by name.
        landing.refusal = ImportRouter::refusal(landing.target.url);
      }
      production_.note(landing.refusal);
      break;
    case LaunchTarget::Kind::unknown:
      landing.refusal = LaunchTarget::refusal(landing.target.url);
      production_.note(landing.refusal);
      break;
  }
  return landing;
}

// ---- Pages ----------------------------------------------------------------------

void AppStore::go(Route route) {
  if (!Scope::scripting() && route.page == Page::script) route.page = Page::edit;
  if (route != route_) pageBeneath_ = route_.page;
  route_ = route;
  remember();
  production_.note("nav " + word(route.page));
}

void AppStore::remember() {
  // The session file is a convenience; failing to write it never blocks a page.
  production_.sessionWriter().write(
      session_, [page = word(route_.page),
                 project = currentProject_ ? std::optional<std::string>(currentProject_->name()) : std::nullopt](
                    const SessionStore& s) {
        s.rememberPage(page);
        s.rememberProject(project);
      });
}

void AppStore::navigate(const std::string& to) {
  const auto colon = to.find(':');
  const std::string first = colon == std::string::npos ? to : to.substr(0, colon);
  const std::optional<std::string> rest =
      colon == std::string::npos ? std::nullopt : std::optional<std::string>(to.substr(colon + 1));

  // "library:" names no project: it is the library page itself.
  if ((first == "library" || first == "dailies") && rest && !rest->empty()) {
    openProject(*rest);
    go(Route::of(Page::library));
    return;
  }
  if (to == "shoot" || to == "editor:shoot") {
    if (!production_.isOpen()) throw Failure::nothingToEdit();
    beginShoot();
    return;
  }
  if (to == "export" || to == "render" || to == "editor:render" || to == "editor:export") {
    if (!production_.isOpen()) throw Failure::nothingToEdit();
    openExportSheet();
    return;
  }
  if (to == "script" || to == "edit") {
    if (!production_.isOpen()) throw Failure::nothingToEdit();
    go(Route::of(*pageNamed(to)));
    return;
  }
  if (first == "library" || first == "projects" || first == "dailies") {
    refresh();
    go(Route::of(Page::library));
    return;
  }
  // Former words stay understood so that old scripts go on running.
  if (to == "editor") {
    if (!production_.isOpen()) throw Failure::nothingToEdit();
    go(Route::of(Page::edit));
    return;
  }
  if (first == "editor" && rest && !rest->empty() && *rest != to) {
    try {
      navigate(*rest);
      return;
    } catch (const Failure& f) {
      // Named with the whole text below; any other failure stands as it is.
      if (f.kind != Failure::Kind::noSuchRoute) throw;
    }
  }
  throw Failure::noSuchRoute(to);
}

void AppStore::refresh() {
  try {
    projects_ = library_.projects();
  } catch (const std::exception&) {
    projects_.clear();
  }
  summaries_.clear();
  trashed_.clear();
  if (currentProject_) {
    try {
      summaries_ = currentProject_->recordings();
      trashed_ = currentProject_->trashed();
    } catch (const std::exception&) {
      // An unreadable project folder shows empty; opening a recording in it names the fault.
    }
  }
}

void AppStore::openProduction(const fs::path& dir) {
  production_.open(dir);
  showingSlate = false;
  showingVersionMenu = false;
  showingExportSheet = false;
  exportSheetArmed = false;
  adoptProjectOfOpenRecording();
}

void AppStore::adoptProjectOfOpenRecording() {
  const auto& dir = production_.baseDir();
  if (!dir) return;
  const fs::path project = standardized(*dir).parent_path().parent_path();
  for (const auto& p : projects_) {
    if (standardized(p.dir) == project) {
      currentProject_ = p;
      refresh();
      return;
    }
  }
  std::error_code ec;
  if (fs::exists(project / "project.json", ec)) currentProject_ = Project(project);
  else currentProject_.reset();
  refresh();
}

// ---- Flows ------------------------------------------------------------------------

void AppStore::beginShoot() {
  if (!production_.isOpen()) return;
  showingSlate = true;
  production_.note("slate up");
}

void AppStore::openExportSheet() {
  if (!production_.isOpen()) return;
  showingExportSheet = true;
  exportSheetArmed = false;
  production_.note("export sheet up");
}

void AppStore::exportToYouTube() {
  if (!production_.isOpen()) return;
  // Without footage there is nothing to send: the plain sheet comes up, unarmed.
  if (production_.missingFootage()) return openExportSheet();
  // Armed, the sheet asks once: the destination is YouTube, so the export's end uploads.
  if (production_.exportTarget().effectiveDestination() != ExportDestination::youtube)
    production_.setExportDestination(ExportDestination::youtube);
  production_.forgetFinishedExport();
  showingExportSheet = true;
  exportSheetArmed = true;
  production_.note("export sheet up, armed for YouTube");
}

void AppStore::dismissExportSheet() {
  showingExportSheet = false;
  exportSheetArmed = false;
  production_.forgetFinishedExport();
  production_.note("export sheet dismissed");
}

void AppStore::openFetchSheet() {
  if (!production_.isOpen()) throw AppModel::Failure::noProduction();
  if (showingFetchSheet) return;
  showingFetchSheet = true;
  production_.note("fetch sheet up");
}

void AppStore::dismissFetchSheet() {
  if (!showingFetchSheet) return;
  showingFetchSheet = false;
  production_.note("fetch sheet dismissed");
}

void AppStore::fetchFromSheet() {
  if (!fetchMusic) throw std::runtime_error("fetching is not available in this studio");
  const std::string url(Text::trimSpace(fetchAsk.url));
  if (url.empty()) throw std::runtime_error("type the URL of the audio to fetch");
  FetchAsk ask = fetchAsk;
  ask.url = url;
  fetchMusic(ask);
}

bool AppStore::endFlow() {
  // The casting room stands over any sheet it was opened from, so it closes first.
  if (production_.castingCall()) {
    production_.closeCasting();
    return true;
  }
  if (showingFetchSheet) {
    dismissFetchSheet();
    return true;
  }
  if (showingExportSheet) {
    dismissExportSheet();
    return true;
  }
  if (showingSlate) {
    showingSlate = false;
    production_.note("slate dismissed");
    return true;
  }
  return false;
}

void AppStore::openVersionMenu() {
  if (production_.isOpen()) showingVersionMenu = true;
}

void AppStore::dismissVersionMenu() { showingVersionMenu = false; }

// ---- Library ----------------------------------------------------------------------

const Project& AppStore::requireProject() const {
  if (!currentProject_) throw AppModel::Failure::noProjectOpen();
  return *currentProject_;
}

Project AppStore::createProject(const std::string& name) {
  Project p = library_.createProject(name);
  currentProject_ = p;
  refresh();
  remember();
  production_.note("new project " + p.name());
  return p;
}

Project AppStore::openProject(const std::string& name) {
  Project p = library_.project(name);
  currentProject_ = p;
  refresh();
  remember();
  production_.note("open project " + p.name());
  return p;
}

Project AppStore::duplicateCurrentProject() {
  const Project& current = requireProject();
  const std::string name = current.name();
  Project copy = library_.duplicate(name);
  refresh();
  production_.note("duplicate project " + name + " → " + copy.name());
  return copy;
}

fs::path AppStore::trashProject(const std::string& name) {
  const auto where = library_.trash(name, trash_, production_.baseDir());
  if (currentProject_ && currentProject_->name() == name) currentProject_.reset();
  refresh();
  remember();
  production_.note("trash project " + name);
  return where;
}

void AppStore::openRecording(const std::string& slug) {
  const fs::path dir = requireProject().recordingDir(slug);
  openProduction(dir);
  go(Route::of(Page::edit));
}

std::string AppStore::duplicateRecording(const std::string& slug) {
  const std::string copy = requireProject().duplicate(slug);
  refresh();
  production_.note("duplicate " + slug + " → " + copy);
  return copy;
}

std::string AppStore::trashRecording(const std::string& slug) {
  const Project& project = requireProject();
  const fs::path dir = project.recordingDir(slug);
  if (production_.baseDir() && standardized(*production_.baseDir()) == standardized(dir))
    throw AppModel::Failure::cannotUse("'" + slug + "' is open in the editor. Open another production first, then trash it.");
  const std::string entry = project.trash(slug);
  refresh();
  production_.note("trash " + slug + " → .trash/" + entry);
  return entry;
}

std::string AppStore::restoreRecording(const std::string& entry) {
  const std::string slug = requireProject().restore(entry);
  refresh();
  production_.note("restore " + entry + " → " + slug);
  return slug;
}

Seed::Result AppStore::newBlankRecording(const std::string& title) {
  const Project& project = requireProject();
  Seed::Result result = Seed::recording(project, Seed::slug(title), title, std::nullopt, std::nullopt,
                                        production_.actor().wallNow());
  openProduction(result.dir);
  go(Route::of(Page::script));
  production_.note("new recording " + result.slug);
  return result;
}

Seed::Result AppStore::newRecording(const std::optional<std::string>& title, const std::string& prompt) {
  const Project& project = requireProject();
  // The slug comes from the title, else from the first words of the request.
  std::string base = title.value_or("");
  if (base.empty()) {
    std::istringstream words(prompt);
    std::string word;
    for (int n = 0; n < 6 && words >> word; ++n) base += (n ? " " : "") + word;
  }
  Seed::Result result =
      Seed::recording(project, Seed::slug(base), title, prompt, std::string("claude-code"), production_.actor().wallNow());
  openProduction(result.dir);
  go(Route::of(Page::script));
  production_.note("new recording " + result.slug + " from a prompt");
  return result;
}

std::vector<RecentProduction> AppStore::recentProductions() {
  production_.sessionWriter().flush();
  return session_.recentProductions();
}

void AppStore::clearRecents() {
  production_.sessionWriter().write(session_, [](const SessionStore& s) { s.clearRecents(); });
  production_.note("cleared the recent list");
}

}  // namespace tavorin
