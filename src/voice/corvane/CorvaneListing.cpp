// What `voices.py list` prints, read into the studio's cast. Kept apart from the
// process handling so the decoder can be fuzzed alone.
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "voice/corvane/CorvaneDriver.hpp"

namespace tavorin {

using nlohmann::json;

namespace {

std::optional<std::string> text(const json& object, const char* key) {
  auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

bool truth(const json& object, const char* key) {
  auto found = object.find(key);
  return found != object.end() && found->is_boolean() && found->get<bool>();
}

}  // namespace

DriverHealth CorvaneDriver::healthOf(const std::vector<DriverCharacter>& cast, bool present, bool clones,
                                     std::string source, std::optional<std::string> note) {
  int voices = 0;
  for (const auto& c : cast) voices += static_cast<int>(c.voices.size());
  DriverHealth h;
  h.present = present;
  h.clones = clones;
  h.location = DriverLocation::local;
  h.characters = static_cast<int>(cast.size());
  h.voices = voices;
  h.source = std::move(source);
  h.note = std::move(note);
  return h;
}

CorvaneDriver::Listing CorvaneDriver::decodeListing(const std::string& output) {
  json payload;
  try {
    payload = json::parse(output);
  } catch (const json::exception& e) {
    throw std::runtime_error(std::string("the listing does not read: ") + e.what());
  }
  if (!payload.is_object()) throw std::runtime_error("the listing is not an object");
  Listing listing;
  if (auto found = payload.find("characters"); found != payload.end()) {
    if (!found->is_array()) throw std::runtime_error("characters is not a list");
    for (const auto& c : *found) {
      DriverCharacter character;
      character.id = c.at("id").get<std::string>();
      character.name = text(c, "name").value_or(character.id);
      character.activeVoiceId = text(c, "activeVoiceId");
      for (const auto& v : c.at("voices")) {
        DriverVoice voice;
        voice.id = v.at("id").get<std::string>();
        voice.name = text(v, "name").value_or(voice.id);
        voice.enabled = !v.contains("enabled") || truth(v, "enabled");
        voice.source = text(v, "source");
        voice.preview = text(v, "preview");
        voice.says = text(v, "says");
        character.voices.push_back(std::move(voice));
      }
      listing.characters.push_back(std::move(character));
    }
  }
  bool present = false, clones = false;
  if (auto engine = payload.find("engine"); engine != payload.end() && engine->is_object()) {
    present = truth(*engine, "present");
    clones = truth(*engine, "clones");
  }
  listing.health = healthOf(listing.characters, present, clones, text(payload, "source").value_or("corvane"),
                            text(payload, "note"));
  return listing;
}

}  // namespace tavorin
