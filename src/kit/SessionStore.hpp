#pragma once
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavorin {

// session.json: where the user left off, kept between launches.
struct SessionMemory {
  std::optional<std::string> production;  // folder of the last open production
  std::optional<std::string> page;        // "script", "edit" or "library"
  std::optional<std::string> project;     // name of the project in the library
  std::vector<std::string> recents;       // production folders, newest first
  std::optional<std::vector<std::string>> collapsed;
  std::optional<std::string> panelTab;
  std::optional<std::string> uploadPrivacy;
  std::optional<std::string> exportDirectory;
  std::optional<std::map<std::string, double>> exportSpeeds;
  bool operator==(const SessionMemory&) const = default;
};

// One entry of the recent list, ready to show.
struct RecentProduction {
  std::filesystem::path dir;
  std::string title;
  std::optional<std::string> project;
  bool operator==(const RecentProduction&) const = default;
};

// Reads and writes session.json. Each `remember` changes one field on what is on disk
// and writes the file back, so two stores on one file never undo each other's work.
class SessionStore {
 public:
  static constexpr size_t recentLimit = 10;

  std::filesystem::path file;

  explicit SessionStore(std::filesystem::path file) : file(std::move(file)) {}

  // A missing or unreadable file is an empty memory; a remembered production that is no
  // longer one is dropped.
  SessionMemory read() const;
  // Creates the folder as needed and replaces the file whole. Failures throw.
  void write(const SessionMemory& memory) const;

  // Also puts the folder at the front of the recents.
  void rememberProduction(const std::filesystem::path& dir) const;
  void rememberPage(const std::optional<std::string>& page) const;
  void rememberProject(const std::optional<std::string>& name) const;
  void rememberCollapsed(const std::vector<std::string>& groups) const;
  void rememberPanelTab(const std::optional<std::string>& tab) const;
  void rememberUploadPrivacy(const std::optional<std::string>& privacy) const;
  void rememberExportDirectory(const std::optional<std::string>& dir) const;
  void rememberExportSpeed(const std::string& key, double speed) const;
  void clearRecents() const;

  // Recents that are still productions, with the title of their head (or their folder
  // name) and the project they sit in.
  std::vector<RecentProduction> recentProductions() const;

  static bool isProduction(const std::filesystem::path& dir);
};

}  // namespace tavorin
