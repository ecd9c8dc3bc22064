#include "app/AppStore.hpp"

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
  return Failure("no route '" + name + "'. Try: script, edit, library[:project], shoot, export");
}
AppStore::Failure AppStore::Failure::noSuchMode(const std::string& name) {
  return Failure("no page '" + name + "'. Try: script, edit, library");
}
AppStore::Failure AppStore::Failure::nothingToEdit() { return Failure("nothing to edit — open a production first"); }

AppStore::AppStore(AppModel& production, fs::path productionsRoot)
    : production_(production), productionsRoot_(std::move(productionsRoot)) {}

void AppStore::bootstrap(const std::vector<std::string>&) {
  std::error_code ec;
  fs::create_directories(productionsRoot_, ec);
}

void AppStore::go(Route route) {
  if (route != route_) pageBeneath_ = route_.page;
  route_ = route;
  production_.note("nav " + word(route.page));
}

}  // namespace tavorin
