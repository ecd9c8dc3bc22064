// The look: what the picture sits on. Each change is one undo step with its feed
// line; a slider's run of moves merges into one.
#include <algorithm>
#include <cstdio>
#include <fstream>

#include "app/model/AppModel.hpp"
#include "kit/Looks.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

std::string fixed(const char* format, double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, v);
  return buffer;
}

// Only what the painter can read is taken: PNG and JPEG, judged by their first bytes.
bool isPicture(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  unsigned char head[8] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  if (in.gcount() < 3) return false;
  const bool png = in.gcount() == 8 && head[0] == 0x89 && head[1] == 'P' && head[2] == 'N' && head[3] == 'G';
  const bool jpeg = head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF;
  return png || jpeg;
}

}  // namespace

void AppModel::commitLook(Look look, const std::string& step, const std::string& event, bool merging) {
  Recording next = *stored_;
  next.look = look.isEmpty() ? std::nullopt : std::optional(look);
  if (next == *stored_) return;
  remember(step, merging);
  setRecording(std::move(next));
  scheduleDraft();
  note(event);
}

void AppModel::toggleLook(std::optional<bool> on) {
  requireEditable();
  const bool turnOn = on.value_or(!Looks::isOn(stored_->look));
  Look look = stored_->look.value_or(Look{});
  if (turnOn && !stored_->look) look = Looks::fresh();
  look.on = turnOn;
  commitLook(look, "the look",
             turnOn ? "the picture sits on " + Looks::groundSays(look) : "the picture fills the frame again");
}

void AppModel::setLookPadding(double padding) {
  requireEditable();
  Look look = stored_->look.value_or(Looks::fresh());
  look.padding = std::clamp(padding, Looks::minPadding, Looks::maxPadding);
  commitLook(look, "the padding", "padding " + fixed("%.0f%%", *look.padding * 100), true);
}

void AppModel::setLookRadius(double radius) {
  requireEditable();
  Look look = stored_->look.value_or(Looks::fresh());
  look.radius = std::clamp(radius, Looks::minRadius, Looks::maxRadius);
  commitLook(look, "the corner", "corner " + fixed("%.1f%%", *look.radius * 100), true);
}

void AppModel::setLookShadow(bool shadow) {
  requireEditable();
  Look look = stored_->look.value_or(Looks::fresh());
  look.shadow = shadow;
  commitLook(look, "the shadow", shadow ? "shadow on" : "shadow off");
}

void AppModel::setLookPreset(const std::string& id) {
  requireEditable();
  const auto& all = Looks::presets();
  if (std::none_of(all.begin(), all.end(), [&](const Looks::Preset& p) { return p.id == id; })) {
    std::string ids;
    for (const auto& p : all) ids += (ids.empty() ? "" : ", ") + p.id;
    throw Failure::badChoice(id, "look preset", ids);
  }
  Look look = stored_->look.value_or(Looks::fresh());
  // A preset is a choice of ground: it clears the colour and image that would win over it.
  look.background = Look::Background{id, std::nullopt, std::nullopt};
  commitLook(look, "the background", "background " + Looks::groundSays(look));
}

void AppModel::setLookColor(const std::string& color) {
  requireEditable();
  if (!Looks::isColor(color))
    throw Failure::cannotUse("'" + color + "' is not a colour. Write it as #RRGGBB, for example #101216.");
  const auto rgb = *Looks::rgb(color);
  Look look = stored_->look.value_or(Looks::fresh());
  Look::Background ground = look.background.value_or(Look::Background{});
  ground.color = Looks::hex(rgb.r, rgb.g, rgb.b);
  ground.image.reset();
  look.background = ground;
  commitLook(look, "the background", "background " + Looks::groundSays(look));
}

void AppModel::setLookImage(const fs::path& from) {
  requireEditable();
  std::error_code ec;
  if (!fs::is_regular_file(from, ec)) throw Failure::cannotUse("There is no image at " + from.string() + ".");
  if (!isPicture(from))
    throw Failure::cannotUse(from.filename().string() + " is not a PNG or JPEG image, so it can't sit behind the picture.");
  const fs::path folder = *baseDir_ / "look";
  fs::create_directories(folder, ec);
  if (ec) throw Failure::cannotUse("couldn't make the look folder: " + ec.message());
  // The copy keeps its own name unless another image holds it already.
  const std::string stem = from.stem().string();
  const std::string ext = from.extension().string();
  fs::path target = folder / from.filename();
  for (int n = 2; fs::exists(target, ec); ++n) {
    if (fs::equivalent(target, from, ec)) break;
    target = folder / (stem + " " + std::to_string(n) + ext);
  }
  if (!fs::equivalent(target, from, ec)) {
    fs::copy_file(from, target, ec);
    if (ec) throw Failure::cannotUse("couldn't copy " + from.filename().string() + " into the look: " + ec.message());
  }
  Look look = stored_->look.value_or(Looks::fresh());
  Look::Background ground = look.background.value_or(Look::Background{});
  ground.image = "look/" + target.filename().string();
  look.background = ground;
  commitLook(look, "the background", "background " + Looks::groundSays(look));
}

}  // namespace tavorin
