#pragma once
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tavorin {

// A request the speech server will not take; `what()` is the sentence its JSON error carries.
struct SpeechRequestError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The body of POST /v1/audio/speech, read strictly: whatever a client sends, it
// either becomes this or a SpeechRequestError, never anything worse.
struct SpeechRequest {
  enum class Format { wav, pcm };
  static constexpr size_t inputLimit = 4096;  // characters, as the API allows

  std::string input;
  std::optional<std::string> model;
  std::optional<std::string> voice;
  Format format = Format::wav;
  double speed = 1.0;  // 0.25 to 4

  static SpeechRequest decode(std::string_view body);
};

}  // namespace tavorin
