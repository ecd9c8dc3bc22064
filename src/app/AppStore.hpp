#pragma once
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/AppModel.hpp"

namespace tavorin {

enum class Page { script, edit, library };
// "script", "edit", "library": the words persisted and shown.
std::string word(Page);
std::optional<Page> pageNamed(std::string_view word);

struct Route {
  Page page = Page::library;
  static Route of(Page p) { return Route{p}; }
  bool operator==(const Route&) const = default;
};

// The application-level state: which page is up, which production is open, what
// stands over the page.
class AppStore {
 public:
  struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
    static Failure noSuchRoute(const std::string& name);
    static Failure noSuchMode(const std::string& name);
    static Failure nothingToEdit();
  };

  AppStore(AppModel& production, std::filesystem::path productionsRoot);

  AppModel& production() { return production_; }
  const AppModel& production() const { return production_; }
  const std::filesystem::path& productionsRoot() const { return productionsRoot_; }

  Route route() const { return route_; }
  Page pageBeneath() const { return pageBeneath_; }
  bool showingSlate = false;
  bool showingVersionMenu = false;
  bool showingExportSheet = false;
  bool landed = false;

  // The start sequence: the productions root first; a failure there is swallowed.
  void bootstrap(const std::vector<std::string>& arguments);
  void go(Route route);

 private:
  AppModel& production_;
  std::filesystem::path productionsRoot_;
  Route route_{Page::library};
  Page pageBeneath_ = Page::library;
};

}  // namespace tavorin
