#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kit/RecordingStore.hpp"
#include "kit/Take.hpp"

namespace tavorin {

// The takes/ folder of a production: one folder per take, each with its take.json.
struct TakesStore {
  std::filesystem::path folder;

  explicit TakesStore(const std::filesystem::path& recordingDir) : folder(recordingDir / "takes") {}

  // "yyyyMMdd-HHmmss" in UTC, then "-" and the cleaned slug when anything is left of it,
  // so that ids sort in time order.
  static std::string id(const std::string& slug, Clock::time_point now);

  std::filesystem::path url(const Take& take) const { return folder / take.id; }
  std::filesystem::path video(const Take& take) const { return url(take) / take.video; }

  // Creates the take's folder and writes its record; any failure throws.
  std::filesystem::path begin(const Take& take) const;
  // Replaces take.json whole, so that a crash never loses the record of a film on disk.
  void write(const Take& take) const;
  Take finish(Take take, double seconds, Take::Status status) const;
  // Missing for any failure.
  std::optional<Take> take(const std::string& id) const;
  // Every take that reads, newest first; an entry that will not read is skipped.
  std::vector<Take> list() const;

  // Copies (never moves) a film into a take folder of its own. The copy's failure
  // throws and leaves the folder behind.
  Take importVideo(const std::filesystem::path& from, const std::string& slug, double seconds,
                   const std::string& fromVersion, const std::string& scheduleDigest,
                   const std::optional<CaptureConfig>& capture, Clock::time_point now) const;
};

}  // namespace tavorin
