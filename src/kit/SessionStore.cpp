#include "kit/SessionStore.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/AtomicFile.hpp"
#include "kit/RecordingStore.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::optional<std::string> text(const json& j, const char* key) {
  auto it = j.find(key);
  if (it == j.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

std::optional<std::vector<std::string>> texts(const json& j, const char* key) {
  auto it = j.find(key);
  if (it == j.end() || !it->is_array()) return std::nullopt;
  std::vector<std::string> out;
  for (const auto& v : *it)
    if (v.is_string()) out.push_back(v.get<std::string>());
  return out;
}

// A memory that half-reads is better than none: a field of the wrong type is left out.
SessionMemory decode(const json& j) {
  SessionMemory m;
  if (!j.is_object()) return m;
  m.production = text(j, "production");
  m.page = text(j, "page");
  m.project = text(j, "project");
  m.recents = texts(j, "recents").value_or(std::vector<std::string>{});
  m.collapsed = texts(j, "collapsed");
  m.panelTab = text(j, "panelTab");
  m.uploadPrivacy = text(j, "uploadPrivacy");
  m.exportDirectory = text(j, "exportDirectory");
  if (auto it = j.find("exportSpeeds"); it != j.end() && it->is_object()) {
    std::map<std::string, double> speeds;
    for (const auto& [k, v] : it->items())
      if (v.is_number()) speeds[k] = v.get<double>();
    m.exportSpeeds = speeds;
  }
  return m;
}

json encode(const SessionMemory& m) {
  json j = {{"recents", m.recents}};
  if (m.production) j["production"] = *m.production;
  if (m.page) j["page"] = *m.page;
  if (m.project) j["project"] = *m.project;
  if (m.collapsed) j["collapsed"] = *m.collapsed;
  if (m.panelTab) j["panelTab"] = *m.panelTab;
  if (m.uploadPrivacy) j["uploadPrivacy"] = *m.uploadPrivacy;
  if (m.exportDirectory) j["exportDirectory"] = *m.exportDirectory;
  if (m.exportSpeeds) j["exportSpeeds"] = *m.exportSpeeds;
  return j;
}

}  // namespace

bool SessionStore::isProduction(const fs::path& dir) { return RecordingStore::isProduction(dir); }

SessionMemory SessionStore::read() const {
  SessionMemory m;
  try {
    m = decode(json::parse(RecordingStore::readText(file)));
  } catch (const std::exception&) {
    return SessionMemory{};
  }
  if (m.production && !isProduction(*m.production)) m.production.reset();
  return m;
}

void SessionStore::write(const SessionMemory& memory) const {
  if (file.has_parent_path()) {
    std::error_code ec;
    fs::create_directories(file.parent_path(), ec);
    if (ec) throw std::runtime_error("could not make " + file.parent_path().string() + ": " + ec.message());
  }
  AtomicFile::write(file, encode(memory).dump(2) + "\n");
}

void SessionStore::rememberProduction(const fs::path& dir) const {
  SessionMemory m = read();
  const std::string path = dir.lexically_normal().string();
  m.production = path;
  std::erase(m.recents, path);
  m.recents.insert(m.recents.begin(), path);
  if (m.recents.size() > recentLimit) m.recents.resize(recentLimit);
  write(m);
}

void SessionStore::rememberPage(const std::optional<std::string>& page) const {
  SessionMemory m = read();
  m.page = page;
  write(m);
}

void SessionStore::rememberProject(const std::optional<std::string>& name) const {
  SessionMemory m = read();
  m.project = name;
  write(m);
}

void SessionStore::rememberCollapsed(const std::vector<std::string>& groups) const {
  SessionMemory m = read();
  m.collapsed = groups;
  write(m);
}

void SessionStore::rememberPanelTab(const std::optional<std::string>& tab) const {
  SessionMemory m = read();
  m.panelTab = tab;
  write(m);
}

void SessionStore::rememberUploadPrivacy(const std::optional<std::string>& privacy) const {
  SessionMemory m = read();
  m.uploadPrivacy = privacy;
  write(m);
}

void SessionStore::rememberExportDirectory(const std::optional<std::string>& dir) const {
  SessionMemory m = read();
  m.exportDirectory = dir;
  write(m);
}

void SessionStore::rememberExportSpeed(const std::string& key, double speed) const {
  SessionMemory m = read();
  if (!m.exportSpeeds) m.exportSpeeds.emplace();
  (*m.exportSpeeds)[key] = speed;
  write(m);
}

void SessionStore::clearRecents() const {
  SessionMemory m = read();
  m.recents.clear();
  write(m);
}

std::vector<RecentProduction> SessionStore::recentProductions() const {
  std::vector<RecentProduction> out;
  for (const auto& r : read().recents) {
    const fs::path dir(r);
    if (!isProduction(dir)) continue;
    RecentProduction rp{dir, dir.filename().string(), std::nullopt};
    try {
      rp.title = RecordingStore(dir).loadHead().title;
    } catch (const std::exception&) {
      // Listed under its folder's name; opening it reports what is wrong.
    }
    // production -> recordings -> project
    if (dir.parent_path().filename() == "recordings") rp.project = dir.parent_path().parent_path().filename().string();
    out.push_back(std::move(rp));
  }
  return out;
}

}  // namespace tavorin
