#include "kit/RecordingStore.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string join(const std::vector<std::string>& parts, const std::string& glue) {
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : glue) + p;
  return out;
}

std::vector<std::string> lastThree(const std::vector<std::string>& versions) {
  auto from = versions.size() > 3 ? versions.end() - 3 : versions.begin();
  return {from, versions.end()};
}

std::string pad(long value, int width) {
  std::string digits = std::to_string(value);
  if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
  return digits;
}

struct Civil {
  int year;
  unsigned month, day;
  long hour, minute, second;
};

Civil civil(Clock::time_point t) {
  using namespace std::chrono;
  auto secs = floor<seconds>(t);
  auto day = floor<days>(secs);
  year_month_day ymd{day};
  hh_mm_ss hms{secs - day};
  return {static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
          static_cast<long>(hms.hours().count()), static_cast<long>(hms.minutes().count()),
          static_cast<long>(hms.seconds().count())};
}

json parseDocument(const std::string& text, const fs::path& file) {
  try {
    return json::parse(text);
  } catch (const json::exception&) {  // a syntax error, or a number too large for a double
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
                         join(recent, ", ") + ", or run `versions` to see all saved states."),
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
  writeAtomically(manifestURL(), encodeManifest(m));
  return name;
}

void RecordingStore::setHead(const std::string& name) const {
  Manifest m = manifest();
  if (std::find(m.versions.begin(), m.versions.end(), name) == m.versions.end())
    throw StoreError(404, "no such version: " + name);
  m.head = name;
  writeAtomically(manifestURL(), encodeManifest(m));
}

bool RecordingStore::hasDraft() const {
  std::error_code ec;
  return fs::exists(draftURL(), ec);
}

void RecordingStore::writeDraft(const Recording& recording, const std::string& basedOn, Clock::time_point now,
                                const std::optional<std::string>& blocking) const {
  json j = {{"basedOn", basedOn}, {"savedAt", isoDate(now)}, {"recording", json::parse(recording.encoded())}};
  if (blocking) j["blocking"] = *blocking;
  writeAtomically(draftURL(), j.dump(2) + "\n");
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
    Draft d{basedOn->get<std::string>(), savedAt->get<std::string>(), Recording::decode(rec->dump()), std::nullopt};
    d.recording.schema = Schema::normalize(d.recording.schema);
    if (auto blocking = j.find("blocking"); blocking != j.end()) {
      if (!blocking->is_string()) return std::nullopt;
      d.blocking = blocking->get<std::string>();
    }
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
  return "v" + pad(ordinal, 4) + "-" + utcStamp(now) + ".json";
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

std::string RecordingStore::utcStamp(Clock::time_point t) {
  Civil c = civil(t);
  return pad(c.year, 4) + pad(c.month, 2) + pad(c.day, 2) + "-" + pad(c.hour, 2) + pad(c.minute, 2) +
         pad(c.second, 2);
}

std::string RecordingStore::isoDate(Clock::time_point t) {
  Civil c = civil(t);
  return pad(c.year, 4) + "-" + pad(c.month, 2) + "-" + pad(c.day, 2) + "T" + pad(c.hour, 2) + ":" +
         pad(c.minute, 2) + ":" + pad(c.second, 2) + "Z";
}

std::optional<Clock::time_point> RecordingStore::parseIsoDate(std::string_view s) {
  using namespace std::chrono;
  auto digits = [&](size_t at, size_t n) -> std::optional<int> {
    if (at + n > s.size()) return std::nullopt;
    int v = 0;
    for (size_t i = at; i < at + n; ++i) {
      if (s[i] < '0' || s[i] > '9') return std::nullopt;
      v = v * 10 + (s[i] - '0');
    }
    return v;
  };
  auto is = [&](size_t at, char ch) { return at < s.size() && s[at] == ch; };

  auto y = digits(0, 4), mo = digits(5, 2), d = digits(8, 2), h = digits(11, 2), mi = digits(14, 2),
       se = digits(17, 2);
  if (!y || !mo || !d || !h || !mi || !se || !is(4, '-') || !is(7, '-') || !(is(10, 'T') || is(10, 't')) ||
      !is(13, ':') || !is(16, ':'))
    return std::nullopt;
  year_month_day ymd{year{*y}, month{static_cast<unsigned>(*mo)}, day{static_cast<unsigned>(*d)}};
  if (!ymd.ok() || *h > 23 || *mi > 59 || *se > 60) return std::nullopt;

  size_t at = 19;
  if (is(at, '.')) {
    ++at;
    size_t start = at;
    while (at < s.size() && s[at] >= '0' && s[at] <= '9') ++at;
    if (at == start) return std::nullopt;
  }
  long offset = 0;
  if (is(at, 'Z') || is(at, 'z')) {
    ++at;
  } else if (is(at, '+') || is(at, '-')) {
    int sign = s[at] == '-' ? -1 : 1;
    auto oh = digits(at + 1, 2);
    if (!oh) return std::nullopt;
    size_t minutesAt = is(at + 3, ':') ? at + 4 : at + 3;
    auto om = digits(minutesAt, 2);
    if (!om) return std::nullopt;
    offset = sign * (*oh * 3600L + *om * 60L);
    at = minutesAt + 2;
  } else {
    return std::nullopt;
  }
  if (at != s.size()) return std::nullopt;

  auto t = sys_days{ymd} + hours{*h} + minutes{*mi} + seconds{*se} - seconds{offset};
  // The clock counts nanoseconds in 64 bits: years before 1678 or after 2261 do not fit.
  if (t < ceil<seconds>(Clock::time_point::min()) || t > floor<seconds>(Clock::time_point::max()))
    return std::nullopt;
  return time_point_cast<Clock::duration>(t);
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

void RecordingStore::writeAtomically(const fs::path& file, const std::string& text) {
  static thread_local std::mt19937_64 random{std::random_device{}()};
  char suffix[17];
  std::snprintf(suffix, sizeof suffix, "%016llx", static_cast<unsigned long long>(random()));
  const fs::path temp = file.parent_path() / ("." + file.filename().string() + "." + suffix + ".tmp");
  try {
    writeInPlace(temp, text);
  } catch (...) {
    std::error_code ignored;
    fs::remove(temp, ignored);
    throw;
  }
  std::error_code ec;
  fs::rename(temp, file, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove(temp, ignored);
    throw std::runtime_error("could not write " + file.string() + ": " + reason(ec));
  }
}

}  // namespace tavorin
