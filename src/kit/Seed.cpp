#include "kit/Seed.hpp"

#include <vector>

#include "base/IsoDate.hpp"
#include "base/AtomicFile.hpp"
#include "kit/Library.hpp"
#include "kit/Slug.hpp"

namespace tavorin {

namespace fs = std::filesystem;

SeedError SeedError::duplicate(const std::string& slug) {
  return SeedError("there is already a recording called '" + slug + "' in this project");
}

SeedError SeedError::noPrompt() {
  return SeedError("say what the production should be — that sentence is the record of why it exists");
}

std::string Seed::slug(std::string_view text) {
  std::string s = Slug::clean(text);
  return s.empty() ? "untitled" : s;
}

Seed::Result Seed::recording(const Project& project, const std::string& slug, const std::optional<std::string>& title,
                             const std::optional<std::string>& prompt, const std::optional<std::string>& agent,
                             Clock::time_point now) {
  if (!Slug::isPlain(slug)) throw LibraryError::badName(slug);
  const fs::path dir = project.recordingsDir() / slug;
  std::error_code ec;
  if (fs::exists(fs::symlink_status(dir, ec))) throw SeedError::duplicate(slug);
  if (prompt && prompt->find_first_not_of(" \t\r\n") == std::string::npos) throw SeedError::noPrompt();

  Recording rec(slug, title && !title->empty() ? *title : slug);
  rec.blocking = "blocking.stage";
  if (prompt) rec.origin = Origin{*prompt, agent, std::string(), IsoDate::format(now)};

  fs::create_directories(dir, ec);
  if (ec) throw std::runtime_error("could not make " + dir.string() + ": " + ec.message());
  try {
    RecordingStore store(dir);
    std::string version = store.saveNewVersion(rec, now);
    AtomicFile::write(dir / "blocking.stage", "");
    return Result{dir, slug, version};
  } catch (const std::exception&) {
    // Half a production would block the same slug next time.
    fs::remove_all(dir, ec);
    throw;
  }
}

std::optional<fs::path> Seed::demoFixture(const std::optional<fs::path>& resources, const fs::path& workingDirectory,
                                          const fs::path& executable,
                                          const std::function<bool(const fs::path&)>& exists) {
  const fs::path fixture = fs::path("examples") / "halden-demo";
  std::vector<fs::path> candidates;
  if (resources && !resources->empty()) candidates.push_back(*resources / fixture);
  if (!workingDirectory.empty())
    for (fs::path p = workingDirectory;; p = p.parent_path()) {
      candidates.push_back(p / fixture);
      if (p == p.parent_path() || p.parent_path().empty()) break;
    }
  if (executable.has_parent_path())
    for (fs::path p = executable.parent_path();; p = p.parent_path()) {
      candidates.push_back(p / fixture);
      candidates.push_back(p / "share" / "tavorin" / fixture);
      if (p == p.parent_path() || p.parent_path().empty()) break;
    }
  for (const auto& c : candidates) {
    const fs::path manifest = c / "manifest.json";
    bool found = false;
    if (exists) {
      found = exists(manifest);
    } else {
      std::error_code ec;
      found = fs::is_regular_file(manifest, ec);
    }
    if (found) return c;
  }
  return std::nullopt;
}

std::string Seed::handoff(const fs::path& dir, const std::string& prompt) {
  const std::string d = dir.string();
  return "Use the tavorin-config skill. A seeded Tavorin recording is at " + d +
         " — it has a manifest, one empty version and an empty blocking.stage, and its origin.prompt holds the "
         "request verbatim. Author the lines and the blocking into a NEW version, fill origin.sessionId with this "
         "conversation's id, then open it with `tavorin open " +
         d + "`.\n\nThe request was:\n" + prompt;
}

}  // namespace tavorin
