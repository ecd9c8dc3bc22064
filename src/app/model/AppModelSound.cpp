#include <exception>

#include "app/model/AppModel.hpp"
#include "platform/UserDefaults.hpp"

namespace tavorin {

namespace {
constexpr const char* mutedKey = "soundCuesMuted";
}

bool AppModel::sound(SoundCue cue) {
  if (soundHeld_ || soundMuted() || !cuePlayer) return false;
  try {
    cuePlayer(cue);
    return true;
  } catch (const std::exception& e) {
    // A sound is a courtesy: a missing device must never stop what it marks.
    note("sound cue " + SoundCues::card(cue).name + " did not play: " + e.what());
    return false;
  }
}

bool AppModel::soundMuted() const {
  if (!soundMuted_) soundMuted_ = UserDefaults::standard().boolValue(mutedKey).value_or(false);
  return *soundMuted_;
}

void AppModel::setSoundMuted(bool muted) {
  if (soundMuted() == muted) return;
  soundMuted_ = muted;
  note(muted ? "sound cues muted" : "sound cues on");
  saveDefault(mutedKey, muted, "the mute is kept for this launch only: ");
}

void AppModel::saveDefault(const std::string& key, bool value, const std::string& failureWords) {
  // The defaults file is the user's; a failed write leaves the choice for this launch only.
  offloader_.offload([file = UserDefaults::standard().file(), key, value] { UserDefaults(file).set(key, value); },
                     alive_.guard([this, failureWords](std::exception_ptr failed) {
                       if (!failed) return;
                       try {
                         std::rethrow_exception(failed);
                       } catch (const std::exception& e) {
                         note(failureWords + e.what());
                       }
                     }));
}

}  // namespace tavorin
