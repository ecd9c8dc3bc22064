// A project's project.json.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kit/Project.hpp"
#include "kit/Recording.hpp"

using namespace tavorin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto info = ProjectInfo::decode(std::string_view(reinterpret_cast<const char*>(data), size));
    ProjectInfo::decode(info.encoded());
  } catch (const DocumentError&) {
  }
  return 0;
}
