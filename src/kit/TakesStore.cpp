#include "kit/TakesStore.hpp"

#include <algorithm>
#include <system_error>

#include "base/AtomicFile.hpp"
#include "base/IsoDate.hpp"
#include "kit/Slug.hpp"

namespace tavorin {

namespace fs = std::filesystem;

std::string TakesStore::id(const std::string& slug, Clock::time_point now) {
  const std::string stamp = IsoDate::stamp(now);
  const std::string cleaned = Slug::clean(slug);
  return cleaned.empty() ? stamp : stamp + "-" + cleaned;
}

fs::path TakesStore::begin(const Take& take) const {
  const fs::path dir = url(take);
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec) throw std::runtime_error("could not make the folder of take " + take.id + ": " + ec.message());
  write(take);
  return dir;
}

void TakesStore::write(const Take& take) const {
  AtomicFile::write(url(take) / "take.json", take.encoded() + "\n");
}

Take TakesStore::finish(Take take, double seconds, Take::Status status) const {
  take.seconds = seconds;
  take.status = status;
  write(take);
  return take;
}

std::optional<Take> TakesStore::take(const std::string& id) const {
  if (!Slug::isPlain(id)) return std::nullopt;
  try {
    return Take::decode(RecordingStore::readText(folder / id / "take.json"));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::vector<Take> TakesStore::list() const {
  std::vector<Take> takes;
  std::error_code ec;
  fs::directory_iterator it(folder, ec);
  if (ec) return takes;
  for (; it != fs::directory_iterator(); it.increment(ec)) {
    if (ec) break;
    try {
      takes.push_back(Take::decode(RecordingStore::readText(it->path() / "take.json")));
    } catch (const std::exception&) {
      // A record that will not read is not listed; its folder stays.
    }
  }
  std::sort(takes.begin(), takes.end(), [](const Take& a, const Take& b) { return a.id > b.id; });
  return takes;
}

Take TakesStore::importVideo(const fs::path& from, const std::string& slug, double seconds,
                             const std::string& fromVersion, const std::string& scheduleDigest,
                             const std::optional<CaptureConfig>& capture, Clock::time_point now) const {
  std::string extension = from.extension().string();
  extension = extension.size() > 1 ? extension.substr(1) : "mov";

  const std::string base = id(slug, now);
  std::string takeId = base;
  std::error_code ec;
  for (int n = 2; fs::exists(folder / takeId, ec); ++n) takeId = base + "-" + std::to_string(n);

  Take take;
  take.id = takeId;
  take.startedAt = IsoDate::format(now);
  take.seconds = std::max(seconds, 0.0);
  take.video = "take." + extension;
  take.fromVersion = fromVersion;
  take.scheduleDigest = scheduleDigest;
  take.capture = capture;
  take.status = Take::Status::complete;
  take.provenance = Take::Provenance::imported;

  const fs::path dir = url(take);
  fs::create_directories(dir, ec);
  if (ec) throw std::runtime_error("could not make the folder of take " + take.id + ": " + ec.message());
  const fs::path destination = video(take);
  fs::remove(destination, ec);
  fs::copy_file(from, destination, fs::copy_options::overwrite_existing, ec);
  if (ec) throw std::runtime_error("could not copy " + from.string() + " into take " + take.id + ": " + ec.message());
  write(take);
  return take;
}

}  // namespace tavorin
