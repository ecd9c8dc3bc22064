// audio/variants.json.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kit/Recording.hpp"
#include "kit/VariantsStore.hpp"

using namespace tavorin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto index = VariantsStore::Index::decode(std::string_view(reinterpret_cast<const char*>(data), size));
    VariantsStore::Index::decode(index.encoded());
  } catch (const DocumentError&) {
  }
  return 0;
}
