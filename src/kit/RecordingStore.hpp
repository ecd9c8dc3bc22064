#pragma once
#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

using Clock = std::chrono::system_clock;

// A failure of the store itself (not of the disk or the decoder), with a code in the
// manner of HTTP: 404 for a name the manifest does not list.
struct StoreError : std::runtime_error {
  int code;
  StoreError(int code, const std::string& text) : std::runtime_error(text), code(code) {}
};

// What a person typed matches no saved version. `recent` is the newest three names,
// oldest first, so that the model can offer them.
struct VersionNotFound : std::runtime_error {
  std::string name;
  std::vector<std::string> recent;
  VersionNotFound(std::string name, std::vector<std::string> recent);
};

// The disk form of one production: every saved version, a manifest naming the head,
// and at most one draft. Holds no cache, so two stores on one folder see each other.
struct RecordingStore {
  struct Manifest {
    std::string head;
    std::vector<std::string> versions;
    bool operator==(const Manifest&) const = default;
  };

  struct Draft {
    std::string basedOn;
    std::string savedAt;
    Recording recording;
  };

  // How a draft on disk stands against the manifest.
  enum class DraftStanding {
    restorable,  // written against the head
    savedSince,  // written against an older version; the production was saved since
    foreign,     // written against a version this production never had (a copied draft)
  };

  std::filesystem::path dir;

  explicit RecordingStore(std::filesystem::path dir) : dir(std::move(dir)) {}

  std::filesystem::path manifestURL() const { return dir / "manifest.json"; }
  std::filesystem::path versionsDir() const { return dir / "versions"; }
  std::filesystem::path draftURL() const { return dir / "draft.json"; }

  Manifest manifest() const;
  Recording loadHead() const;
  // `version` is a full name; the manifest need not list it.
  Recording load(const std::string& version) const;
  // Writes a new version (always with the current tag), moves the head to it and
  // returns its full name.
  std::string saveNewVersion(const Recording& recording, Clock::time_point now = Clock::now()) const;
  // Throws StoreError 404 "no such version: <name>" for a name the manifest lacks.
  void setHead(const std::string& name) const;

  bool hasDraft() const;
  void writeDraft(const Recording& recording, const std::string& basedOn, Clock::time_point now = Clock::now()) const;
  // Nothing for any failure: a draft that will not read is as good as none.
  std::optional<Draft> readDraft() const noexcept;
  void clearDraft() const noexcept;

  static DraftStanding standing(const Draft& draft, const Manifest& manifest);

  // A folder counts as a production when it holds a manifest.json.
  static bool isProduction(const std::filesystem::path& dir);

  // "v%04d-yyyyMMdd-HHmmss.json" in UTC; the ordinal may run past four digits.
  static std::string versionName(long ordinal, Clock::time_point now);
  // The text before the first "-", or the whole name.
  static std::string shortVersion(std::string_view name);
  // A full name, else the newest entry with that short name, else the oldest entry
  // that begins with it; else throws VersionNotFound.
  static std::string resolveVersion(const std::string& name, const std::vector<std::string>& versions);

  // Small file helpers shared by the stores. Failures throw a readable sentence.
  static std::string readText(const std::filesystem::path& file);
  static void writeInPlace(const std::filesystem::path& file, const std::string& text);
};

}  // namespace tavorin
