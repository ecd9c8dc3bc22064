#pragma once
#include <filesystem>
#include <functional>
#include <string>

#include "app/model/ImportRouter.hpp"

namespace tavorin {

// What a path handed to the program is: a production, a project, the productions
// root, a media file, or none of these.
struct LaunchTarget {
  enum class Kind { production, project, root, media, unknown };
  Kind kind = Kind::unknown;
  std::filesystem::path url;
  ImportRouter::Kind media = ImportRouter::Kind::audio;  // meaningful for media only

  // The test order: a folder holding both a manifest and recordings is a production.
  static LaunchTarget of(const std::filesystem::path& url, const std::filesystem::path& root,
                         const std::function<bool(const std::filesystem::path&)>& exists = nullptr);
  // "production", "project", "root", "unknown" or the media kind.
  std::string word() const;

  static std::string refusal(const std::filesystem::path& url);
  static std::string refusalWithNothingOpen(const std::filesystem::path& url);
};

// The path made absolute and lexically normal, without a trailing separator.
std::filesystem::path standardized(const std::filesystem::path& p);

}  // namespace tavorin
