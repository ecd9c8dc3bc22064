// take.json comes from disk, where a crash, a sync tool or a person may have left
// anything: decoding must refuse with a sentence, never crash, and what decodes must
// survive its own encoding unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "kit/Take.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  tavorin::Take take;
  try {
    take = tavorin::Take::decode(text);
  } catch (const tavorin::DocumentError&) {
    return 0;
  }
  (void)take.hasFootage();
  (void)take.footage();
  if (tavorin::Take::decode(take.encoded()) != take && take.seconds == take.seconds) std::abort();
  return 0;
}
