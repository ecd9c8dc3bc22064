#include "ui/Surfaces.hpp"

#include <imgui.h>
#include <imgui_internal.h>
#include <imgui_stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>

#include "app/model/AppStore.hpp"
#include "app/model/Scope.hpp"
#include "app/service/OperatorService.hpp"
#include "app/shoot/PermissionsRitual.hpp"
#include "kit/BlockingLexer.hpp"
#include "kit/Cut.hpp"
#include "kit/Looks.hpp"
#include "kit/Subtitles.hpp"
#include "kit/TakesStore.hpp"
#include "kit/Zooms.hpp"

namespace tavorin {

using Lane = TimelineGeometry::Lane;

namespace {

constexpr double topBarHeight = 44;
constexpr double inspectorWidth = 320;
constexpr double transportHeight = 44;
constexpr double railWidth = 96;

constexpr ImGuiWindowFlags fixedPanel = ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoResize |
                                        ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoCollapse |
                                        ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoBringToFrontOnFocus;

std::string seconds(double s) {
  char b[32];
  std::snprintf(b, sizeof b, "%.2f s", s);
  return b;
}

const Theme::Colour& laneColour(const Theme& t, Lane lane) {
  switch (lane) {
    case Lane::screen: return t.screen;
    case Lane::zooms: return t.zooms;
    case Lane::actions: return t.actions;
    case Lane::voice: return t.voice;
    case Lane::music: return t.music;
    case Lane::labels: return t.labels;
    case Lane::ruler: break;
  }
  return t.quiet;
}


const TimelineItem* itemNamed(const Recording& r, const std::string& id) {
  for (const auto& i : r.timeline)
    if (i.id == id) return &i;
  return nullptr;
}

}  // namespace

Surfaces::Surfaces(AppStore& store) : store_(store), model_(store.production()) {}

void Surfaces::act(const std::function<void()>& a) {
  try {
    a();
  } catch (const std::exception& e) {
    model_.toasts().post(Toast::Kind::failure, e.what());
  }
}

// ---- Panels and controls --------------------------------------------------------------

bool Surfaces::beginPanel(const char* id, const std::string& title, double x, double y, double w, double h,
                          bool scroll, bool floating) {
  ImGui::SetNextWindowPos(ImVec2(static_cast<float>(x), static_cast<float>(y)));
  ImGui::SetNextWindowSize(ImVec2(static_cast<float>(w), static_cast<float>(h)));
  registry_->openPanel(id, title, ElementRegistry::Frame{x, y, w, h});
  // Tiled panels stand on the cleared frame; one that floats over them brings its own ground.
  if (floating) ImGui::PushStyleColor(ImGuiCol_WindowBg, Theme::packed(theme_.raised));
  // A floating panel comes to the front when focused, so a sheet is never hidden under
  // a tiled panel that happened to be made after it.
  ImGuiWindowFlags flags = fixedPanel | (scroll ? 0 : ImGuiWindowFlags_NoScrollbar);
  if (floating) flags &= ~ImGuiWindowFlags_NoBringToFrontOnFocus;
  const bool open = ImGui::Begin(id, nullptr, flags);
  if (floating) ImGui::PopStyleColor();
  return open;
}

void Surfaces::endPanel() { ImGui::End(); }

void Surfaces::note(const std::string& id, const char* role, const std::string& label, const std::string& help,
                    bool enabled) {
  const ImVec2 a = ImGui::GetItemRectMin();
  const ImVec2 b = ImGui::GetItemRectMax();
  // What lies outside the panel's scrolled view was not seen; the registry clips to
  // the panel, and here to the visible part of a scrolled region.
  const ImVec2 ca = ImGui::GetWindowDrawList()->GetClipRectMin();
  const ImVec2 cb = ImGui::GetWindowDrawList()->GetClipRectMax();
  ElementRegistry::Frame frame{a.x, a.y, b.x - a.x, b.y - a.y};
  frame = frame.clipped(ElementRegistry::Frame{ca.x, ca.y, cb.x - ca.x, cb.y - ca.y});
  if (ImGui::IsItemHovered(ImGuiHoveredFlags_AllowWhenDisabled) && !help.empty()) ImGui::SetTooltip("%s", help.c_str());
  registry_->add(ElementRegistry::Element{id, role, label, enabled, help, frame});
}

bool Surfaces::button(const std::string& id, const std::string& label, const std::string& help, bool enabled) {
  ImGui::BeginDisabled(!enabled);
  const bool clicked = ImGui::Button((label + "##" + id).c_str());
  ImGui::EndDisabled();
  note(id, "button", label, help, enabled);
  return clicked && enabled;
}

std::optional<std::string> Surfaces::field(const std::string& id, const std::string& label, const std::string& value,
                                           const std::string& help, bool multiline, double width) {
  // While the field holds the keyboard it shows what is typed; otherwise the model's value.
  auto held = typing_.find(id);
  std::string buffer = held != typing_.end() ? held->second : value;
  ImGui::SetNextItemWidth(static_cast<float>(width));
  const std::string key = "##" + id;
  if (multiline)
    ImGui::InputTextMultiline(key.c_str(), &buffer, ImVec2(static_cast<float>(width), 72));
  else
    ImGui::InputText(key.c_str(), &buffer);
  note(id, "field", label, help, !model_.isReadOnly());
  if (ImGui::IsItemActive()) typing_[id] = buffer;
  std::optional<std::string> committed;
  if (ImGui::IsItemDeactivatedAfterEdit() && buffer != value) committed = buffer;
  if (!ImGui::IsItemActive()) typing_.erase(id);
  return committed;
}

std::optional<double> Surfaces::numberField(const std::string& id, const std::string& label,
                                            std::optional<double> value, const std::string& help) {
  char b[32] = "";
  if (value) std::snprintf(b, sizeof b, "%.2f", *value);
  ImGui::TextUnformatted(label.c_str());
  ImGui::SameLine(110);
  const auto text = field(id, label, b, help, false, 150);
  if (!text) return std::nullopt;
  char* end = nullptr;
  const double v = std::strtod(text->c_str(), &end);
  if (text->empty() || *end != '\0') {
    model_.toasts().post(Toast::Kind::failure, "'" + *text + "' is not a number for " + label);
    return std::nullopt;
  }
  return v;
}

// ---- The frame ---------------------------------------------------------------------------

void Surfaces::draw(double width, double height, ElementRegistry& registry) {
  registry_ = &registry;
  registry.beginFrame(width, height, word(store_.route().page));
  try {
    drawTopBar(width);
    const Page page = model_.isOpen() ? store_.route().page : Page::library;
    if (page == Page::edit) drawEditPage(width, height);
    else if (page == Page::script) drawScriptPage(width, height);
    else drawLibraryPage(width, height);
    drawSheets(width, height);
    drawToasts(width);
    if (model_.paletteOpen) drawPalette(width, height);
  } catch (const std::exception& e) {
    // A question the model refused while drawing costs this frame, never the studio:
    // the panels left open are closed and the refusal is said once.
    ImGui::ErrorCheckEndFrameRecover(nullptr);
    if (lastFailure_ != e.what()) model_.toasts().post(Toast::Kind::failure, e.what());
    lastFailure_ = e.what();
  }
  registry.endFrame();
  registry_ = nullptr;
}

bool Surfaces::animating() const { return model_.isPlaying() || drag_.has_value(); }

std::chrono::steady_clock::duration Surfaces::animationPace() const {
  // Takes are filmed at 30 frames a second; drawing faster while one plays only
  // shows the same picture again.
  constexpr auto filmFrame = std::chrono::microseconds(1'000'000 / 30);
  return drag_ ? std::chrono::steady_clock::duration::zero() : std::chrono::steady_clock::duration(filmFrame);
}

bool Surfaces::shortcut(Key key, bool typing) {
  switch (key) {
    case Key::undo: act([&] { model_.undo(); }); return true;
    case Key::redo: act([&] { model_.redo(); }); return true;
    case Key::save: act([&] { model_.save(); }); return true;
    case Key::play:
      if (typing || !model_.isOpen()) return false;
      act([&] { model_.togglePlay(); });
      return true;
    case Key::remove:
      if (typing || model_.selection().empty()) return false;
      act([&] { model_.deleteItems(model_.selection()); });
      return true;
    case Key::import:
      // Importing asks for a file, which a desktop file chooser does; until then the
      // shortcut says where the act lives.
      model_.toasts().post(Toast::Kind::failure, "import needs a file: drop it on the window, or tavorinctl import path=<file>");
      return true;
  }
  return false;
}

void Surfaces::drawTopBar(double width) {
  beginPanel("topbar", "Top bar", 0, 0, width, topBarHeight);
  const bool open = model_.isOpen();
  const Page page = store_.route().page;
  auto tab = [&](Page p, const char* label, const char* help) {
    const bool on = page == p;
    if (on) ImGui::PushStyleColor(ImGuiCol_Button, ImGui::GetStyle().Colors[ImGuiCol_ButtonActive]);
    const bool enabled = p == Page::library || open;
    if (button(std::string("nav.") + word(p), label, help, enabled)) act([&] { store_.navigate(word(p)); });
    if (on) ImGui::PopStyleColor();
    ImGui::SameLine();
  };
  if (Scope::scripting()) tab(Page::script, "Script", "The lines and the stage script.");
  tab(Page::edit, "Edit", "The program monitor, the timeline and the inspector.");
  tab(Page::library, "Library", "Projects and their recordings.");
  ImGui::SameLine(0, 24);
  ImGui::PushFont(theme_.heading);
  std::string title = open ? model_.recording().title : "No production open";
  if (open && model_.dirty()) title += " •";
  if (model_.isReadOnly()) title += "  (older version, read-only)";
  ImGui::TextUnformatted(title.c_str());
  note("topbar.title", "text", title, "The open production.");
  ImGui::PopFont();
  const float right = static_cast<float>(width) - 410;
  ImGui::SameLine(std::max(right, ImGui::GetCursorPosX() + 16));
  if (button("action.undo", "Undo", "Step the production back one edit (Ctrl+Z).", open && model_.history().canStepBack()))
    act([&] { model_.undo(); });
  ImGui::SameLine();
  if (button("action.redo", "Redo", "Step forward again (Ctrl+Shift+Z).", open && model_.history().canStepForward()))
    act([&] { model_.redo(); });
  ImGui::SameLine();
  if (button("action.save", "Save", "Make a new version of the production (Ctrl+S).", open && !model_.isReadOnly()))
    act([&] { model_.save(); });
  ImGui::SameLine();
  if (button("topbar.export", "Export", "Raise the Export sheet over this page.", open))
    act([&] { store_.openExportSheet(); });
  ImGui::SameLine();
  if (button("topbar.fetch", "Fetch audio…", "Raise the Fetch audio sheet: a URL and a range.", open))
    act([&] { store_.openFetchSheet(); });
  ImGui::SameLine();
  if (button("action.palette", "Palette", "The Palette Lab: tune the timeline's colours live."))
    model_.paletteOpen = !model_.paletteOpen;
  endPanel();
}

// ---- Edit page ----------------------------------------------------------------------------

void Surfaces::drawEditPage(double width, double height) {
  // One geometry a frame: the timeline, the inspector and the layout read the same.
  geometry_.emplace(model_.geometry());
  const double lanes = geometry_->height() + 40;
  const double timelineHeight = std::min(lanes, (height - topBarHeight) * 0.55);
  const double timelineTop = height - timelineHeight;
  const double transportTop = timelineTop - transportHeight;
  drawMonitor(0, topBarHeight, width - inspectorWidth, transportTop - topBarHeight);
  drawInspector(width - inspectorWidth, topBarHeight, inspectorWidth, transportTop - topBarHeight);
  drawTransport(0, transportTop, width, transportHeight);
  drawTimeline(0, timelineTop, width, timelineHeight);
}

void Surfaces::drawMonitor(double x, double y, double w, double h) {
  beginPanel("monitor", "Program monitor", x, y, w, h);
  ImDrawList* dl = ImGui::GetWindowDrawList();
  const Recording& rec = model_.recording();
  const AppModel::Viewer viewer = model_.viewer();
  // The take's film and the time in the file under the playhead: the film's time
  // through the cut, after the slate, as the export trims it.
  std::optional<std::filesystem::path> film;
  double fileSeconds = 0;
  if (feed_ && viewer == AppModel::Viewer::take && model_.baseDir()) {
    if (const auto take = model_.monitorTake()) {
      film = TakesStore(*model_.baseDir()).video(*take);
      const auto placed = Cut::placed(rec, take->footage());
      fileSeconds = take->pads.slate + Cut::sourceTime(model_.playhead(), placed).value_or(0);
    }
  }
  if (feed_ && !film) feed_->release();
  // The picture's frame inside the panel, in the film's shape once the film has said
  // it (16:9 until then); the look and the captions are placed by the same functions
  // the export burns with.
  const double aspect = film && filmAspect_ > 0 ? filmAspect_ : 16.0 / 9.0;
  const double pad = 16;
  double fw = w - 2 * pad, fh = fw / aspect;
  if (fh > h - 2 * pad) {
    fh = h - 2 * pad;
    fw = fh * aspect;
  }
  const double fx = x + (w - fw) / 2, fy = y + (h - fh) / 2;
  ImGui::SetCursorScreenPos(ImVec2(static_cast<float>(fx), static_cast<float>(fy)));
  ImGui::InvisibleButton("##monitor.picture", ImVec2(static_cast<float>(fw), static_cast<float>(fh)));
  const auto in = Looks::inset(fw, fh, rec.look);
  std::optional<MonitorFeed::Image> image;
  std::optional<std::string> unreadable;
  if (film) {
    // Decoded as large as the zoom in force shows it, so a close-up stays sharp; the
    // size moves only when a zoom begins or ends, never with its easing.
    const Zoom* zoom = Zooms::active(model_.playhead(), rec);
    const double closer = zoom ? Zooms::clampScale(zoom->scale) : 1;
    const int dw = std::clamp(int(std::lround(in.width * closer)), 2, 3840);
    const int dh = std::clamp(int(std::lround(in.height * closer)), 2, 2160);
    image = feed_->show(*film, fileSeconds, dw, dh);
    unreadable = feed_->failure();
    if (image && image->filmWidth > 0 && image->filmHeight > 0)
      filmAspect_ = double(image->filmWidth) / double(image->filmHeight);
  }
  const char* says = "";
  switch (viewer) {
    case AppModel::Viewer::empty: says = "No take yet: record one, or import a film."; break;
    case AppModel::Viewer::still: says = "A still on the monitor."; break;
    case AppModel::Viewer::take: says = "The take, with the cut, zooms and look applied."; break;
    case AppModel::Viewer::missing: says = "The take's film is gone from takes/."; break;
  }
  if (unreadable) says = unreadable->c_str();
  note("monitor.picture", "monitor", says, "The program monitor: what the export will show at the playhead.");
  const bool lookOn = Looks::isOn(rec.look);
  ImU32 ground = Theme::packed(theme_.ground);
  if (lookOn) {
    const auto g = Looks::ground(rec.look);
    if (g.kind == Looks::Ground::Kind::color)
      if (const auto c = Looks::rgb(g.value))
        ground = ImGui::ColorConvertFloat4ToU32(ImVec4(float(c->r), float(c->g), float(c->b), 1));
    if (g.kind == Looks::Ground::Kind::preset) ground = Theme::packed(theme_.screen, 0.6f);
  }
  // Without a look the picture fills the frame, and the ground would be painted for nothing.
  if (lookOn) dl->AddRectFilled(ImVec2(float(fx), float(fy)), ImVec2(float(fx + fw), float(fy + fh)), ground);
  // The corner of the picture itself, as the export's mask rounds it.
  const float corner = static_cast<float>(Looks::corner(in.width, in.height, rec.look));
  const ImVec2 pa(float(fx + in.x), float(fy + in.y)), pb(float(fx + in.x + in.width), float(fy + in.y + in.height));
  if (lookOn && Looks::shadow(rec.look))
    dl->AddRectFilled(ImVec2(pa.x + 4, pa.y + 6), ImVec2(pb.x + 4, pb.y + 6), IM_COL32(0, 0, 0, 90), corner);
  // The zoom in force at the playhead, by the export's own reading: the part of the
  // picture the export's zoompan keeps.
  const Zooms::Frame zf = Zooms::frame(model_.playhead(), rec);
  if (image) {
    const double half = 0.5 / zf.scale;
    dl->AddImageRounded(image->texture, pa, pb, ImVec2(float(zf.x - half), float(zf.y - half)),
                        ImVec2(float(zf.x + half), float(zf.y + half)), IM_COL32_WHITE, corner);
  } else {
    dl->AddRectFilled(pa, pb, Theme::packed(theme_.raised), corner);
    dl->AddText(ImVec2(pa.x + 14, pa.y + 12), Theme::packed(theme_.quiet), says);
    // With no picture to close in on, the crop it would take is outlined instead.
    if (zf.scale > 1.0001) {
      const double cw = in.width / zf.scale, ch = in.height / zf.scale;
      const double cx = fx + in.x + std::clamp(zf.x * in.width - cw / 2, 0.0, in.width - cw);
      const double cy = fy + in.y + std::clamp(zf.y * in.height - ch / 2, 0.0, in.height - ch);
      dl->AddRect(ImVec2(float(cx), float(cy)), ImVec2(float(cx + cw), float(cy + ch)), Theme::packed(theme_.zooms), 0, 0, 2);
    }
  }
  // The line spoken at the playhead, where the burned caption sits.
  if (Subtitles::burns(rec.subtitles)) {
    for (const auto& i : rec.timeline) {
      if (i.type != ItemType::line || !i.start || !i.text) continue;
      const double d = i.effectiveDuration().value_or(0);
      if (model_.playhead() < *i.start || model_.playhead() >= *i.start + d) continue;
      const auto anchor = Subtitles::anchor(rec.subtitles);
      const float px = static_cast<float>(Subtitles::fontPixels(Subtitles::size(rec.subtitles), in.height));
      ImFont* font = theme_.body;
      const ImVec2 size = font->CalcTextSizeA(px, float(in.width * 0.9), float(in.width * 0.9), i.text->c_str());
      const ImVec2 at(float(fx + in.x + anchor.x * in.width - size.x / 2), float(fy + in.y + anchor.y * in.height - size.y / 2));
      dl->AddText(font, px, ImVec2(at.x + 1, at.y + 1), IM_COL32(0, 0, 0, 200), i.text->c_str(), nullptr, float(in.width * 0.9));
      dl->AddText(font, px, at, IM_COL32(255, 255, 255, 255), i.text->c_str(), nullptr, float(in.width * 0.9));
      ImGui::SetCursorScreenPos(at);
      ImGui::Dummy(size);
      note("monitor.subtitle", "caption", *i.text, "The caption the export burns at the playhead.");
      break;
    }
  }
  endPanel();
}

void Surfaces::drawInspector(double x, double y, double w, double h) {
  beginPanel("inspector", "Inspector", x, y, w, h, true);
  const Recording& rec = model_.recording();
  const auto& sel = model_.selection();
  const double fieldWidth = w - 140;
  if (sel.size() == 1) {
    const std::string id = sel.front();
    // The editor's heading, with its close button where a long editor cannot scroll it away.
    auto heading = [&](const std::string& title) {
      ImGui::PushFont(theme_.heading);
      ImGui::TextUnformatted(title.c_str());
      ImGui::PopFont();
      ImGui::SameLine(float(w - 72));
      if (button("panel.editor.close", "Close", "Close the editor and clear the selection.")) model_.clearSelection();
    };
    if (const TimelineItem* item = itemNamed(rec, id)) {
      heading(name(item->type) + " " + id);
      auto text = [&](const char* f, const char* label, const std::optional<std::string>& v, const char* help,
                      bool multiline = false) {
        ImGui::TextUnformatted(label);
        if (!multiline) ImGui::SameLine(110);
        if (auto t = field("inspector." + std::string(f), label, v.value_or(""), help, multiline, multiline ? w - 24 : fieldWidth))
          act([&] { model_.editItem(id, f, FieldValue(*t)); });
      };
      auto number = [&](const char* f, const char* label, std::optional<double> v, const char* help) {
        if (auto n = numberField("inspector." + std::string(f), label, v, help))
          act([&] { model_.editItem(id, f, FieldValue(*n)); });
      };
      if (item->type == ItemType::line) {
        text("text", "Words", item->text, "What the line says.", true);
        text("character", "Character", item->character, "Who speaks it; blank speaks as the production.");
        text("voice", "Voice", item->voice, "The voice; blank takes the character's.");
        number("start", "Start", item->start, "Seconds on the timeline.");
        number("rate", "Rate", item->rate, "Speed of the speech, 1 is as rendered.");
        number("hold", "Hold", item->hold, "Seconds of quiet after the line.");
        bool approved = item->approved.value_or(false);
        if (ImGui::Checkbox("Approved##inspector.approved", &approved)) act([&] { model_.approveLine(id, approved); });
        note("inspector.approved", "toggle", "Approved", "Reviewed: a render of everything stale leaves it alone.");
        if (const auto stale = rec.staleReason(*item)) ImGui::TextColored(ImVec4(0.95f, 0.6f, 0.3f, 1), "Stale: %s", stale->c_str());
      } else if (item->type == ItemType::audio) {
        number("start", "Start", item->start, "Seconds on the timeline.");
        number("gain", "Gain", item->gain, "The bed's level in dB, -60 to +6.");
        number("trimIn", "Trim in", item->trimIn, "Seconds into the file.");
        number("trimOut", "Trim out", item->trimOut, "Seconds into the file.");
      } else {
        number("start", "Start", item->start, "Seconds on the timeline.");
        text("text", "Text", item->text, "The label's words.");
      }
      text("note", "Note", item->note, "A note of your own; nothing reads it.");
      endPanel();
      return;
    }
    for (const Zoom& z : model_.zooms()) {
      if (z.id != id) continue;
      heading("zoom " + id);
      auto change = [&](const char* f, const char* label, double v, const char* help, auto set) {
        if (auto n = numberField("inspector.zoom." + std::string(f), label, v, help)) {
          AppModel::ZoomChange c;
          set(c, *n);
          act([&] { model_.changeZoom(id, c); });
        }
      };
      change("scale", "Scale", z.scale, "How far the camera moves in.", [](auto& c, double n) { c.scale = n; });
      const Zoom::Anchor anchor = z.anchor.value_or(Zoom::Anchor());
      change("x", "Across", anchor.x, "The middle of the crop, 0 to 1 across.", [](auto& c, double n) { c.x = n; });
      change("y", "Down", anchor.y, "The middle of the crop, 0 to 1 down.", [](auto& c, double n) { c.y = n; });
      endPanel();
      return;
    }
  }
  // Nothing picked: the tab rail and the production itself.
  ImGui::PushStyleVar(ImGuiStyleVar_FramePadding, ImVec2(6, 4));
  ImGui::PushStyleVar(ImGuiStyleVar_ItemSpacing, ImVec2(4, 6));
  for (const std::string& t : AppModel::panelTabs()) {
    const bool on = model_.panelTab() == t;
    if (on) ImGui::PushStyleColor(ImGuiCol_Button, ImGui::GetStyle().Colors[ImGuiCol_ButtonActive]);
    std::string label = t;
    label[0] = static_cast<char>(std::toupper(label[0]));
    if (button("panel.tab." + t, label, "Show the " + t + " tab.")) act([&] { model_.showPanelTab(t); });
    if (on) ImGui::PopStyleColor();
    ImGui::SameLine();
  }
  ImGui::PopStyleVar(2);
  ImGui::NewLine();
  if (sel.size() > 1) ImGui::Text("%zu items picked", sel.size());
  ImGui::Separator();
  auto production = [&](const char* f, const char* label, const std::string& v, const char* help) {
    ImGui::TextUnformatted(label);
    ImGui::SameLine(110);
    if (auto t = field("inspector.production." + std::string(f), label, v, help, false, fieldWidth))
      act([&] { model_.editProduction(f, FieldValue(*t)); });
  };
  production("title", "Title", rec.title, "The production's title.");
  production("voice", "Voice", rec.voice.voice.value_or(""), "What every line that pins none speaks with.");
  production("character", "Character", rec.voice.character.value_or(""), "The production's character.");
  if (auto n = numberField("inspector.production.gap", "Gap", rec.gap, "Seconds between lines."))
    act([&] { model_.editProduction("gap", FieldValue(*n)); });
  ImGui::Separator();
  int lines = 0;
  for (const auto& i : rec.timeline) lines += i.type == ItemType::line;
  ImGui::TextColored(ImGui::GetStyle().Colors[ImGuiCol_TextDisabled], "%d lines · %s · %zu stale", lines,
                     seconds(geometry_->total).c_str(), rec.staleLines().size());
  endPanel();
}

void Surfaces::drawTransport(double x, double y, double w, double h) {
  beginPanel("transport", "Transport", x, y, w, h);
  const bool playing = model_.isPlaying();
  const bool canPlay = model_.transport() != nullptr;
  if (button("transport.play", playing ? "Pause" : "Play", playing ? "Pause where it is (Space)." : "Play from the playhead (Space).", canPlay))
    act([&] { model_.togglePlay(); });
  ImGui::SameLine();
  if (button("transport.stop", "Stop", "Stop and go back to where the play began.", canPlay && playing))
    act([&] { model_.stopTransport(); });
  ImGui::SameLine();
  if (button("transport.start", "|<", "Back to the start.")) act([&] { model_.seek(0); });
  ImGui::SameLine(0, 18);
  ImGui::PushFont(theme_.mono);
  const std::string tc = model_.timecode(model_.playhead());
  ImGui::TextUnformatted(tc.c_str());
  note("transport.timecode", "readout", tc, "The playhead; tavorinctl timecode format=film|seconds.");
  ImGui::PopFont();
  ImGui::SameLine(0, 24);
  bool snapping = model_.snapping;
  if (ImGui::Checkbox("Snap##dock.snapping", &snapping)) model_.snapping = snapping;
  note("dock.snapping", "toggle", "Snap", "A drag lands on a neighbour or a whole second.");
  ImGui::SameLine();
  if (button("timeline.fit", "Fit", "Fit the production to the timeline's width."))
    act([&] { model_.fitTimeline(w - railWidth - 24); });
  ImGui::SameLine();
  if (button("timeline.zoomOut", "-", "Fewer pixels a second.")) act([&] { model_.zoomTimeline(model_.pxPerSecond() / 1.5); });
  ImGui::SameLine();
  if (button("timeline.zoomIn", "+", "More pixels a second.")) act([&] { model_.zoomTimeline(model_.pxPerSecond() * 1.5); });
  endPanel();
}

void Surfaces::drawTimeline(double x, double y, double w, double h) {
  beginPanel("timeline", "Timeline", x, y, w, h);
  const TimelineGeometry& g = *geometry_;
  const Recording& rec = model_.recording();
  ImDrawList* dl = ImGui::GetWindowDrawList();
  const ImVec2 origin = ImGui::GetCursorScreenPos();
  // The rail: one title per lane, beside the lane it names.
  for (Lane lane : g.lanes) {
    const double top = *g.top(lane);
    ImGui::SetCursorScreenPos(ImVec2(origin.x, origin.y + float(top)));
    const std::string title = TimelineGeometry::title(lane);
    const bool hideable = lane != Lane::ruler;
    ImGui::BeginDisabled(!hideable);
    if (ImGui::InvisibleButton(("##lane." + TimelineGeometry::name(lane)).c_str(),
                               ImVec2(float(railWidth - 8), float(TimelineGeometry::blockHeight(lane)))) && hideable)
      act([&] { model_.setLaneHidden(lane, true); });
    ImGui::EndDisabled();
    note("lane." + TimelineGeometry::name(lane), "lane", title,
         hideable ? "The " + title + " lane; click to hide it (tavorinctl lane.hide to bring it back)." : "The ruler.", hideable);
    dl->AddText(ImVec2(origin.x + 4, origin.y + float(top) + 4), Theme::packed(theme_.quiet), title.c_str());
  }
  // The lanes themselves scroll across; the rail stays.
  ImGui::SetCursorScreenPos(ImVec2(origin.x + float(railWidth), origin.y));
  const float contentHeight = float(h - (origin.y - y) - 8);
  ImGui::BeginChild("lanes", ImVec2(float(w - railWidth - 24), contentHeight), false, ImGuiWindowFlags_HorizontalScrollbar);
  ImDrawList* cl = ImGui::GetWindowDrawList();
  const ImVec2 o = ImGui::GetCursorScreenPos();
  const double px = g.pxPerSecond;
  const double contentWidth = std::max(g.total * px + 200, double(ImGui::GetContentRegionAvail().x));
  // Lane grounds and the ruler's ticks.
  for (Lane lane : g.lanes) {
    const float top = o.y + float(*g.top(lane));
    const float bottom = top + float(TimelineGeometry::blockHeight(lane));
    // A hairline under each lane rather than a ground: a software renderer pays for
    // every pixel a fill covers.
    cl->AddLine(ImVec2(o.x, bottom + 3), ImVec2(o.x + float(contentWidth), bottom + 3), Theme::packed(theme_.raised));
    if (lane == Lane::ruler) {
      const double step = px >= 60 ? 1 : px >= 12 ? 5 : 30;
      for (double t = 0; t * px < contentWidth; t += step) {
        const float tx = o.x + float(t * px);
        cl->AddLine(ImVec2(tx, bottom - 8), ImVec2(tx, bottom), Theme::packed(theme_.quiet));
        cl->AddText(theme_.mono, 12, ImVec2(tx + 3, top + 2), Theme::packed(theme_.quiet), model_.timecode(t).c_str());
      }
    }
  }
  // The ruler seeks; dragging on it scrubs.
  if (auto top = g.top(Lane::ruler)) {
    ImGui::SetCursorScreenPos(ImVec2(o.x, o.y + float(*top)));
    ImGui::InvisibleButton("##timeline.ruler", ImVec2(float(contentWidth), float(TimelineGeometry::blockHeight(Lane::ruler))));
    if (ImGui::IsItemActive()) act([&] { model_.seek(std::max(0.0, (ImGui::GetIO().MousePos.x - o.x) / px)); });
    note("timeline.ruler", "ruler", "Ruler", "Click or drag to move the playhead.");
  }
  const double visibleFrom = ImGui::GetScrollX() - 50;
  const double visibleTo = ImGui::GetScrollX() + ImGui::GetWindowWidth() + 50;
  // The blocks, from the geometry the verbs report; each is a control.
  std::set<Lane> filled;
  const auto& selection = model_.selection();
  bool onBlock = false;
  // Steps of the stage script at one moment share a mark: the first stands for them all.
  const TimelineGeometry::Placement* cluster = nullptr;
  int clustered = 0;
  for (const auto& p : g.placements()) {
    filled.insert(p.lane);
    if (p.lane == Lane::actions && cluster && cluster->rect.intersects(p.rect)) {
      if (auto* e = registry_->lastAdded(); e && e->id == "lane.actions." + cluster->id) e->label += ", " + p.id;
      const ImVec2 at(o.x + float(cluster->rect.x + cluster->rect.width), o.y + float(cluster->rect.y) - 4);
      // Each later step redraws the count over the last.
      cl->AddRectFilled(at, ImVec2(at.x + 22, at.y + 12), Theme::packed(theme_.panel));
      cl->AddText(theme_.mono, 11, at, Theme::packed(theme_.text), ("+" + std::to_string(++clustered)).c_str());
      continue;
    }
    if (p.lane == Lane::actions) {
      cluster = &p;
      clustered = 0;
    }
    // Blocks scrolled out of sight are neither drawn nor offered, unless in the hand.
    const bool held = drag_ && drag_->id == p.id;
    if (!held && (p.rect.x + p.rect.width < visibleFrom || p.rect.x > visibleTo)) continue;
    double bx = p.rect.x;
    if (drag_ && drag_->id == p.id) bx = drag_->start * px;
    const ImVec2 a(o.x + float(bx), o.y + float(p.rect.y));
    const ImVec2 b(a.x + float(p.rect.width), a.y + float(p.rect.height));
    const bool picked = std::find(selection.begin(), selection.end(), p.id) != selection.end();
    const auto& colour = laneColour(theme_, p.lane);
    cl->AddRectFilled(a, b, Theme::packed(colour, picked ? 1.0f : 0.75f), p.radius);
    if (picked) cl->AddRect(a, b, Theme::packed(theme_.accent), p.radius, 0, 2);
    std::string label = p.id;
    if (const TimelineItem* item = itemNamed(rec, p.id)) {
      if (item->text) label = *item->text;
      else if (item->file) label = *item->file;
      if (item->type == ItemType::line && rec.isStale(*item)) cl->AddRectFilled(a, ImVec2(a.x + 3, b.y), Theme::packed(theme_.failure));
    }
    cl->PushClipRect(a, b, true);
    cl->AddText(ImVec2(a.x + 5, a.y + 3), Theme::packed(theme_.text), label.c_str());
    cl->PopClipRect();
    ImGui::SetCursorScreenPos(a);
    ImGui::InvisibleButton(("##item." + p.id).c_str(), ImVec2(std::max(1.0f, b.x - a.x), std::max(1.0f, b.y - a.y)));
    onBlock |= ImGui::IsItemHovered();
    const bool movable = p.type != "segment";
    if (ImGui::IsItemActivated()) {
      act([&] { model_.select({p.id}, ImGui::GetIO().KeyCtrl || ImGui::GetIO().KeyShift); });
      if (movable) drag_ = Drag{p.id, (ImGui::GetIO().MousePos.x - a.x) / px, p.start};
    }
    if (drag_ && drag_->id == p.id && ImGui::IsItemActive() && ImGui::IsMouseDragging(ImGuiMouseButton_Left, 3)) {
      const double to = std::max(0.0, (ImGui::GetIO().MousePos.x - o.x) / px - drag_->grabbedAt);
      try {
        const auto snap = model_.snapPreview(p.id, to);
        drag_->start = snap.start;
        if (snap.snapped) {
          const float sx = o.x + float(*snap.snapped * px);
          cl->AddLine(ImVec2(sx, o.y), ImVec2(sx, o.y + float(g.height())), Theme::packed(theme_.accent, 0.8f), 1);
        }
      } catch (const std::exception&) {
        drag_->start = to;
      }
    }
    if (drag_ && drag_->id == p.id && ImGui::IsItemDeactivated()) {
      const Drag done = *drag_;
      drag_.reset();
      if (std::abs(done.start - p.start) > 1e-6) act([&] { model_.moveItem(done.id, done.start, false); });
    }
    note("lane." + TimelineGeometry::name(p.lane) + "." + p.id, "item", label,
         movable ? "Drag to move it; click to pick it, Ctrl+click to add it to the pick." : "Click to pick the segment.");
  }
  for (Lane lane : g.lanes) {
    if (lane == Lane::ruler || filled.count(lane)) continue;
    ImGui::SetCursorScreenPos(ImVec2(o.x, o.y + float(*g.top(lane))));
    ImGui::Dummy(ImVec2(180, float(TimelineGeometry::blockHeight(lane))));
    cl->AddText(ImVec2(o.x + 8, o.y + float(*g.top(lane)) + 4), Theme::packed(theme_.quiet), "empty");
    note("lane." + TimelineGeometry::name(lane) + ".empty", "placeholder", "empty", "Nothing on this lane yet.");
  }
  // A click on the ground empties the pick.
  if (ImGui::IsWindowHovered() && ImGui::IsMouseClicked(ImGuiMouseButton_Left) && !onBlock &&
      ImGui::GetIO().MousePos.y > o.y + float(TimelineGeometry::step(Lane::ruler)))
    model_.clearSelection();
  // The playhead over everything.
  const float phx = o.x + float(model_.playhead() * px);
  cl->AddLine(ImVec2(phx, o.y), ImVec2(phx, o.y + float(g.height())), Theme::packed(theme_.accent), 2);
  cl->AddTriangleFilled(ImVec2(phx - 6, o.y), ImVec2(phx + 6, o.y), ImVec2(phx, o.y + 8), Theme::packed(theme_.accent));
  ImGui::SetCursorScreenPos(ImVec2(o.x + float(contentWidth), o.y + float(g.height())));
  ImGui::Dummy(ImVec2(1, 1));
  ImGui::EndChild();
  endPanel();
}

// ---- Script page ----------------------------------------------------------------------------

void Surfaces::drawScriptPage(double width, double height) {
  const double drawer = model_.blockingDrawerOpen ? std::min(300.0, height * 0.4) : 44;
  beginPanel("script", "Script", 0, topBarHeight, width, height - topBarHeight - drawer, true);
  const Recording& rec = model_.recording();
  const ImGuiTableFlags flags = ImGuiTableFlags_RowBg | ImGuiTableFlags_BordersInnerH | ImGuiTableFlags_SizingFixedFit;
  if (ImGui::BeginTable("lines", 6, flags)) {
    ImGui::TableSetupColumn("Line", ImGuiTableColumnFlags_WidthFixed, 52);
    ImGui::TableSetupColumn("Character", ImGuiTableColumnFlags_WidthFixed, 110);
    ImGui::TableSetupColumn("Voice", ImGuiTableColumnFlags_WidthFixed, 110);
    ImGui::TableSetupColumn("State", ImGuiTableColumnFlags_WidthFixed, 90);
    ImGui::TableSetupColumn("Length", ImGuiTableColumnFlags_WidthFixed, 70);
    ImGui::TableSetupColumn("Words", ImGuiTableColumnFlags_WidthStretch);
    ImGui::TableHeadersRow();
    ImGuiListClipper clipper;
    std::vector<const TimelineItem*> lines;
    for (const auto& i : rec.timeline)
      if (i.type == ItemType::line) lines.push_back(&i);
    clipper.Begin(static_cast<int>(lines.size()));
    while (clipper.Step()) {
      for (int row = clipper.DisplayStart; row < clipper.DisplayEnd; ++row) {
        const TimelineItem& i = *lines[static_cast<std::size_t>(row)];
        ImGui::TableNextRow();
        ImGui::TableNextColumn();
        ImGui::TextUnformatted(i.id.c_str());
        ImGui::TableNextColumn();
        ImGui::TextUnformatted(i.character.value_or(rec.voice.character.value_or("—")).c_str());
        ImGui::TableNextColumn();
        ImGui::TextUnformatted(i.voice.value_or(rec.voice.voice.value_or("—")).c_str());
        ImGui::TableNextColumn();
        const char* state = !i.audio ? "unrendered" : rec.isStale(i) ? "stale" : i.approved.value_or(false) ? "approved" : "rendered";
        ImGui::TextUnformatted(state);
        ImGui::TableNextColumn();
        ImGui::TextUnformatted(i.effectiveDuration() ? seconds(*i.effectiveDuration()).c_str() : "—");
        ImGui::TableNextColumn();
        if (auto t = field("script.line." + i.id, "Words of " + i.id, i.text.value_or(""), "Type to change the words; Enter or leaving the field keeps them."))
          act([&] { model_.editItem(i.id, "text", FieldValue(*t)); });
      }
    }
    ImGui::EndTable();
  }
  endPanel();
  // The blocking drawer: the stage script in the lexer's colours, and its diagnostics.
  beginPanel("blocking", "Blocking", 0, height - drawer, width, drawer, true);
  if (button("footer.blocking", model_.blockingDrawerOpen ? "Hide blocking" : "Blocking", "The stage script the camera rolls to."))
    model_.blockingDrawerOpen = !model_.blockingDrawerOpen;
  ImGui::SameLine();
  const auto& diagnostics = model_.blockingDiagnostics();
  const std::string says = std::to_string(model_.cues().size()) + " cues · " + std::to_string(diagnostics.size()) + " diagnostics";
  ImGui::TextUnformatted(says.c_str());
  note("footer.diagnostics", "readout", says, "What the stage script compiles to, and what it complains of.");
  if (model_.blockingDrawerOpen) {
    ImGui::SameLine();
    if (button("blocking.edit", editingBlocking_ ? "Keep" : "Edit", editingBlocking_ ? "Swap in the script as written." : "Edit the stage script.", !model_.isReadOnly())) {
      if (editingBlocking_) act([&] { model_.replaceBlocking(blockingText_); });
      else blockingText_ = model_.blocking();
      editingBlocking_ = !editingBlocking_;
    }
    const float listWidth = 360;
    ImGui::BeginChild("blocking.text", ImVec2(ImGui::GetContentRegionAvail().x - listWidth, 0));
    ImGui::PushFont(theme_.mono);
    if (editingBlocking_) {
      ImGui::InputTextMultiline("##blocking.editor", &blockingText_, ImVec2(-1, -1));
      note("blocking.editor", "field", "Stage script", "The whole script; Keep swaps it in.");
    } else {
      const std::string& source = model_.blocking();
      const ImVec2 start = ImGui::GetCursorScreenPos();
      ImDrawList* dl = ImGui::GetWindowDrawList();
      const float lh = ImGui::GetTextLineHeight();
      const float cw = ImGui::CalcTextSize("M").x;
      // Positions by line and column: the face is monospaced.
      std::vector<std::size_t> lineStarts{0};
      for (std::size_t k = 0; k < source.size(); ++k)
        if (source[k] == '\n') lineStarts.push_back(k + 1);
      auto colour = [&](BlockingLexer::Kind k) {
        switch (k) {
          case BlockingLexer::Kind::keyword: return Theme::packed(theme_.accent);
          case BlockingLexer::Kind::anchorWord: return Theme::packed(theme_.zooms);
          case BlockingLexer::Kind::lineRef: return Theme::packed(theme_.voice);
          case BlockingLexer::Kind::string: return Theme::packed(theme_.actions);
          case BlockingLexer::Kind::number: return Theme::packed(theme_.music);
          case BlockingLexer::Kind::comment: return Theme::packed(theme_.quiet);
          case BlockingLexer::Kind::unknown: return Theme::packed(theme_.failure);
          case BlockingLexer::Kind::plain: break;
        }
        return Theme::packed(theme_.text);
      };
      dl->AddText(start, Theme::packed(theme_.text), source.c_str());
      for (const auto& t : BlockingLexer::tokens(source)) {
        const auto line = static_cast<std::size_t>(std::upper_bound(lineStarts.begin(), lineStarts.end(), t.range.begin) - lineStarts.begin() - 1);
        const float tx = start.x + cw * float(t.range.begin - lineStarts[line]);
        const float ty = start.y + lh * float(line);
        dl->AddRectFilled(ImVec2(tx, ty), ImVec2(tx + cw * float(t.range.end - t.range.begin), ty + lh), Theme::packed(theme_.ground));
        dl->AddText(ImVec2(tx, ty), colour(t.kind), source.c_str() + t.range.begin, source.c_str() + t.range.end);
      }
      ImGui::Dummy(ImVec2(400, lh * float(lineStarts.size())));
      note("blocking.text", "text", "Stage script", "The stage script, coloured as the lexer reads it.");
    }
    ImGui::PopFont();
    ImGui::EndChild();
    ImGui::SameLine();
    ImGui::BeginChild("blocking.diagnostics", ImVec2(listWidth - 16, 0));
    for (const auto& d : diagnostics) {
      const bool warning = d.severity == BlockingDiagnostic::Severity::warning;
      ImGui::TextColored(warning ? ImVec4(0.95f, 0.6f, 0.3f, 1) : ImVec4(0.6f, 0.6f, 0.6f, 1), "%d: %s", d.line, d.message.c_str());
    }
    ImGui::EndChild();
  }
  endPanel();
}

// ---- Library page -----------------------------------------------------------------------------

void Surfaces::drawLibraryPage(double width, double height) {
  const double left = 280;
  beginPanel("library.projects", "Projects", 0, topBarHeight, left, height - topBarHeight, true);
  ImGui::PushFont(theme_.heading);
  ImGui::TextUnformatted("Projects");
  ImGui::PopFont();
  const auto& current = store_.currentProject();
  for (const Project& p : store_.projects()) {
    const bool on = current && current->dir == p.dir;
    if (ImGui::Selectable((p.name() + "##library.project." + p.name()).c_str(), on))
      act([&] { store_.openProject(p.name()); });
    note("library.project." + p.name(), "row", p.name(), "Open the project's recordings.");
  }
  endPanel();
  beginPanel("library.recordings", "Recordings", left, topBarHeight, width - left, height - topBarHeight, true);
  ImGui::PushFont(theme_.heading);
  ImGui::TextUnformatted(current ? current->name().c_str() : "No project open");
  ImGui::PopFont();
  if (current) {
    ImGui::SameLine(0, 24);
    if (button("library.project.duplicate", "Duplicate project", "Copy the whole project under a new name."))
      act([&] { store_.duplicateCurrentProject(); });
  }
  ImGui::Separator();
  for (const RecordingSummary& s : store_.summaries()) {
    ImGui::PushID(s.slug.c_str());
    ImGui::PushFont(theme_.heading);
    ImGui::TextUnformatted(s.title.c_str());
    ImGui::PopFont();
    ImGui::SameLine();
    ImGui::TextColored(ImGui::GetStyle().Colors[ImGuiCol_TextDisabled], "%s · %d lines · %d takes · %s", s.slug.c_str(),
                       s.lines, s.takes, seconds(s.length).c_str());
    const std::string base = "library.recording." + s.slug;
    if (button(base + ".open", "Open", "Open " + s.title + " in the editor.")) act([&] { store_.openRecording(s.slug); });
    ImGui::SameLine();
    if (button(base + ".duplicate", "Duplicate", "Copy it beside itself.")) act([&] { store_.duplicateRecording(s.slug); });
    ImGui::SameLine();
    if (button(base + ".trash", "Trash", "Move it to the project's trash; it can be restored.")) act([&] { store_.trashRecording(s.slug); });
    ImGui::Separator();
    ImGui::PopID();
  }
  if (!store_.trashed().empty()) {
    ImGui::Spacing();
    ImGui::TextColored(ImGui::GetStyle().Colors[ImGuiCol_TextDisabled], "Trash");
    for (const auto& t : store_.trashed()) {
      ImGui::PushID(t.entry.c_str());
      ImGui::TextUnformatted(t.title.c_str());
      ImGui::SameLine();
      if (button("library.trash." + t.entry + ".restore", "Restore", "Bring " + t.title + " back to the project."))
        act([&] { store_.restoreRecording(t.entry); });
      ImGui::PopID();
    }
  }
  endPanel();
}

// ---- Sheets, toasts, the palette lab -------------------------------------------------------

void Surfaces::drawSheets(double width, double height) {
  // One sheet stands over the page at a time, the one flow.end would close first; the
  // grants come before any of them, as at launch.
  if (service_ && service_->permissions().showing()) drawPermissionsSheet(width, height);
  else if (model_.castingCall()) drawCastingRoom(width, height);
  else if (store_.showingFetchSheet) drawFetchSheet(width, height);
  else if (store_.showingExportSheet) drawExportSheet(width, height);
  else if (store_.showingSlate) drawSlate(width, height);
  if (const RenderQueue* q = model_.rendersIfMade(); q && q->depth() > 0) drawRenderQueue(width, height);
}

void Surfaces::drawToasts(double width) {
  const auto& toasts = model_.toasts().toasts();
  if (toasts.empty()) return;
  const double w = 340;
  const double h = 20 + 52 * std::min<double>(5, double(toasts.size()));
  beginPanel("toasts", "Toasts", width - w - 12, topBarHeight + 8, w, h, false, true);
  int shown = 0;
  for (const Toast& t : toasts) {
    if (++shown > 5) break;
    ImGui::PushID(t.id.c_str());
    const bool failure = t.kind == Toast::Kind::failure;
    ImGui::PushStyleColor(ImGuiCol_Text, failure ? ImVec4(1, 0.55f, 0.5f, 1) : ImGui::GetStyle().Colors[ImGuiCol_Text]);
    ImGui::PushTextWrapPos(float(w - 56));
    ImGui::TextUnformatted(t.text.c_str());
    ImGui::PopTextWrapPos();
    ImGui::PopStyleColor();
    note("toast." + t.id, "toast", t.text, failure ? "Stands until dismissed." : "Leaves on its own.");
    ImGui::SameLine(float(w - 44));
    if (button("toast." + t.id + ".dismiss", "x", "Dismiss it.")) model_.toasts().dismiss(t.id);
    ImGui::PopID();
  }
  endPanel();
}

void Surfaces::drawPalette(double width, double height) {
  const double w = 300, h = 250;
  beginPanel("palette", "Palette Lab", width - w - 16, height - h - 16, w, h, false, true);
  ImGui::PushFont(theme_.heading);
  ImGui::TextUnformatted("Palette Lab");
  ImGui::PopFont();
  auto tune = [&](const char* id, const char* label, Theme::Colour& c) {
    ImGui::ColorEdit3((std::string(label) + "##" + id).c_str(), c.data(), ImGuiColorEditFlags_NoInputs);
    note(id, "colour", label, std::string("The ") + label + " lane's colour.");
  };
  tune("palette.screen", "Video", theme_.screen);
  tune("palette.zooms", "Zooms", theme_.zooms);
  tune("palette.actions", "Actions", theme_.actions);
  tune("palette.voice", "Audio", theme_.voice);
  tune("palette.music", "Music", theme_.music);
  tune("palette.labels", "Labels", theme_.labels);
  if (button("palette.close", "Close", "Close the Palette Lab.")) model_.paletteOpen = false;
  endPanel();
}

}  // namespace tavorin
