#pragma once
#include <cstdint>
#include <filesystem>
#include <string>

namespace tavorin {

// The file that tells a client where the running studio listens and with what token.
struct OperatorControlFile {
  int version = 1;
  std::string host = "127.0.0.1";
  int port = 0;
  std::string token;
  std::int32_t pid = 0;

  // True when the process still exists, also when it belongs to someone else.
  bool isLive() const;

  // <desktop data folder>/Tavorin/operator.json. It does not follow TAVORIN_SUPPORT,
  // so a client finds the server whatever support folder the server runs with.
  static std::filesystem::path defaultURL();
  static OperatorControlFile read(const std::filesystem::path& file);
  // Creates the parent folders, writes atomically, mode 0600. Throws with a sentence.
  void write(const std::filesystem::path& file) const;
  // Deletes; every error is swallowed.
  static void remove(const std::filesystem::path& file) noexcept;

  bool operator==(const OperatorControlFile&) const = default;
};

}  // namespace tavorin
