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
    note("sound cue " + SoundCues::spec(cue).name + " did not play: " + e.what());
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
  offloader_.offload([file = UserDefaults::standard().file(), muted] { UserDefaults(file).set(mutedKey, muted); },
                     alive_.guard([this](std::exception_ptr failed) {
                       if (!failed) return;
                       try {
                         std::rethrow_exception(failed);
                       } catch (const std::exception& e) {
                         note(std::string("the mute is kept for this launch only: ") + e.what());
                       }
                     }));
}

}  // namespace tavorin
