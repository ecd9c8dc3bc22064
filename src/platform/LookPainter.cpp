#include "platform/LookPainter.hpp"

#include <cairo.h>
#include <png.h>

#include <algorithm>
#include <cmath>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#include <stb/stb_image.h>

namespace tavorin {

namespace {

// A Cairo surface painting straight into an Image's pixels, so that the finished
// picture is handed over without a copy. A row of 32-bit pixels is always a stride
// Cairo accepts.
struct Canvas {
  Image out;
  cairo_surface_t* surface = nullptr;
  cairo_t* cr = nullptr;
  Canvas(int w, int h) : Canvas(Image{std::max(w, 1), std::max(h, 1), {}}) {}
  // Starts from a picture already painted, such as a held wallpaper.
  explicit Canvas(Image start) : out(std::move(start)) {
    out.pixels.resize(size_t(out.width) * out.height);
    surface = cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(out.pixels.data()),
                                                  CAIRO_FORMAT_ARGB32, out.width, out.height, out.width * 4);
    cr = cairo_create(surface);
  }
  ~Canvas() { release(); }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  Image image() {
    release();
    return std::move(out);
  }

 private:
  void release() {
    if (cr) cairo_destroy(cr);
    if (surface) {
      cairo_surface_finish(surface);
      cairo_surface_destroy(surface);
    }
    cr = nullptr;
    surface = nullptr;
  }
};

cairo_surface_t* surfaceOf(const Image& image) {
  auto* s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, std::max(image.width, 1), std::max(image.height, 1));
  cairo_surface_flush(s);
  const int stride = cairo_image_surface_get_stride(s);
  unsigned char* data = cairo_image_surface_get_data(s);
  for (int y = 0; y < image.height; ++y)
    std::memcpy(data + size_t(y) * stride, &image.pixels[size_t(y) * image.width], size_t(image.width) * 4);
  cairo_surface_mark_dirty(s);
  return s;
}

Looks::RGB colour(const std::string& hex) { return Looks::rgb(hex).value_or(Looks::RGB{}); }

void roundedRect(cairo_t* cr, double x, double y, double w, double h, double r) {
  r = std::clamp(r, 0.0, std::min(w, h) / 2);
  if (r <= 0) {
    cairo_rectangle(cr, x, y, w, h);
    return;
  }
  cairo_new_sub_path(cr);
  cairo_arc(cr, x + w - r, y + r, r, -M_PI / 2, 0);
  cairo_arc(cr, x + w - r, y + h - r, r, 0, M_PI / 2);
  cairo_arc(cr, x + r, y + h - r, r, M_PI / 2, M_PI);
  cairo_arc(cr, x + r, y + r, r, M_PI, 3 * M_PI / 2);
  cairo_close_path(cr);
}

void drawGradient(cairo_t* cr, const Looks::Gradient& g, double x, double y, double w, double h) {
  // The line's unit coordinates run upwards, as an angle of 180 runs from the top down;
  // Cairo's run down the page.
  const auto [from, to] = Looks::line(g.angle);
  cairo_pattern_t* p =
      cairo_pattern_create_linear(x + from.x * w, y + (1 - from.y) * h, x + to.x * w, y + (1 - to.y) * h);
  for (const auto& stop : g.stops) {
    const auto c = colour(stop.hex);
    cairo_pattern_add_color_stop_rgb(p, stop.at, c.r, c.g, c.b);
  }
  cairo_rectangle(cr, x, y, w, h);
  cairo_set_source(cr, p);
  cairo_fill(cr);
  cairo_pattern_destroy(p);
}

