// ffmpeg's progress lines come from a child we do not control.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "app/export/FFmpegProgress.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  for (double total : {0.0, 1e-9, 2.5, 1e12, -1.0, double(NAN)}) {
    const auto share = tavorin::FFmpegProgress::share(line, total);
    if (share && !(*share >= 0 && *share <= 1)) std::abort();
  }
  return 0;
}
