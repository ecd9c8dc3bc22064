// auditions/<character>/<voice>/index.json in the support folder.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kit/AuditionsStore.hpp"
#include "kit/Recording.hpp"

using namespace tavorin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto index = AuditionsStore::Index::decode(std::string_view(reinterpret_cast<const char*>(data), size));
    AuditionsStore::Index::decode(index.encoded());
  } catch (const DocumentError&) {
  }
  return 0;
}
