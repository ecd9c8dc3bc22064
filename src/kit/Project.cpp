#include "kit/Project.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/IsoDate.hpp"
#include "base/AtomicFile.hpp"
#include "kit/Library.hpp"
#include "kit/RecordingJSON.hpp"
#include "kit/Slug.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::optional<std::string> optionalText(const json& j, const char* key) {
  auto it = j.find(key);
  if (it == j.end() || it->is_null()) return std::nullopt;
  if (!it->is_string()) throw DocumentError(std::string("project.json has a \"") + key + "\" that is not text.");
  return it->get<std::string>();
}

Clock::time_point modified(const fs::path& file) {
  std::error_code ec;
  auto t = fs::last_write_time(file, ec);
  if (ec) return Clock::time_point{};
  return std::chrono::time_point_cast<Clock::duration>(std::chrono::file_clock::to_sys(t));
}

int countTakes(const fs::path& takesDir) {
  std::error_code ec;
  int n = 0;
  for (fs::directory_iterator it(takesDir, ec), end; !ec && it != end; it.increment(ec))
    if (fs::is_regular_file(it->path() / "take.json")) ++n;
  return n;
}

bool taken(const fs::path& p) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(p, ec));
}

// Whether `inner`, taken lexically, lies below `outer`.
bool below(const fs::path& inner, const fs::path& outer) {
  auto rel = inner.lexically_normal().lexically_relative(outer.lexically_normal());
  return !rel.empty() && *rel.begin() != ".." && *rel.begin() != ".";
}

fs::path settled(const fs::path& p) {
  std::error_code ec;
  auto c = fs::weakly_canonical(p, ec);
  return ec ? fs::absolute(p, ec).lexically_normal() : c;
}

}  // namespace

std::string ProjectInfo::encoded() const {
  json j = {{"name", name}};
  if (notes) j["notes"] = *notes;
  if (defaultCapture) j["defaultCapture"] = *defaultCapture;
  if (createdAt) j["createdAt"] = *createdAt;
  return j.dump(2) + "\n";
}

ProjectInfo ProjectInfo::decode(std::string_view text) {
  json j;
  try {
    j = json::parse(text);
  } catch (const json::parse_error&) {
    throw DocumentError("project.json is not valid JSON.");
  }
  if (!j.is_object()) throw DocumentError("project.json is not a JSON object.");
  auto name = j.find("name");
  if (name == j.end() || !name->is_string()) throw DocumentError("project.json has no \"name\" text.");
  ProjectInfo info{name->get<std::string>(), optionalText(j, "notes"), std::nullopt, optionalText(j, "createdAt")};
  if (auto c = j.find("defaultCapture"); c != j.end() && !c->is_null()) {
    try {
      info.defaultCapture = c->get<CaptureConfig>();
    } catch (const json::exception&) {
      throw DocumentError("project.json has a \"defaultCapture\" that is not a capture setting.");
    }
  }
  return info;
}

ProjectInfo Project::info() const {
  try {
    return ProjectInfo::decode(RecordingStore::readText(infoURL()));
  } catch (const std::exception&) {
    return ProjectInfo{name(), std::nullopt, std::nullopt, std::nullopt};
  }
}

void Project::writeInfo(const ProjectInfo& info) const { AtomicFile::write(infoURL(), info.encoded()); }

RecordingSummary Project::summarize(const fs::path& productionDir) {
  RecordingSummary s;
  s.slug = productionDir.filename().string();
  s.title = s.slug;
  s.dir = productionDir;
  RecordingStore store(productionDir);
  s.touched = std::max(modified(store.manifestURL()), modified(store.draftURL()));
  s.takes = countTakes(productionDir / "takes");
  try {
    auto m = store.manifest();
    s.head = m.head;
    s.versions = static_cast<int>(m.versions.size());
    Recording rec = store.load(m.head);
    s.title = rec.title;
    auto lines = rec.lines();
    s.lines = static_cast<int>(lines.size());
    for (const auto* line : lines)
      if (rec.isStale(*line)) ++s.stale;
    for (const auto& item : rec.timeline)
      if (item.start) s.length = std::max(s.length, *item.start + item.effectiveDuration().value_or(0));
    if (rec.origin) {
      s.agent = rec.origin->agent;
      s.sessionId = rec.origin->sessionId;
    }
  } catch (const std::exception&) {
    // Listed all the same: a broken production must stay reachable to be trashed.
  }
  return s;
}

