#include "voice/DriverCharacter.hpp"

#include <nlohmann/json.hpp>

#include "kit/Recording.hpp"

namespace tavorin {

using nlohmann::json;

namespace {

json toJSON(const DriverVoice& voice) {
  json out{{"id", voice.id}, {"name", voice.name}, {"enabled", voice.enabled}};
  if (voice.source) out["source"] = *voice.source;
  if (voice.preview) out["preview"] = *voice.preview;
  if (voice.says) out["says"] = *voice.says;
  return out;
}

template <typename T>
T required(const json& object, const char* key, const char* what) {
  auto found = object.find(key);
  if (found == object.end()) throw DocumentError(std::string(what) + " needs \"" + key + "\".");
  try {
    return found->get<T>();
  } catch (const json::exception&) {
    throw DocumentError(std::string(what) + "'s \"" + key + "\" is of the wrong type.");
  }
}

std::optional<std::string> optionalText(const json& object, const char* key) {
  auto found = object.find(key);
  if (found == object.end() || found->is_null()) return std::nullopt;
  if (!found->is_string()) throw DocumentError(std::string("A voice's \"") + key + "\" is not text.");
  return found->get<std::string>();
}

DriverVoice voiceFrom(const json& object) {
  if (!object.is_object()) throw DocumentError("A voice is not a JSON object.");
  DriverVoice voice;
  voice.id = required<std::string>(object, "id", "A voice");
  voice.name = required<std::string>(object, "name", "A voice");
  voice.enabled = required<bool>(object, "enabled", "A voice");
  voice.source = optionalText(object, "source");
  voice.preview = optionalText(object, "preview");
  voice.says = optionalText(object, "says");
  return voice;
}

json parsed(std::string_view text) {
  try {
    return json::parse(text);
  } catch (const json::exception&) {
    throw DocumentError("The engine's answer is not valid JSON.");
  }
}

}  // namespace

std::string DriverVoice::encoded() const { return toJSON(*this).dump(); }

DriverVoice DriverVoice::decode(std::string_view text) { return voiceFrom(parsed(text)); }

std::optional<std::string> DriverCharacter::defaultVoiceId() const {
  if (activeVoiceId && hasVoice(*activeVoiceId)) return activeVoiceId;
  for (const auto& voice : voices)
    if (voice.enabled) return voice.id;
  if (!voices.empty()) return voices.front().id;
  return std::nullopt;
}

bool DriverCharacter::hasVoice(std::string_view id) const {
  for (const auto& voice : voices)
    if (voice.id == id) return true;
  return false;
}

std::string DriverCharacter::encoded() const {
  json out{{"id", id}, {"name", name}, {"voices", json::array()}};
  if (activeVoiceId) out["activeVoiceId"] = *activeVoiceId;
  for (const auto& voice : voices) out["voices"].push_back(toJSON(voice));
  return out.dump();
}

DriverCharacter DriverCharacter::decode(std::string_view text) {
  json object = parsed(text);
  if (!object.is_object()) throw DocumentError("A character is not a JSON object.");
  DriverCharacter character;
  character.id = required<std::string>(object, "id", "A character");
  character.name = required<std::string>(object, "name", "A character");
  character.activeVoiceId = optionalText(object, "activeVoiceId");
  auto voices = required<json>(object, "voices", "A character");
  if (!voices.is_array()) throw DocumentError("A character's \"voices\" is not a list.");
  for (const auto& voice : voices) character.voices.push_back(voiceFrom(voice));
  return character;
}

}  // namespace tavorin
