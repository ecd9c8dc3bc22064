#pragma once
#include <array>
#include <cstdint>
#include <string>

struct ImFont;

namespace tavorin {

// The studio's own colours, and the faces it draws with. The lane colours are the
// ones the Palette Lab tunes live.
struct Theme {
  using Colour = std::array<float, 4>;  // RGBA, 0 to 1

  Colour ground{0.075f, 0.078f, 0.086f, 1};
  Colour panel{0.110f, 0.114f, 0.125f, 1};
  Colour raised{0.160f, 0.165f, 0.180f, 1};
  Colour text{0.910f, 0.900f, 0.870f, 1};
  Colour quiet{0.560f, 0.560f, 0.545f, 1};
  Colour accent{0.949f, 0.561f, 0.235f, 1};  // amber: the playhead, the selection
  Colour failure{0.870f, 0.300f, 0.270f, 1};

  // One colour per lane, in the timeline's lane order from screen to labels.
  Colour screen{0.290f, 0.420f, 0.560f, 1};
  Colour zooms{0.520f, 0.400f, 0.640f, 1};
  Colour actions{0.380f, 0.560f, 0.420f, 1};
  Colour voice{0.780f, 0.560f, 0.290f, 1};
  Colour music{0.300f, 0.580f, 0.600f, 1};
  Colour labels{0.620f, 0.620f, 0.580f, 1};

  // ImGui's packed colour of a theme colour, at an opacity.
  static std::uint32_t packed(const Colour& c, float alpha = 1);
  // Puts the colours into ImGui's style. Needs a current ImGui context.
  void apply() const;
  // Loads the house faces from their folder into ImGui's atlas; falls back to
  // ImGui's own face when they are missing. Needs a current ImGui context.
  void loadFaces(float scale = 1);

  // Set by loadFaces; null before it.
  ImFont* body = nullptr;
  ImFont* heading = nullptr;
  ImFont* mono = nullptr;
};

}  // namespace tavorin
