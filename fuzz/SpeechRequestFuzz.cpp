// Hostile bodies for tavorin-speech: whatever arrives either decodes or is refused
// with a sentence; nothing else may happen.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "voice/speechserver/SpeechRequest.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    auto request = tavorin::SpeechRequest::decode(std::string_view(reinterpret_cast<const char*>(data), size));
    if (request.input.empty() || request.speed < 0.25 || request.speed > 4.0) __builtin_trap();
  } catch (const tavorin::SpeechRequestError&) {
  }
  return 0;
}
