#pragma once
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "kit/Look.hpp"
#include "kit/Looks.hpp"

namespace tavorin {

// A painted bitmap: premultiplied 32-bit pixels, one row after another.
struct Image {
  int width = 0;
  int height = 0;
  std::vector<std::uint32_t> pixels;
  // The 0xAARRGGBB of one pixel, or 0 outside.
  std::uint32_t at(int x, int y) const;
};

// The generated grounds of the looks, painted the same for the monitor and the export.
namespace Wallpapers {

// `samples` by `samples` of 8-bit RGBA from the seed; empty under one sample.
std::vector<std::uint8_t> noise(int samples, std::uint64_t seed);
// A fields wallpaper at a size, from the shared cache when it was painted before.
// Shared, not copied: a 1080p sheet is eight megabytes.
std::shared_ptr<const Image> image(const Looks::Fields& fields, int width, int height);

// The newest few images, oldest out first, under a lock: the window and the
// exporter's thread ask for the same ones.
class Store {
 public:
  explicit Store(size_t keep) : keep_(keep) {}
  std::shared_ptr<const Image> find(const Looks::Fields& fields, int width, int height);
  void hold(const Looks::Fields& fields, int width, int height, Image image);
  size_t size();

 private:
  struct Key {
    Looks::Fields fields;
    int width, height;
    bool operator==(const Key&) const = default;
  };
  std::mutex lock_;
  size_t keep_;
  std::vector<std::pair<Key, std::shared_ptr<const Image>>> held_;  // oldest first
};

Store& store();

}  // namespace Wallpapers

// Paints the still sheets a look composites the film over.
namespace LookPainter {

struct Size {
  int width = 0;
  int height = 0;
};

// The painted layers of a look: the ground, and the rounded corners in grey.
struct Sheets {
  std::filesystem::path background;
  std::optional<std::filesystem::path> mask;
  Size frame;
  Looks::Rect picture;
};

// The frame's ground: wallpaper, gradient, colour or image (relative to `production`),
// with the picture's shadow when the look has one.
Image background(const Look& look, Size frame, const Looks::Rect& picture, const std::filesystem::path& production);
// A white rounded rectangle on black, `size` big.
Image mask(Size size, double corner);
// Throws with a sentence when the file cannot be written.
void write(const Image& image, const std::filesystem::path& to);

}  // namespace LookPainter
}  // namespace tavorin
