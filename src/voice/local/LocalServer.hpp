#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tavorin {

// Where the user's own speech server is, kept in local-voice.json in the support folder.
struct LocalServer {
  static constexpr std::string_view defaultURL = "http://127.0.0.1:8080";

  std::string url{defaultURL};
  std::optional<std::string> key;  // sent as a bearer token

  static std::filesystem::path file();
  // A missing, unreadable or malformed file is the default server, never an error.
  static LocalServer load(const std::filesystem::path& file);
  // Atomically, readable by the user alone: the record can hold an API key. Throws.
  void save(const std::filesystem::path& file) const;
  // A usable base address from what the user typed ("localhost:8880/v1/"), or nothing.
  static std::optional<std::string> normalized(std::string_view text);

  bool operator==(const LocalServer&) const = default;
};

}  // namespace tavorin
