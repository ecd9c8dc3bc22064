// Beds, lines and takes are files a user drops in: whatever bytes they hold, decoding
// refuses with UnreadableAudio and probing answers absent, never a crash, a hang or a
// read past a buffer of ours.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/AudioFile.hpp"
#include "platform/Footage.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path file =
      std::filesystem::temp_directory_path() / ("tavorin-media-fuzz-" + std::to_string(::getpid()) + ".bin");
  {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  try {
    const auto decoded = tavorin::AudioFile::decode(file, 0.25, 2.0);
    if (decoded.channels > 0 && decoded.samples.size() % static_cast<std::size_t>(decoded.channels) != 0) std::abort();
    tavorin::AudioFile::scan(file, 0, std::nullopt, [](const float* peaks, std::size_t count, std::uint64_t, int) {
      for (std::size_t i = 0; i < count; ++i) (void)peaks[i];
    });
  } catch (const tavorin::UnreadableAudio&) {
  }
  const auto answer = tavorin::Footage::probe(file, std::chrono::milliseconds(200));
  if (answer.size && (answer.size->width <= 0 || answer.size->height <= 0)) std::abort();
  if (answer.seconds && !(*answer.seconds >= 0)) std::abort();
  return 0;
}