void drawFields(cairo_t* cr, const Looks::Fields& f, double x, double y, double w, double h) {
  const double m = std::min(w, h);
  cairo_save(cr);
  cairo_rectangle(cr, x, y, w, h);
  cairo_clip(cr);
  const auto base = colour(f.base);
  cairo_set_source_rgb(cr, base.r, base.g, base.b);
  cairo_paint(cr);
  for (const auto& field : f.fields) {
    const auto c = colour(field.hex);
    const double cx = x + field.x * w, cy = y + field.y * h;
    cairo_pattern_t* p = cairo_pattern_create_radial(cx, cy, 0, cx, cy, field.radius * m);
    cairo_pattern_add_color_stop_rgba(p, 0, c.r, c.g, c.b, field.strength);
    cairo_pattern_add_color_stop_rgba(p, 1, c.r, c.g, c.b, 0);
    cairo_pattern_set_extend(p, CAIRO_EXTEND_NONE);
    cairo_set_source(cr, p);
    cairo_paint(cr);
    cairo_pattern_destroy(p);
  }
  if (f.grain > 0) {
    const auto bytes = Wallpapers::noise(f.grainSamples, f.grainSeed);
    if (!bytes.empty()) {
      Image tile{f.grainSamples, f.grainSamples, std::vector<std::uint32_t>(bytes.size() / 4)};
      for (size_t i = 0; i < tile.pixels.size(); ++i)
        tile.pixels[i] = 0xFF000000u | std::uint32_t(bytes[i * 4]) << 16 | std::uint32_t(bytes[i * 4 + 1]) << 8 |
                         bytes[i * 4 + 2];
      cairo_surface_t* s = surfaceOf(tile);
      cairo_pattern_t* p = cairo_pattern_create_for_surface(s);
      cairo_pattern_set_extend(p, CAIRO_EXTEND_REPEAT);
      cairo_pattern_set_filter(p, CAIRO_FILTER_FAST);
      const double span = std::max(f.grainSpan * m, 1.0);
      cairo_matrix_t matrix;
      cairo_matrix_init_scale(&matrix, f.grainSamples / span, f.grainSamples / span);
      cairo_matrix_translate(&matrix, -x, -y);
      cairo_pattern_set_matrix(p, &matrix);
      cairo_set_operator(cr, CAIRO_OPERATOR_OVERLAY);
      cairo_set_source(cr, p);
      cairo_paint_with_alpha(cr, f.grain);
      cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
      cairo_pattern_destroy(p);
      cairo_surface_destroy(s);
    }
  }
  if (f.vignette > 0) {
    const double r = std::hypot(w, h) / 2, cx = x + w / 2, cy = y + h / 2;
    cairo_pattern_t* p = cairo_pattern_create_radial(cx, cy, f.vignetteStart * r, cx, cy, f.vignetteEnd * r);
    cairo_pattern_add_color_stop_rgba(p, 0, 0, 0, 0, 0);
    cairo_pattern_add_color_stop_rgba(p, 1, 0, 0, 0, f.vignette);
    cairo_pattern_set_extend(p, CAIRO_EXTEND_PAD);
    cairo_set_source(cr, p);
    cairo_paint(cr);
    cairo_pattern_destroy(p);
  }
  cairo_restore(cr);
}

