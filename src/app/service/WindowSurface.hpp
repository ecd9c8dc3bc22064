#pragma once
#include <exception>
#include <filesystem>
#include <functional>

#include "operator/JSONValue.hpp"

namespace tavorin {

// The studio's window as the verbs see it: what was drawn in the last frame, and a
// photograph of it. Absent in a headless studio, where the verbs say so instead.
class WindowSurface {
 public:
  virtual ~WindowSurface() = default;
  // Every control drawn in the last frame, by panel, each panel with its frame; a
  // frame owed for a change already made is drawn first.
  virtual JSONValue elements() = 0;
  // Photographs the window into a PNG at `path` once `settle` seconds have passed and
  // a fresh frame is drawn; `done` runs on the main actor with the report or the failure.
  using Photographed = std::function<void(std::exception_ptr, JSONValue)>;
  virtual void photograph(const std::filesystem::path& path, double settle, Photographed done) = 0;
};

}  // namespace tavorin
