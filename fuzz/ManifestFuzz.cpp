// A production's manifest.json, read through the store as the studio reads it.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>

#include "kit/Recording.hpp"
#include "kit/RecordingStore.hpp"

using namespace tavorin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path dir = [] {
    auto d = std::filesystem::temp_directory_path() / ("tavorin-manifest-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(d);
    return d;
  }();
  const RecordingStore store(dir);
  {
    std::ofstream out(store.manifestURL(), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  try {
    store.manifest();
  } catch (const DocumentError&) {
  }
  return 0;
}
