#include "voice/VoiceLadder.hpp"

namespace tavorin {

namespace {

std::string counted(int n, std::string_view noun) {
  return std::to_string(n) + " " + std::string(noun) + (n == 1 ? "" : "s");
}

}  // namespace

std::string name(VoiceRung rung) {
  switch (rung) {
    case VoiceRung::cloning: return "cloning";
    case VoiceRung::speaking: return "speaking";
    case VoiceRung::importing: return "importing";
    case VoiceRung::silent: return "silent";
  }
  return "silent";
}

VoiceRung VoiceLadder::rung(const DriverHealth& health, bool audioOnDisk, bool nativeReady) {
  if (health.present && health.voices >= 1) return health.clones ? VoiceRung::cloning : VoiceRung::speaking;
  if (nativeReady) return VoiceRung::speaking;
  return audioOnDisk ? VoiceRung::importing : VoiceRung::silent;
}

VoiceRung VoiceLadder::rung(const DriverHealth& health, const Recording* recording, bool nativeReady) {
  return rung(health, recording && hasAudio(*recording), nativeReady);
}

bool VoiceLadder::hasAudio(const Recording& recording) {
  for (const auto& item : recording.timeline)
    if (item.type == ItemType::line && item.audio && !item.audio->empty()) return true;
  return false;
}

std::string VoiceLadder::says(VoiceRung rung, std::string_view driver, const DriverHealth& health, bool nativeReady) {
  if (health.source == DriverHealth::checkingSource) return "asking " + std::string(driver) + "…";
  if (nativeReady && !health.present) return std::string(switchToNative);
  switch (rung) {
    case VoiceRung::importing: return "No voice engine found. Import audio per line.";
    case VoiceRung::silent: return "No voice engine found. Import audio per line or export silent with captions.";
    case VoiceRung::speaking: return std::string(driver) + " ready.";
    case VoiceRung::cloning:
      return std::string(driver) + " ready: " + counted(health.voices, "voice") + ", " +
             counted(health.characters, "character") + ".";
  }
  return {};
}

std::string VoiceLadder::pickerSays(std::string_view driver, const DriverHealth& health, const Recording* recording,
                                    bool nativeReady) {
  if (driver == "local" && !health.present && health.source != DriverHealth::checkingSource && health.note)
    return *health.note;
  return says(rung(health, recording, nativeReady), driver, health, nativeReady);
}

}  // namespace tavorin
