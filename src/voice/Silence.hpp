#pragma once
#include <filesystem>
#include <optional>
#include <string>

namespace tavorin {

// The pauses of a generation's audio, as ffmpeg's silencedetect reports them.
namespace Silence {

// "silencedetect=noise=-35dB:d=0.05"
std::string filter();
// ffmpeg's standard error over the file; nothing when ffmpeg is missing or will not
// start. Its exit status says nothing the log does not.
std::optional<std::string> log(const std::filesystem::path& file);
std::optional<std::string> log(const std::filesystem::path& file, const std::filesystem::path& ffmpeg);

}  // namespace Silence

}  // namespace tavorin
