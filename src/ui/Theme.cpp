#include "ui/Theme.hpp"

#include <imgui.h>

#include <filesystem>

#include "platform/FontCatalog.hpp"

namespace tavorin {

namespace {
ImVec4 v(const Theme::Colour& c, float alpha = 1) { return ImVec4(c[0], c[1], c[2], c[3] * alpha); }
}  // namespace

std::uint32_t Theme::packed(const Colour& c, float alpha) { return ImGui::ColorConvertFloat4ToU32(v(c, alpha)); }

void Theme::apply() const {
  ImGuiStyle& s = ImGui::GetStyle();
  s.WindowRounding = 0;
  s.ChildRounding = 4;
  s.FrameRounding = 4;
  s.GrabRounding = 4;
  s.PopupRounding = 6;
  s.WindowBorderSize = 0;
  s.FrameBorderSize = 0;
  s.WindowPadding = ImVec2(12, 10);
  s.FramePadding = ImVec2(8, 5);
  s.ItemSpacing = ImVec2(8, 6);
  s.ScrollbarSize = 12;
  ImVec4* c = s.Colors;
  // The panels tile the window and the frame is cleared in their colour, so they
  // draw no ground of their own: under a software renderer every layer of pixels
  // costs, and these were two over the whole window.
  c[ImGuiCol_WindowBg] = v(panel, 0);
  c[ImGuiCol_ChildBg] = v(ground, 0);
  c[ImGuiCol_PopupBg] = v(raised);
  c[ImGuiCol_Text] = v(text);
  c[ImGuiCol_TextDisabled] = v(quiet);
  c[ImGuiCol_Border] = v(raised);
  c[ImGuiCol_FrameBg] = v(ground);
  c[ImGuiCol_FrameBgHovered] = v(raised);
  c[ImGuiCol_FrameBgActive] = v(raised);
  c[ImGuiCol_Button] = v(raised);
  c[ImGuiCol_ButtonHovered] = v(accent, 0.55f);
  c[ImGuiCol_ButtonActive] = v(accent, 0.8f);
  c[ImGuiCol_Header] = v(raised);
  c[ImGuiCol_HeaderHovered] = v(accent, 0.35f);
  c[ImGuiCol_HeaderActive] = v(accent, 0.6f);
  c[ImGuiCol_CheckMark] = v(accent);
  c[ImGuiCol_SliderGrab] = v(accent);
  c[ImGuiCol_SliderGrabActive] = v(accent);
  c[ImGuiCol_Tab] = v(raised);
  c[ImGuiCol_TabActive] = v(accent, 0.7f);
  c[ImGuiCol_TabHovered] = v(accent, 0.5f);
  c[ImGuiCol_TableHeaderBg] = v(raised);
  c[ImGuiCol_TableRowBg] = v(panel);
  c[ImGuiCol_TableRowBgAlt] = v(ground);
  c[ImGuiCol_ScrollbarBg] = v(panel);
  c[ImGuiCol_ScrollbarGrab] = v(raised);
  c[ImGuiCol_ScrollbarGrabHovered] = v(quiet);
  c[ImGuiCol_ScrollbarGrabActive] = v(accent, 0.7f);
  c[ImGuiCol_TextSelectedBg] = v(accent, 0.35f);
}

void Theme::loadFaces(float scale) {
  ImGuiIO& io = ImGui::GetIO();
  io.Fonts->Clear();
  const auto folder = FontCatalog::houseFolder();
  auto face = [&](const char* file, float px) -> ImFont* {
    if (!folder) return nullptr;
    const auto path = *folder / file;
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) return nullptr;
    // Latin, and the punctuation and arrows the studio's own sentences use (— • → ×).
    static const ImWchar ranges[] = {0x0020, 0x00FF, 0x2000, 0x206F, 0x2190, 0x21FF, 0x2212, 0x2212, 0};
    return io.Fonts->AddFontFromFileTTF(path.c_str(), px * scale, nullptr, ranges);
  };
  body = face("Archivo-Regular.ttf", 15);
  heading = face("Archivo-SemiBold.ttf", 17);
  mono = face("IBMPlexMono-Regular.ttf", 14);
  // A checkout without the faces still draws, in ImGui's own.
  ImFont* fallback = nullptr;
  if (!body || !heading || !mono) fallback = io.Fonts->AddFontDefault();
  if (!body) body = fallback;
  if (!heading) heading = fallback;
  if (!mono) mono = fallback;
  io.FontDefault = body;
}

}  // namespace tavorin
