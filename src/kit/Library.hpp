#pragma once
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kit/Project.hpp"
#include "kit/RecordingStore.hpp"
#include "kit/Trash.hpp"

namespace tavorin {

// What a library or project operation refuses; what() is the sentence the user reads.
struct LibraryError : std::runtime_error {
  enum class Kind {
    noSuchProject, noSuchRecording, notARecording, notInTrash, nameTaken, badName, cannotCopy, cannotTrash,
    projectIsOpen
  };
  Kind kind;
  LibraryError(Kind kind, const std::string& text) : std::runtime_error(text), kind(kind) {}

  static LibraryError noSuchProject(const std::string& name);
  static LibraryError noSuchRecording(const std::string& slug);
  static LibraryError notARecording(const std::string& slug);
  static LibraryError notInTrash(const std::string& entry);
  static LibraryError nameTaken(const std::string& name);
  static LibraryError badName(const std::string& name);
  static LibraryError cannotCopy(const std::string& name, const std::string& why);
  static LibraryError cannotTrash(const std::string& name, const std::string& why);
  static LibraryError projectIsOpen(const std::string& name);
};

// The folder of projects, ~/Tavorin unless the environment says otherwise.
class Library {
 public:
  std::filesystem::path root;

  explicit Library(std::filesystem::path root) : root(std::move(root)) {}

  // A project is a visible folder in the root that holds recordings/ or project.json.
  std::vector<Project> projects() const;  // by name
  bool isEmpty() const { return projects().empty(); }

  // By its folder's name (the slug) or the name it shows; throws noSuchProject.
  Project project(const std::string& name) const;
  // Makes <root>/<name>/recordings/ and project.json. Throws nameTaken or badName.
  Project createProject(const std::string& name, Clock::time_point now = Clock::now()) const;

  // "<name>_cloned_<yyyyMMdd-HHmmss>" in UTC.
  static std::string clonedName(const std::string& name, Clock::time_point at);
  // Copies a project beside itself under its cloned name, without any draft, and
  // rewrites the copy's project.json.
  Project duplicate(const std::string& name, Clock::time_point now = Clock::now()) const;
  // Moves a project to the desktop's Trash and returns where it went. Refused with
  // projectIsOpen when `openProduction` lies in it.
  std::filesystem::path trash(const std::string& name, Trash& trash,
                              const std::optional<std::filesystem::path>& openProduction = std::nullopt) const;

  // Copies the demo production at `from` into <projectName>/recordings/<slug>, making
  // the project when it is not there yet.
  Project seedDemo(const std::filesystem::path& from, const std::string& projectName = "demo",
                   const std::string& slug = "halden-demo") const;
};

}  // namespace tavorin
