#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "kit/Recording.hpp"
#include "voice/DriverHealth.hpp"

namespace tavorin {

// What voice capability the user has right now, top first.
enum class VoiceRung { cloning, speaking, importing, silent };
std::string name(VoiceRung);
inline bool rendersVoice(VoiceRung rung) { return rung == VoiceRung::cloning || rung == VoiceRung::speaking; }

// The one sentence that says where the user stands.
namespace VoiceLadder {

inline constexpr std::string_view switchToNative = "Selected engine unreachable. Set Model to Kokoro.";

// An engine that answers but offers no voice does not count.
VoiceRung rung(const DriverHealth& health, bool audioOnDisk, bool nativeReady);
VoiceRung rung(const DriverHealth& health, const Recording* recording, bool nativeReady);
bool hasAudio(const Recording& recording);
std::string says(VoiceRung rung, std::string_view driver, const DriverHealth& health, bool nativeReady);
// The engine picker's line: the local server's own failure sentence beats the ladder's.
std::string pickerSays(std::string_view driver, const DriverHealth& health, const Recording* recording,
                       bool nativeReady);

}  // namespace VoiceLadder

}  // namespace tavorin
