#pragma once
#include <cstdint>
#include <filesystem>
#include <vector>

namespace tavorin {

// A picture of the window as PNG.
namespace PngFile {

// Writes RGBA pixels, given bottom row first as OpenGL reads them, as a PNG at `path`,
// top row first; parent folders are made. Throws the sentence the user reads.
void writeFromGL(const std::filesystem::path& path, int width, int height, const std::vector<std::uint8_t>& rgba);

}  // namespace PngFile

}  // namespace tavorin