// Scales an image to cover the rectangle, cropping what overflows. False when it won't load.
bool fillImage(cairo_t* cr, const std::filesystem::path& file, double x, double y, double w, double h) {
  int iw = 0, ih = 0, n = 0;
  unsigned char* data = stbi_load(file.c_str(), &iw, &ih, &n, 4);
  if (!data) return false;
  Image image{iw, ih, std::vector<std::uint32_t>(size_t(iw) * ih)};
  for (size_t i = 0; i < image.pixels.size(); ++i) {
    const unsigned a = data[i * 4 + 3];
    auto pre = [&](unsigned v) { return (v * a + 127) / 255; };
    image.pixels[i] = a << 24 | pre(data[i * 4]) << 16 | pre(data[i * 4 + 1]) << 8 | pre(data[i * 4 + 2]);
  }
  stbi_image_free(data);
  cairo_surface_t* s = surfaceOf(image);
  const double scale = std::max(w / iw, h / ih);
  cairo_save(cr);
  cairo_rectangle(cr, x, y, w, h);
  cairo_clip(cr);
  cairo_translate(cr, x + (w - iw * scale) / 2, y + (h - ih * scale) / 2);
  cairo_scale(cr, scale, scale);
  cairo_set_source_surface(cr, s, 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
  // Padded, so the filter never blends the image's edge with nothing.
  cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
  cairo_paint(cr);
  cairo_restore(cr);
  cairo_surface_destroy(s);
  return true;
}

// Cairo has no blur: layered rounded rectangles, each a little wider and fainter,
// give the same soft falloff.
void drawShadow(cairo_t* cr, const Looks::Rect& picture, double corner, double m) {
  const double blur = Looks::shadowBlur * m, drop = Looks::shadowDrop * m;
  const int layers = 16;
  // The opaque picture hides all but the shadow's rim: leave its middle out of every layer.
  const double in = corner + 1;
  cairo_set_fill_rule(cr, CAIRO_FILL_RULE_EVEN_ODD);
  for (int i = layers; i >= 1; --i) {
    const double grow = blur * i / layers;
    roundedRect(cr, picture.x - grow, picture.y + drop - grow, picture.width + 2 * grow,
                picture.height + 2 * grow, corner + grow);
    if (picture.width > 2 * in && picture.height > 2 * in + drop)
      cairo_rectangle(cr, picture.x + in, picture.y + in, picture.width - 2 * in, picture.height - 2 * in - drop);
    cairo_set_source_rgba(cr, 0, 0, 0, Looks::shadowAlpha / layers);
    cairo_fill(cr);
  }
  cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
}

// libpng reports errors by longjmp: nothing here may need unwinding.
bool encodePNG(const Image& image, FILE* file, int channels) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!png || !info) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_bytep row = static_cast<png_bytep>(png_malloc(png, png_alloc_size_t(std::max(image.width, 1)) * 4));
  if (setjmp(png_jmpbuf(png))) {
    png_free(png, row);
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_init_io(png, file);
  png_set_compression_level(png, 0);
  png_set_filter(png, 0, PNG_FILTER_NONE);
  png_set_IHDR(png, info, image.width, image.height, 8,
               channels == 1 ? PNG_COLOR_TYPE_GRAY : channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < image.height; ++y) {
    png_byte* out = row;
    for (int x = 0; x < image.width; ++x) {
      const std::uint32_t p = image.pixels[size_t(y) * image.width + x];
      const unsigned a = p >> 24;
      // Cairo's pixels are premultiplied; PNG's are not.
      auto un = [a](unsigned v) { return png_byte(a == 0 ? 0 : a == 255 ? v : std::min(255u, (v * 255 + a / 2) / a)); };
      const png_byte r = un((p >> 16) & 0xFF), g = un((p >> 8) & 0xFF), b = un(p & 0xFF);
      if (channels == 1) {
        *out++ = r;
      } else {
        *out++ = r, *out++ = g, *out++ = b;
        if (channels == 4) *out++ = png_byte(a);
      }
    }
    png_write_row(png, row);
  }
  png_write_end(png, nullptr);
  png_free(png, row);
  png_destroy_write_struct(&png, &info);
  return true;
}

}  // namespace

std::uint32_t Image::at(int x, int y) const {
  if (x < 0 || y < 0 || x >= width || y >= height) return 0;
  return pixels[size_t(y) * width + x];
}

std::vector<std::uint8_t> Wallpapers::noise(int samples, std::uint64_t seed) {
  if (samples < 1) return {};
  std::vector<std::uint8_t> out(size_t(samples) * samples * 4);
  std::uint64_t state = seed;
  for (auto& byte : out) {
    state = state * 0x5851f42d4c957f2dull + 0x14057b7ef767814full;
    byte = std::uint8_t(state >> 33);
  }
  return out;
}

std::shared_ptr<const Image> Wallpapers::Store::find(const Looks::Fields& fields, int width, int height) {
  std::lock_guard guard(lock_);
  for (const auto& [key, image] : held_)
    if (key == Key{fields, width, height}) return image;
  return nullptr;
}

void Wallpapers::Store::hold(const Looks::Fields& fields, int width, int height, Image image) {
  std::lock_guard guard(lock_);
  std::erase_if(held_, [&](const auto& entry) { return entry.first == Key{fields, width, height}; });
  held_.emplace_back(Key{fields, width, height}, std::make_shared<const Image>(std::move(image)));
  while (held_.size() > keep_) held_.erase(held_.begin());
}

size_t Wallpapers::Store::size() {
  std::lock_guard guard(lock_);
  return held_.size();
}

Wallpapers::Store& Wallpapers::store() {
  static Store shared(4);
  return shared;
}

std::shared_ptr<const Image> Wallpapers::image(const Looks::Fields& fields, int width, int height) {
  if (auto held = store().find(fields, width, height)) return held;
  Canvas canvas(width, height);
  drawFields(canvas.cr, fields, 0, 0, width, height);
  store().hold(fields, width, height, canvas.image());
  return store().find(fields, width, height);
}

