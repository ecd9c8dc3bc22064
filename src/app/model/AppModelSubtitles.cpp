// How the burned subtitles look. Each change is one undo step with its feed line; a
// face only previewed is drawn on the monitor and never written.
#include <algorithm>
#include <cstdio>

#include "app/model/AppModel.hpp"
#include "base/Text.hpp"
#include "platform/FontCatalog.hpp"

namespace tavorin {

namespace {

std::string fixed(const char* format, double a, double b = 0) {
  char buffer[96];
  std::snprintf(buffer, sizeof buffer, format, a, b);
  return buffer;
}

// A face the export can find: a house face (which ships with the studio) or one
// fontconfig knows. Refused by name otherwise, with where to look.
void checkFace(const std::string& family) {
  if (auto refusal = Subtitles::fontRefusal(family)) throw AppModelFailure::cannotUse(*refusal);
  if (Subtitles::isHouse(family) || FontCatalog::has(family)) return;
  throw AppModelFailure::cannotUse("There is no font family named '" + family +
                                   "' on this computer. Try: tavorinctl subtitles.fonts");
}

std::string placeEvent(const Subtitles::Style& style) {
  const auto a = Subtitles::anchor(style);
  return fixed("subtitles at %.0f%% × %.0f%%", a.x * 100, a.y * 100);
}

}  // namespace

void AppModel::commitSubtitles(SubtitleStyle style, const std::string& event, bool merging) {
  Recording next = *stored_;
  next.subtitles = style == SubtitleStyle{} ? std::nullopt : std::optional(style);
  if (next == *stored_) return;
  remember("the subtitles", merging);
  setRecording(std::move(next));
  scheduleDraft();
  note(event);
}

void AppModel::toggleSubtitles(std::optional<bool> burn) {
  requireEditable();
  SubtitleStyle style = stored_->subtitles.value_or(SubtitleStyle{});
  const bool on = burn.value_or(!Subtitles::burns(stored_->subtitles));
  style.burn = on;
  commitSubtitles(style, on ? "subtitles burn into the picture" : "subtitles stay off the picture");
}

void AppModel::setSubtitleFont(const std::string& family) {
  requireEditable();
  const std::string name(Text::trimSpace(family));
  SubtitleStyle style = stored_->subtitles.value_or(SubtitleStyle{});
  if (name.empty()) {
    style.font.reset();
  } else {
    checkFace(name);
    style.font = name;
  }
  previewFont_.reset();
  commitSubtitles(style, "subtitle font " + Subtitles::font(style));
}

void AppModel::previewSubtitleFont(const std::string& family) {
  if (!isOpen()) throw Failure::noProduction();
  const std::string name(Text::trimSpace(family));
  if (name.empty()) {
    previewFont_.reset();
    return;
  }
  checkFace(name);
  previewFont_ = name;
}

void AppModel::setSubtitleSize(double percent) {
  requireEditable();
  SubtitleStyle style = stored_->subtitles.value_or(SubtitleStyle{});
  style.size = Subtitles::clampSize(percent);
  commitSubtitles(style, fixed("subtitle size %.1f%%", *style.size), true);
}

void AppModel::setSubtitleAnchor(double x, double y) {
  requireEditable();
  SubtitleStyle style = stored_->subtitles.value_or(SubtitleStyle{});
  style.anchor = SubtitleStyle::Anchor(std::clamp(x, 0.0, 1.0), std::clamp(y, 0.0, 1.0));
  // A free place is no longer one of the named ones.
  style.position.reset();
  commitSubtitles(style, placeEvent(style), true);
}

void AppModel::setSubtitlePosition(Subtitles::Position position) {
  requireEditable();
  SubtitleStyle style = stored_->subtitles.value_or(SubtitleStyle{});
  style.position = Subtitles::name(position);
  style.anchor = Subtitles::preset(position, Subtitles::margin(style), Subtitles::size(style));
  commitSubtitles(style, placeEvent(style));
}

}  // namespace tavorin
