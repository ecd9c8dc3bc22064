#include "kit/Variant.hpp"

#include <cmath>

namespace tavorin {

Variant Variant::speaking(const TimelineItem& item, std::string file, Clock::time_point made) {
  Variant v;
  v.file = std::move(file);
  v.made = made;
  const auto& r = item.renderedFrom;
  v.text = r && r->text ? *r->text : item.text.value_or("");
  v.character = r && r->character ? r->character : item.character;
  v.voice = r && r->used ? r->used : r && r->voice ? r->voice : item.voice;
  v.seconds = item.duration.value_or(0);
  if (r) {
    v.offset = r->offset;
    v.group = r->group;
    v.split = r->split;
    v.imported = r->imported;
    v.from = r->from;
  }
  return v;
}

bool Variant::isOld(const TimelineItem& item) const { return text != item.text.value_or(""); }

bool Variant::isLive(const TimelineItem& item) const {
  if (item.audio != file) return false;
  double startsAt = item.renderedFrom ? item.renderedFrom->startsAt() : 0;
  return std::fabs(offset.value_or(0) - startsAt) <= 0.001;
}

RenderedFrom Variant::receipt(const std::optional<std::string>& pinned) const {
  RenderedFrom r;
  r.text = text;
  r.character = character;
  r.voice = pinned;
  if (!imported.value_or(false)) r.used = voice;
  r.imported = imported;
  r.from = from;
  r.offset = offset;
  r.group = group;
  r.split = split;
  r.sample = number;
  return r;
}

}  // namespace tavorin
