#include "ui/PngFile.hpp"

#include <stdexcept>
#include <string>

#include <stb/stb_image_write.h>

#include "base/AtomicFile.hpp"

namespace tavorin {

namespace {
void append(void* context, void* data, int size) {
  auto* out = static_cast<std::string*>(context);
  out->append(static_cast<const char*>(data), static_cast<std::size_t>(size));
}
}  // namespace

void PngFile::writeFromGL(const std::filesystem::path& path, int width, int height,
                          const std::vector<std::uint8_t>& rgba) {
  if (width <= 0 || height <= 0 || rgba.size() != static_cast<std::size_t>(width) * height * 4)
    throw std::runtime_error("can't write the PNG to " + path.string() + ". The picture came back empty.");
  const int stride = width * 4;
  std::string png;
  // A negative stride from the last row writes OpenGL's bottom-up rows top first.
  const auto* last = rgba.data() + static_cast<std::size_t>(stride) * (height - 1);
  if (!stbi_write_png_to_func(append, &png, width, height, 4, last, -stride))
    throw std::runtime_error("can't write the PNG to " + path.string() + ". The encoder refused the picture.");
  try {
    if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
    AtomicFile::write(path, png);
  } catch (const std::exception& e) {
    throw std::runtime_error("can't write the PNG to " + path.string() + ". " + e.what());
  }
}

}  // namespace tavorin
