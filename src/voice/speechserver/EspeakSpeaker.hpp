#pragma once
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tavorin {

// One English voice of espeak-ng.
struct EspeakVoice {
  std::string id;    // the language tag espeak selects it by, e.g. "en-us"
  std::string name;  // e.g. "English (America)"
  std::string file;  // espeak's own identifier, which always selects it ("gmw/en-US")
};

// espeak-ng in this process. The library keeps global state and is not safe to
// call from two threads, so every call goes through one lock.
class EspeakSpeaker {
 public:
  // Throws a sentence when espeak-ng or its data cannot be loaded.
  EspeakSpeaker();
  EspeakSpeaker(const EspeakSpeaker&) = delete;
  EspeakSpeaker& operator=(const EspeakSpeaker&) = delete;

  int sampleRate() const { return rate_; }
  const std::vector<EspeakVoice>& voices() const { return voices_; }
  const EspeakVoice* voice(const std::string& id) const;
  const std::string& defaultVoice() const { return voices_.front().id; }

  // 16-bit mono samples at sampleRate(). Throws a sentence on failure.
  std::vector<int16_t> speak(const std::string& text, const std::string& voice, double speed);

 private:
  std::mutex lock_;
  int rate_ = 22050;
  std::vector<EspeakVoice> voices_;
};

}  // namespace tavorin
