// What the Corvane engine's script prints for `list`: a child we do not control.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "voice/corvane/CorvaneDriver.hpp"

using namespace tavorin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto listing = CorvaneDriver::decodeListing(std::string(reinterpret_cast<const char*>(data), size));
    for (const auto& character : listing.characters) character.defaultVoiceId();
  } catch (const std::exception&) {
  }
  return 0;
}
