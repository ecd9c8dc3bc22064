#pragma once
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"
#include "voice/DriverCharacter.hpp"

namespace tavorin {

// A line's voice that cannot be resolved; `what()` is the sentence the line shows.
struct VoiceRefusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The concrete (character, voice) a line is spoken with, or why it cannot be.
struct VoicePlan {
  std::string character;
  std::string voice;
  std::optional<std::string> refusal;

  static VoicePlan cast(std::string character, std::string voice) { return {std::move(character), std::move(voice), {}}; }
  static VoicePlan refuse(std::string reason) { return {{}, {}, std::move(reason)}; }
  bool refused() const { return refusal.has_value(); }

  // The voice id to use for `character` under the named driver, from its cast.
  // The local server's voice lists are advisory: any named voice passes there.
  // Throws VoiceRefusal.
  static std::string namedVoice(const std::vector<DriverCharacter>& cast, std::string_view driver,
                                std::string_view character, const std::optional<std::string>& voice);
  // Never throws: a missing piece becomes the refusal's sentence.
  static VoicePlan of(const TimelineItem& item, const Recording& recording,
                      const std::vector<DriverCharacter>& cast, std::string_view driver);

  // `voice` when the character is cast and has it; nothing otherwise.
  static std::optional<std::string> surviving(const std::vector<DriverCharacter>& cast,
                                              const std::optional<std::string>& voice, std::string_view character);
  // The pin a line keeps when its character changes: none when it would inherit
  // that voice anyway, the voice when it survives, else the character's default.
  static std::optional<std::string> pinned(const std::vector<DriverCharacter>& cast, std::string_view driver,
                                           const std::optional<std::string>& voice, std::string_view character,
                                           const std::optional<std::string>& inheriting);

  bool operator==(const VoicePlan&) const = default;
};

// How a failure reads on a line: its sentence, cut to 160 characters.
std::string renderReason(const std::exception& error);

}  // namespace tavorin
