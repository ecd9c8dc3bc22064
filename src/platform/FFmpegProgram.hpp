#pragma once
#include <filesystem>
#include <optional>

namespace tavorin {

// The ffmpeg program the studio runs: beside our own executable first (a bundled
// build wins), then the usual install places, then the PATH.
namespace FFmpegProgram {
std::optional<std::filesystem::path> locate();
}

}  // namespace tavorin
