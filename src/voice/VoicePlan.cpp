#include "voice/VoicePlan.hpp"

namespace tavorin {

namespace {

// Cuts at a character boundary, so the ellipsis never follows half a character.
std::string shortened(const std::string& text, size_t limit) {
  size_t characters = 0;
  for (unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++characters;
  if (characters <= limit) return text;
  size_t kept = 0, at = 0;
  for (; at < text.size(); ++at) {
    if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) {
      if (kept == limit - 3) break;
      ++kept;
    }
  }
  return text.substr(0, at) + "…";
}

}  // namespace

std::string renderReason(const std::exception& error) { return shortened(error.what(), 160); }

std::string VoicePlan::namedVoice(const std::vector<DriverCharacter>& cast, std::string_view driver,
                                  std::string_view character, const std::optional<std::string>& voice) {
  const DriverCharacter* found = nullptr;
  for (const auto& candidate : cast)
    if (candidate.id == character) found = &candidate;
  if (!found)
    throw VoiceRefusal(std::string(driver) + " has no character called " + std::string(character) +
                       ". Cast one it lists.");
  if (voice && !voice->empty()) {
    if (found->hasVoice(*voice) || driver == "local") return *voice;
    throw VoiceRefusal(std::string(character) + " has no voice called " + *voice + " in " + std::string(driver) +
                       ". Pick one of its " + std::to_string(found->voices.size()) + " voices.");
  }
  if (auto fallback = found->defaultVoiceId()) return *fallback;
  throw VoiceRefusal(std::string(character) + " has no voices in " + std::string(driver) +
                     ". Add one, or cast a different character.");
}

std::optional<std::string> VoicePlan::surviving(const std::vector<DriverCharacter>& cast,
                                                const std::optional<std::string>& voice, std::string_view character) {
  if (!voice || voice->empty() || character.empty()) return std::nullopt;
  for (const auto& candidate : cast)
    if (candidate.id == character && candidate.hasVoice(*voice)) return voice;
  return std::nullopt;
}

std::optional<std::string> VoicePlan::pinned(const std::vector<DriverCharacter>& cast, std::string_view driver,
                                             const std::optional<std::string>& voice, std::string_view character,
                                             const std::optional<std::string>& inheriting) {
  if (!voice || voice->empty() || voice == inheriting) return std::nullopt;
  if (auto kept = surviving(cast, voice, character)) return kept;
  try {
    return namedVoice(cast, driver, character, std::nullopt);
  } catch (const VoiceRefusal&) {
    return std::nullopt;
  }
}

VoicePlan VoicePlan::of(const TimelineItem& item, const Recording& recording,
                        const std::vector<DriverCharacter>& cast, std::string_view driver) {
  auto character = item.character ? item.character : recording.voice.character;
  if (!character || character->empty())
    return refuse(item.id + " has no character. Cast the production in the Voice group, or pin a character on the line.");
  try {
    return VoicePlan::cast(*character, namedVoice(cast, driver, *character, recording.resolvedVoice(item)));
  } catch (const std::exception& error) {
    return refuse(renderReason(error));
  }
}

}  // namespace tavorin
