#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kit/Recording.hpp"
#include "kit/RecordingStore.hpp"

namespace tavorin {

// project.json: what a project says about itself.
struct ProjectInfo {
  std::string name;
  std::optional<std::string> notes;
  std::optional<CaptureConfig> defaultCapture;
  std::optional<std::string> createdAt;
  bool operator==(const ProjectInfo&) const = default;

  std::string encoded() const;
  // Throws DocumentError when `name` is missing or a key has the wrong type.
  static ProjectInfo decode(std::string_view json);
};

// One row of a project's list of productions.
struct RecordingSummary {
  std::string slug;
  std::string title;
  double length = 0;  // seconds, to the end of the last placed item
  int lines = 0;
  int stale = 0;
  int versions = 0;
  int takes = 0;
  std::optional<std::string> agent;
  std::optional<std::string> sessionId;
  std::string head;
  Clock::time_point touched;  // the newest of the manifest and the draft
  std::filesystem::path dir;
};

// A folder of productions: <root>/<name>/recordings/<slug>/, with removed ones kept in
// .trash/ until someone restores them.
class Project {
 public:
  // A production set aside in .trash/; `entry` is its name there.
  struct TrashedRecording {
    std::string entry;
    std::string slug;
    std::string title;
    bool operator==(const TrashedRecording&) const = default;
  };

  std::filesystem::path dir;

  explicit Project(std::filesystem::path dir) : dir(std::move(dir)) {}

  std::string name() const { return dir.filename().string(); }
  std::filesystem::path recordingsDir() const { return dir / "recordings"; }
  std::filesystem::path trashDir() const { return dir / ".trash"; }
  std::filesystem::path infoURL() const { return dir / "project.json"; }

  // project.json, or just the folder's name when it is missing or will not read.
  ProjectInfo info() const;
  void writeInfo(const ProjectInfo& info) const;

  // Productions in recordings/, most recently touched first. A production whose head
  // will not load is still listed, under its slug, so that it can be trashed.
  std::vector<RecordingSummary> recordings() const;
  // Newest first.
  std::vector<TrashedRecording> trashed() const;

  // The folder of a production; throws LibraryError noSuchRecording.
  std::filesystem::path recordingDir(const std::string& slug) const;
  // `base`, else `base-2`, `base-3`, ... whichever is free in recordings/.
  std::string uniqueSlug(const std::string& base) const;
  // Copies a production under a unique slug, drops the copy's draft and saves a new
  // version titled "... copy". Returns the new slug.
  std::string duplicate(const std::string& slug, Clock::time_point now = Clock::now()) const;
  // Moves a production to .trash/<yyyyMMdd-HHmmss>-<slug>. Returns the entry.
  std::string trash(const std::string& slug, Clock::time_point now = Clock::now()) const;
  // Moves an entry back to recordings/ under a unique slug. Returns that slug.
  std::string restore(const std::string& entry) const;

  // Whether a production folder lies in this project (an open one blocks trashing it).
  bool holds(const std::filesystem::path& productionDir) const;

  static RecordingSummary summarize(const std::filesystem::path& productionDir);
  // The slug an entry of .trash/ was trashed under.
  static std::string slugOfTrashEntry(const std::string& entry);

  bool operator==(const Project& other) const { return dir == other.dir; }
};

}  // namespace tavorin
