#include "kit/Library.hpp"

#include <algorithm>

#include "base/IsoDate.hpp"
#include "kit/Seed.hpp"
#include "kit/Slug.hpp"

namespace tavorin {

namespace fs = std::filesystem;

using K = LibraryError::Kind;

LibraryError LibraryError::noSuchProject(const std::string& name) {
  return {K::noSuchProject, "no project '" + name + "' in ~/Tavorin"};
}
LibraryError LibraryError::noSuchRecording(const std::string& slug) {
  return {K::noSuchRecording, "no recording '" + slug + "' in this project"};
}
LibraryError LibraryError::notARecording(const std::string& slug) {
  return {K::notARecording, "'" + slug +
                                "' is a folder in this project, but there is no manifest.json in it, so there is "
                                "no production to copy"};
}
LibraryError LibraryError::notInTrash(const std::string& entry) {
  return {K::notInTrash, "nothing called '" + entry + "' in the trash"};
}
LibraryError LibraryError::nameTaken(const std::string& name) {
  return {K::nameTaken, "a project called '" + name + "' already exists"};
}
LibraryError LibraryError::badName(const std::string& name) {
  return {K::badName, "'" + name + "' can't name a folder: a name must not be empty, begin with a dot or hold a slash"};
}
LibraryError LibraryError::cannotCopy(const std::string& name, const std::string& why) {
  return {K::cannotCopy, "'" + name + "' would not copy: " + why};
}
LibraryError LibraryError::cannotTrash(const std::string& name, const std::string& why) {
  return {K::cannotTrash, "'" + name + "' would not move to the Trash: " + why};
}
LibraryError LibraryError::projectIsOpen(const std::string& name) {
  return {K::projectIsOpen, "'" + name +
                                "' can't move to the Trash while one of its recordings is open. Open a recording "
                                "from another project first."};
}

namespace {

bool isProjectFolder(const fs::path& dir) {
  std::error_code ec;
  return fs::is_directory(dir / "recordings", ec) || fs::is_regular_file(dir / "project.json", ec);
}

bool taken(const fs::path& p) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(p, ec));
}

void makeFolder(const fs::path& dir) {
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec) throw std::runtime_error("could not make " + dir.string() + ": " + ec.message());
}

// A whole folder copy; a half-made copy is removed before the failure is reported.
void copyFolder(const fs::path& from, const fs::path& to, const std::string& name) {
  std::error_code ec;
  fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove_all(to, ignored);
    throw LibraryError::cannotCopy(name, ec.message());
  }
}

}  // namespace

std::vector<Project> Library::projects() const {
  std::vector<Project> out;
  std::error_code ec;
  for (fs::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec))
    if (Slug::isPlain(it->path().filename().string()) && isProjectFolder(it->path())) out.emplace_back(it->path());
  std::sort(out.begin(), out.end(), [](const Project& a, const Project& b) { return a.name() < b.name(); });
  return out;
}

Project Library::project(const std::string& name) const {
  if (Slug::isPlain(name) && isProjectFolder(root / name)) return Project(root / name);
  // Not a folder's name: the name a project shows, which its info may spell otherwise.
  for (const Project& p : projects()) {
    try {
      if (p.info().name == name) return p;
    } catch (const std::exception&) {
      // A project whose info will not read is still reachable by its folder's name.
    }
  }
  throw LibraryError::noSuchProject(name);
}

Project Library::createProject(const std::string& name, Clock::time_point now) const {
  if (!Slug::isPlain(name)) throw LibraryError::badName(name);
  if (taken(root / name)) throw LibraryError::nameTaken(name);
  Project p(root / name);
  makeFolder(p.recordingsDir());
  p.writeInfo(ProjectInfo{name, std::nullopt, std::nullopt, IsoDate::format(now)});
  return p;
}

std::string Library::clonedName(const std::string& name, Clock::time_point at) {
  return name + "_cloned_" + IsoDate::stamp(at);
}

Project Library::duplicate(const std::string& name, Clock::time_point now) const {
  Project from = project(name);
  const std::string cloned = clonedName(name, now);
  if (taken(root / cloned)) throw LibraryError::nameTaken(cloned);
  Project to(root / cloned);
  copyFolder(from.dir, to.dir, name);

  // Drafts belong to the session that wrote them; in a copy they would only conflict.
  std::error_code ec;
  std::vector<fs::path> drafts;
  for (fs::recursive_directory_iterator it(to.dir, ec), end; !ec && it != end; it.increment(ec))
    if (it->path().filename() == "draft.json" && it->is_regular_file()) drafts.push_back(it->path());
  for (const auto& d : drafts) fs::remove(d, ec);

  ProjectInfo info = from.info();
  info.name = cloned;
  info.createdAt = IsoDate::format(now);
  try {
    to.writeInfo(info);
  } catch (const std::exception& e) {
    fs::remove_all(to.dir, ec);
    throw LibraryError::cannotCopy(name, e.what());
  }
  return to;
}

fs::path Library::trash(const std::string& name, Trash& trash, const std::optional<fs::path>& openProduction) const {
  Project p = project(name);
  if (openProduction && p.holds(*openProduction)) throw LibraryError::projectIsOpen(name);
  try {
    return trash.moveToTrash(p.dir);
  } catch (const std::exception& e) {
    throw LibraryError::cannotTrash(name, e.what());
  }
}

Project Library::seedDemo(const fs::path& from, const std::string& projectName, const std::string& slug) const {
  if (!RecordingStore::isProduction(from)) throw LibraryError::notARecording(slug);
  Project p = isProjectFolder(root / projectName) ? project(projectName) : createProject(projectName);
  if (!Slug::isPlain(slug)) throw LibraryError::badName(slug);
  const fs::path to = p.recordingsDir() / slug;
  if (taken(to)) throw SeedError::duplicate(slug);
  makeFolder(p.recordingsDir());
  copyFolder(from, to, slug);
  return p;
}

}  // namespace tavorin