Image LookPainter::background(const Look& look, Size frame, const Looks::Rect& picture,
                              const std::filesystem::path& production) {
  const auto ground = Looks::ground(look);
  const auto& fallback = ground.kind == Looks::Ground::Kind::preset ? Looks::named(ground.value)
                                                                     : Looks::named(Looks::defaultPreset);
  // A wallpaper ground starts as a copy of the held painting: one copy, no compositing.
  std::shared_ptr<const Image> paper;
  if (ground.kind != Looks::Ground::Kind::image && !(ground.kind == Looks::Ground::Kind::color && Looks::isColor(ground.value)))
    if (const auto* f = std::get_if<Looks::Fields>(&fallback.wallpaper))
      paper = Wallpapers::image(*f, frame.width, frame.height);
  Canvas canvas = paper ? Canvas(*paper) : Canvas(frame.width, frame.height);
  cairo_t* cr = canvas.cr;
  const double w = frame.width, h = frame.height;
  bool painted = paper != nullptr;
  if (ground.kind == Looks::Ground::Kind::image) painted = fillImage(cr, production / ground.value, 0, 0, w, h);
  if (!painted && ground.kind == Looks::Ground::Kind::color && Looks::isColor(ground.value)) {
    const auto c = colour(ground.value);
    cairo_set_source_rgb(cr, c.r, c.g, c.b);
    cairo_paint(cr);
    painted = true;
  }
  if (!painted) {
    // An image that won't load or a colour that won't read falls back to the default ground.
    const auto& preset = ground.kind == Looks::Ground::Kind::preset ? Looks::named(ground.value)
                                                                     : Looks::named(Looks::defaultPreset);
    if (const auto* g = std::get_if<Looks::Gradient>(&preset.wallpaper)) {
      drawGradient(cr, *g, 0, 0, w, h);
    } else {
      const auto held = Wallpapers::image(std::get<Looks::Fields>(preset.wallpaper), frame.width, frame.height);
      cairo_surface_t* s = surfaceOf(*held);
      cairo_set_source_surface(cr, s, 0, 0);
      cairo_paint(cr);
      cairo_surface_destroy(s);
    }
  }
  if (Looks::shadow(look) && Looks::isOn(look))
    drawShadow(cr, picture, Looks::corner(w, h, look), std::min(w, h));
  return canvas.image();
}

Image LookPainter::mask(Size size, double corner) {
  Canvas canvas(size.width, size.height);
  cairo_set_source_rgb(canvas.cr, 0, 0, 0);
  cairo_paint(canvas.cr);
  roundedRect(canvas.cr, 0, 0, size.width, size.height, corner);
  cairo_set_source_rgb(canvas.cr, 1, 1, 1);
  cairo_fill(canvas.cr);
  return canvas.image();
}

void LookPainter::write(const Image& image, const std::filesystem::path& to) {
  // The sheets live for one export and are read once: stored without compression, they
  // cost a copy instead of seconds of deflating grain. Opaque sheets drop their alpha,
  // and a grey one its colour.
  const bool opaque = std::all_of(image.pixels.begin(), image.pixels.end(), [](auto p) { return p >> 24 == 0xFF; });
  const bool grey = opaque && std::all_of(image.pixels.begin(), image.pixels.end(), [](auto p) {
                      return (p & 0xFF) == ((p >> 8) & 0xFF) && (p & 0xFF) == ((p >> 16) & 0xFF);
                    });
  auto failed = [&](const std::string& why) {
    return std::runtime_error("couldn't write " + to.filename().string() + ": " + why);
  };
  FILE* file = std::fopen(to.c_str(), "wb");
  if (!file) throw failed(std::strerror(errno));
  if (!encodePNG(image, file, grey ? 1 : opaque ? 3 : 4)) {
    std::fclose(file);
    std::filesystem::remove(to);
    throw failed("the picture couldn't be encoded");
  }
  const bool flushed = std::fflush(file) == 0 && !std::ferror(file);
  const int closeError = std::fclose(file) == 0 ? 0 : errno;
  if (!flushed || closeError) {
    std::filesystem::remove(to);
    throw failed(closeError ? std::strerror(closeError) : "the disk took only part of it");
  }
}

}  // namespace tavorin
