#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

class EspeakSpeaker;

// tavorin-speech: OpenAI's v1 audio API on 127.0.0.1 over espeak-ng. It lists one
// model and the English voices, answers speech with WAV or raw PCM, and refuses a
// bad request with HTTP 400 and a JSON error.
class SpeechServer {
 public:
  static constexpr std::string_view model = "espeak-ng";
  static constexpr int defaultPort = 8080;

  explicit SpeechServer(EspeakSpeaker& speaker);
  ~SpeechServer();
  SpeechServer(const SpeechServer&) = delete;
  SpeechServer& operator=(const SpeechServer&) = delete;

  // Binds 127.0.0.1:port (0 picks a free one) and answers the bound port. Throws a
  // sentence when the port is taken.
  int bind(int port);
  // Serves until stop(); call after bind.
  void serve();
  void stop();

  // A 16-bit mono PCM WAV of the samples.
  static std::string wav(const std::vector<int16_t>& samples, int rate);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tavorin
