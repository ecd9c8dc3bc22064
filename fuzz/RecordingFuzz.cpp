// A recording document (a version file or a draft's recording).
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kit/Recording.hpp"

using namespace tavorin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const Recording r = Recording::decode(std::string_view(reinterpret_cast<const char*>(data), size));
    // A document we read we can write, and read back the same.
    if (Recording::decode(r.encoded()) != r) __builtin_trap();
  } catch (const DocumentError&) {
  }
  return 0;
}
