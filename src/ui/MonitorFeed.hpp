#pragma once
#include <filesystem>
#include <optional>
#include <string>

namespace tavorin {

// Where the program monitor's picture comes from. The window's feed decodes the film
// off the main thread and keeps it in a texture; a surface drawn without a renderer
// has none, and the monitor then shows what it says instead of the picture.
class MonitorFeed {
 public:
  struct Image {
    void* texture = nullptr;  // what ImGui's renderer draws
    // The film's own size, whose shape the monitor's frame takes.
    int filmWidth = 0;
    int filmHeight = 0;
  };
  virtual ~MonitorFeed() = default;
  // Asks for the picture at `seconds` into `film`, `width` by `height` pixels, and
  // answers the newest one in hand for that film, which may still be an earlier time's.
  virtual std::optional<Image> show(const std::filesystem::path& film, double seconds, int width, int height) = 0;
  // Lets the film go: nothing is decoded while the monitor shows no take.
  virtual void release() = 0;
  // Why the film shows nothing, in the user's words.
  virtual std::optional<std::string> failure() const = 0;
};

}  // namespace tavorin
