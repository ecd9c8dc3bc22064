#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// One voice an engine offers.
struct DriverVoice {
  std::string id;
  std::string name;
  bool enabled = true;
  std::optional<std::string> source;   // the engine's own word for where it comes from
  std::optional<std::string> preview;  // a file of a spoken sample
  std::optional<std::string> says;     // what that sample says

  std::string encoded() const;
  // Throws DocumentError with a sentence when a required key is missing.
  static DriverVoice decode(std::string_view json);
  bool operator==(const DriverVoice&) const = default;
};

// One character an engine offers, with its voices.
struct DriverCharacter {
  std::string id;
  std::string name;
  std::optional<std::string> activeVoiceId;
  std::vector<DriverVoice> voices;

  // The active voice when it exists, else the first enabled one, else the first.
  // A stale active id is silently passed over.
  std::optional<std::string> defaultVoiceId() const;
  bool hasVoice(std::string_view id) const;

  std::string encoded() const;
  static DriverCharacter decode(std::string_view json);
  bool operator==(const DriverCharacter&) const = default;
};

}  // namespace tavorin