std::vector<RecordingSummary> Project::recordings() const {
  std::vector<RecordingSummary> out;
  std::error_code ec;
  for (fs::directory_iterator it(recordingsDir(), ec), end; !ec && it != end; it.increment(ec)) {
    const auto name = it->path().filename().string();
    if (Slug::isPlain(name) && RecordingStore::isProduction(it->path())) out.push_back(summarize(it->path()));
  }
  std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) {
    return a.touched != b.touched ? a.touched > b.touched : a.slug < b.slug;
  });
  return out;
}

std::string Project::slugOfTrashEntry(const std::string& entry) {
  auto digits = [&](size_t from, size_t n) {
    return std::all_of(entry.begin() + from, entry.begin() + from + n, [](char c) { return c >= '0' && c <= '9'; });
  };
  // yyyyMMdd-HHmmss-<slug>
  if (entry.size() > 16 && digits(0, 8) && entry[8] == '-' && digits(9, 6) && entry[15] == '-')
    return entry.substr(16);
  return entry;
}

std::vector<Project::TrashedRecording> Project::trashed() const {
  std::vector<TrashedRecording> out;
  std::error_code ec;
  for (fs::directory_iterator it(trashDir(), ec), end; !ec && it != end; it.increment(ec)) {
    const auto entry = it->path().filename().string();
    if (!Slug::isPlain(entry) || !it->is_directory()) continue;
    TrashedRecording t{entry, slugOfTrashEntry(entry), slugOfTrashEntry(entry)};
    try {
      t.title = RecordingStore(it->path()).loadHead().title;
    } catch (const std::exception&) {
      // An entry whose head will not read is still listed under its slug, so it can be restored.
    }
    out.push_back(std::move(t));
  }
  std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.entry > b.entry; });
  return out;
}

fs::path Project::recordingDir(const std::string& slug) const {
  const fs::path d = recordingsDir() / slug;
  std::error_code ec;
  if (!Slug::isPlain(slug) || !fs::is_directory(d, ec)) throw LibraryError::noSuchRecording(slug);
  return d;
}

std::string Project::uniqueSlug(const std::string& base) const {
  if (!taken(recordingsDir() / base)) return base;
  for (int n = 2;; ++n) {
    std::string candidate = base + "-" + std::to_string(n);
    if (!taken(recordingsDir() / candidate)) return candidate;
  }
}

std::string Project::duplicate(const std::string& slug, Clock::time_point now) const {
  const fs::path from = recordingDir(slug);
  if (!RecordingStore::isProduction(from)) throw LibraryError::notARecording(slug);
  const std::string copySlug = uniqueSlug(slug);
  const fs::path to = recordingsDir() / copySlug;
  try {
    std::error_code ec;
    fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec) throw std::runtime_error(ec.message());
    RecordingStore store(to);
    store.clearDraft();
    Recording rec = store.loadHead();
    rec.title += " copy";
    store.saveNewVersion(rec, now);
  } catch (const std::exception& e) {
    std::error_code ignored;
    fs::remove_all(to, ignored);
    throw LibraryError::cannotCopy(slug, e.what());
  }
  return copySlug;
}

std::string Project::trash(const std::string& slug, Clock::time_point now) const {
  const fs::path from = recordingDir(slug);
  std::error_code ec;
  fs::create_directories(trashDir(), ec);
  if (ec) throw LibraryError::cannotTrash(slug, ec.message());
  std::string entry = IsoDate::stamp(now) + "-" + slug;
  // Two trashings of one slug within a second must not land on each other.
  for (int n = 2; taken(trashDir() / entry); ++n)
    entry = IsoDate::stamp(now) + "-" + slug + "-" + std::to_string(n);
  fs::rename(from, trashDir() / entry, ec);
  if (ec) throw LibraryError::cannotTrash(slug, ec.message());
  return entry;
}

std::string Project::restore(const std::string& entry) const {
  const fs::path from = trashDir() / entry;
  std::error_code ec;
  if (!Slug::isPlain(entry) || !fs::is_directory(from, ec)) throw LibraryError::notInTrash(entry);
  const std::string slug = uniqueSlug(slugOfTrashEntry(entry));
  fs::create_directories(recordingsDir(), ec);
  if (!ec) fs::rename(from, recordingsDir() / slug, ec);
  if (ec) throw LibraryError::cannotCopy(entry, ec.message());
  return slug;
}

bool Project::holds(const fs::path& productionDir) const {
  return below(settled(productionDir), settled(recordingsDir()));
}

}  // namespace tavorin
