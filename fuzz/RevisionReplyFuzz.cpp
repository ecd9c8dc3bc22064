// claude's reply is whatever a model wrote: it lands only as the expected production,
// and anything else is refused with a sentence.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "kit/Revision.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const tavorin::Recording landed = tavorin::Revision::parse(text, "p");
    if (landed.id != "p") std::abort();
  } catch (const tavorin::ReviseError&) {
  }
  return 0;
}
