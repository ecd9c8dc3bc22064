#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// The studio's five sounds. Each marks one moment a user may be looking away for: the
// numbers are fixed, because the shoot and the queue name cues by number.
enum class SoundCue { done = 1, failed = 2, rolling = 3, cut = 4, exported = 5 };

struct SoundCueCard {
  SoundCue cue;
  std::string name;
  std::string meaning;         // when it sounds, in the user's words
  std::vector<double> notes;   // frequencies in Hz, played one after another
  std::vector<std::string> noteNames;
  double noteSeconds = 0;      // each note's length
  double gap = 0;              // silence between notes
  std::string direction;       // "rising", "falling" or "level"

  double seconds() const;
};

namespace SoundCues {
const std::vector<SoundCueCard>& all();
const SoundCueCard& card(SoundCue cue);
// By name ("done", "failed", ...) or number ("1" to "5").
std::optional<SoundCue> named(std::string_view word);
// The cue as mono samples at `sampleRate`: soft sine notes with short ramps so nothing
// clicks, quiet enough to sit under narration.
std::vector<float> synthesize(SoundCue cue, int sampleRate);
// True when the environment asks for silence: a harness that must not make noise.
bool heldByHarness(const char* silent, const char* snapshot);
}  // namespace SoundCues

}  // namespace tavorin
