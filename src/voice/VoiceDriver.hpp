#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "voice/DriverCharacter.hpp"
#include "voice/DriverHealth.hpp"

namespace tavorin {

// What a render wrote.
struct RenderResult {
  std::filesystem::path audioURL;
  double duration = 0;                 // seconds
  std::optional<std::string> usedVoice;  // the voice the engine really spoke with
  bool operator==(const RenderResult&) const = default;
};

// The one contract every voice engine stands behind. Calls may block (processes,
// HTTP, disk): the studio makes them from its worker pool, never its main thread,
// and each driver guards its own cache so any thread may call it.
class VoiceDriver {
 public:
  virtual ~VoiceDriver() = default;
  // The engine's stable key: "kokoro", "local" or "corvane".
  virtual std::string name() const = 0;
  // Never throws: an engine that cannot be reached answers absent, with a sentence.
  virtual DriverHealth health() = 0;
  // May throw.
  virtual std::vector<DriverCharacter> characters() = 0;
  // Forget what was cached, so the next question asks again.
  virtual void refresh() {}
  // Writes a WAV at `to`. Throws with the sentence the line shows.
  virtual RenderResult render(const std::string& text, const std::string& character, const std::string& voice,
                              const std::filesystem::path& to) = 0;
};

}  // namespace tavorin
