#include "voice/speechserver/EspeakSpeaker.hpp"

#include <espeak-ng/espeak_ng.h>
#include <espeak-ng/speak_lib.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>

namespace tavorin {

namespace {

int collect(short* samples, int count, espeak_EVENT* events) {
  if (samples && count > 0 && events && events->user_data) {
    auto* out = static_cast<std::vector<int16_t>*>(events->user_data);
    out->insert(out->end(), samples, samples + count);
  }
  return 0;  // go on
}

std::string tidied(std::string name) {
  std::replace(name.begin(), name.end(), '_', ' ');
  return name;
}

}  // namespace

EspeakSpeaker::EspeakSpeaker() {
  std::lock_guard guard(lock_);
  espeak_ng_InitializePath(nullptr);
  espeak_ng_ERROR_CONTEXT context = nullptr;
  if (espeak_ng_Initialize(&context) != ENS_OK) {
    espeak_ng_ClearErrorContext(&context);
    throw std::runtime_error("espeak-ng could not start: its data (espeak-ng-data) is missing or unreadable.");
  }
  if (espeak_ng_InitializeOutput(ENOUTPUT_MODE_SYNCHRONOUS, 0, nullptr) != ENS_OK)
    throw std::runtime_error("espeak-ng could not prepare its output.");
  rate_ = espeak_ng_GetSampleRate();
  espeak_SetSynthCallback(collect);

  std::set<std::string> seen;
  for (const espeak_VOICE** voice = espeak_ListVoices(nullptr); voice && *voice; ++voice) {
    const char* languages = (*voice)->languages;
    if (!languages || !(*voice)->name) continue;
    // A list of (priority byte, language) pairs; the first language names the voice.
    std::string language = languages + 1;
    if (!(language == "en" || language.starts_with("en-"))) continue;
    if (!seen.insert(language).second) continue;
    voices_.push_back({language, tidied((*voice)->name), (*voice)->identifier ? (*voice)->identifier : language});
  }
  std::stable_sort(voices_.begin(), voices_.end(), [](const EspeakVoice& a, const EspeakVoice& b) {
    // American English first: it is the voice a client gets when it names none.
    return (a.id == "en-us") > (b.id == "en-us");
  });
  if (voices_.empty()) throw std::runtime_error("espeak-ng has no English voice installed.");
}

const EspeakVoice* EspeakSpeaker::voice(const std::string& id) const {
  for (const auto& voice : voices_)
    if (voice.id == id) return &voice;
  return nullptr;
}

std::vector<int16_t> EspeakSpeaker::speak(const std::string& text, const std::string& voice, double speed) {
  const EspeakVoice* chosen = this->voice(voice);
  if (!chosen) throw std::runtime_error("espeak-ng has no voice called " + voice + ".");
  std::lock_guard guard(lock_);
  // By identifier: some language tags ("en-gb") do not select a voice by name.
  if (espeak_ng_SetVoiceByName(chosen->file.c_str()) != ENS_OK)
    throw std::runtime_error("espeak-ng could not load the voice " + voice + ".");
  int wordsPerMinute = static_cast<int>(std::lround(std::clamp(175.0 * speed, 80.0, 450.0)));
  espeak_SetParameter(espeakRATE, wordsPerMinute, 0);
  std::vector<int16_t> samples;
  espeak_ERROR result = espeak_Synth(text.c_str(), text.size() + 1, 0, POS_CHARACTER, 0, espeakCHARS_UTF8, nullptr,
                                     &samples);
  if (result != EE_OK) throw std::runtime_error("espeak-ng could not speak this text.");
  espeak_Synchronize();
  return samples;
}

}  // namespace tavorin
