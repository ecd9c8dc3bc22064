#include "kit/RecordingStore.hpp"

#include "base/AtomicFile.hpp"
#include "base/IsoDate.hpp"
#include "base/Text.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::vector<std::string> lastThree(const std::vector<std::string>& versions) {
  auto from = versions.size() > 3 ? versions.end() - 3 : versions.begin();
  return {from, versions.end()};
}

std::string pad(long value, int width) {
  std::string digits = std::to_string(value);
  if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
  return digits;
}

json parseDocument(const std::string& text, const fs::path& file) {
  try {
    return json::parse(text);
  } catch (const json::parse_error&) {
    throw DocumentError(file.filename().string() + " is not valid JSON.");
  }
}

RecordingStore::Manifest decodeManifest(const json& j, const fs::path& file) {
  const std::string name = file.filename().string();
  if (!j.is_object()) throw DocumentError(name + " is not a JSON object.");
  auto head = j.find("head");
  auto versions = j.find("versions");
  if (head == j.end() || !head->is_string()) throw DocumentError(name + " has no \"head\" text.");
  if (versions == j.end() || !versions->is_array()) throw DocumentError(name + " has no \"versions\" list.");
  RecordingStore::Manifest m;
  m.head = head->get<std::string>();
  for (const auto& v : *versions) {
    if (!v.is_string()) throw DocumentError(name + " lists a version that is not a file name.");
    m.versions.push_back(v.get<std::string>());
  }
  return m;
}

std::string encodeManifest(const RecordingStore::Manifest& m) {
  json j = {{"head", m.head}, {"versions", m.versions}};
  return j.dump(2) + "\n";
}

Recording loadNormalised(const fs::path& file) {
  Recording rec = Recording::decode(RecordingStore::readText(file));
  rec.schema = Schema::normalize(rec.schema);
  return rec;
}

std::string reason(const std::error_code& ec) { return ec.message(); }

}  // namespace

VersionNotFound::VersionNotFound(std::string name, std::vector<std::string> recent)
    : std::runtime_error("The system found no version named '" + name + "'. Pick a short or full name " +
                         Text::join(recent, ", ") + ", or run `versions` to see all saved states."),
      name(std::move(name)),
      recent(std::move(recent)) {}

RecordingStore::Manifest RecordingStore::manifest() const {
  const fs::path file = manifestURL();
  return decodeManifest(parseDocument(readText(file), file), file);
}

Recording RecordingStore::loadHead() const { return load(manifest().head); }

Recording RecordingStore::load(const std::string& version) const { return loadNormalised(versionsDir() / version); }

std::string RecordingStore::saveNewVersion(const Recording& recording, Clock::time_point now) const {
  Recording copy = recording;
  copy.schema = std::string(Schema::current);

  std::error_code ec;
  fs::create_directories(versionsDir(), ec);
  if (ec) throw std::runtime_error("could not make " + versionsDir().string() + ": " + reason(ec));

  // A lost or broken manifest starts the log again rather than blocking the save.
  Manifest m;
  try {
    m = manifest();
  } catch (const std::exception&) {
    m = Manifest{};
  }

  const std::string name = versionName(static_cast<long>(m.versions.size()) + 1, now);
  writeInPlace(versionsDir() / name, copy.encoded());
  m.versions.push_back(name);
  m.head = name;
  // The manifest is the one file every open needs, so it is swapped in whole: a
  // process killed mid-save leaves the old head, never a torn manifest.
  AtomicFile::write(manifestURL(), encodeManifest(m));
  return name;
}

void RecordingStore::setHead(const std::string& name) const {
  Manifest m = manifest();
  if (std::find(m.versions.begin(), m.versions.end(), name) == m.versions.end())
    throw StoreError(404, "no such version: " + name);
  m.head = name;
  AtomicFile::write(manifestURL(), encodeManifest(m));
}

bool RecordingStore::hasDraft() const {
  std::error_code ec;
  return fs::exists(draftURL(), ec);
}

void RecordingStore::writeDraft(const Recording& recording, const std::string& basedOn, Clock::time_point now) const {
  json j = {{"basedOn", basedOn}, {"savedAt", IsoDate::format(now)}, {"recording", json::parse(recording.encoded())}};
  AtomicFile::write(draftURL(), j.dump(2) + "\n");
}

std::optional<RecordingStore::Draft> RecordingStore::readDraft() const noexcept {
  try {
    json j = json::parse(readText(draftURL()));
    if (!j.is_object()) return std::nullopt;
    auto basedOn = j.find("basedOn");
    auto savedAt = j.find("savedAt");
    auto rec = j.find("recording");
    if (basedOn == j.end() || !basedOn->is_string() || savedAt == j.end() || !savedAt->is_string() ||
        rec == j.end())
      return std::nullopt;
    Draft d{basedOn->get<std::string>(), savedAt->get<std::string>(), Recording::decode(rec->dump())};
    d.recording.schema = Schema::normalize(d.recording.schema);
    return d;
  } catch (...) {
    return std::nullopt;
  }
}

void RecordingStore::clearDraft() const noexcept {
  std::error_code ec;
  fs::remove(draftURL(), ec);
}

RecordingStore::DraftStanding RecordingStore::standing(const Draft& draft, const Manifest& manifest) {
  if (draft.basedOn == manifest.head) return DraftStanding::restorable;
  const auto& v = manifest.versions;
  if (std::find(v.begin(), v.end(), draft.basedOn) == v.end()) return DraftStanding::foreign;
  return DraftStanding::savedSince;
}

bool RecordingStore::isProduction(const fs::path& dir) {
  std::error_code ec;
  return fs::is_regular_file(dir / "manifest.json", ec);
}

std::string RecordingStore::versionName(long ordinal, Clock::time_point now) {
  return "v" + pad(ordinal, 4) + "-" + IsoDate::stamp(now) + ".json";
}

std::string RecordingStore::shortVersion(std::string_view name) {
  auto dash = name.find('-');
  return std::string(dash == std::string_view::npos ? name : name.substr(0, dash));
}

std::string RecordingStore::resolveVersion(const std::string& name, const std::vector<std::string>& versions) {
  for (const auto& v : versions)
    if (v == name) return v;
  for (auto it = versions.rbegin(); it != versions.rend(); ++it)
    if (shortVersion(*it) == name) return *it;
  for (const auto& v : versions)
    if (v.rfind(name, 0) == 0) return v;
  throw VersionNotFound(name, lastThree(versions));
}


std::string RecordingStore::readText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    int err = errno;
    throw std::runtime_error("could not read " + file.string() + ": " + std::strerror(err ? err : ENOENT));
  }
  std::ostringstream s;
  s << in.rdbuf();
  if (in.bad()) throw std::runtime_error("could not read " + file.string());
  return s.str();
}

void RecordingStore::writeInPlace(const fs::path& file, const std::string& text) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  if (!out) {
    int err = errno;
    throw std::runtime_error("could not write " + file.string() + ": " + std::strerror(err ? err : EACCES));
  }
  out << text;
  out.flush();
  if (!out) throw std::runtime_error("could not write " + file.string());
}

}  // namespace tavorin
