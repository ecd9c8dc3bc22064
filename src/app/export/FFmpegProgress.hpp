#pragma once
#include <optional>
#include <string_view>

namespace tavorin::FFmpegProgress {

// The share of `total` seconds that one line of ffmpeg's `-progress` output reports,
// held to 0 through 1; nothing for any other line.
std::optional<double> share(std::string_view line, double total);

}  // namespace tavorin::FFmpegProgress
