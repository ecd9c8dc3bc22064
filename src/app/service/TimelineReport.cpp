#include "app/service/TimelineReport.hpp"

#include <unordered_map>

namespace tavorin {

JSONValue TimelineReport::items(const TimelineGeometry& geometry, const Recording& recording) {
  // One pass to index what the blocks stand for, so that a long production stays linear.
  std::unordered_map<std::string_view, const TimelineItem*> byId;
  byId.reserve(recording.timeline.size());
  for (const auto& item : recording.timeline) byId.emplace(item.id, &item);
  std::unordered_map<std::string_view, const Segment*> segments;
  if (recording.segments)
    for (const auto& s : *recording.segments) segments.emplace(s.id, &s);
  std::unordered_map<std::string_view, const Zoom*> zooms;
  if (recording.zooms)
    for (const auto& z : *recording.zooms) zooms.emplace(z.id, &z);

  const auto text = [](const std::optional<std::string>& s) { return s ? JSONValue(*s) : JSONValue(); };
  JSONValue::Array out;
  out.reserve(geometry.placements().size());
  for (const auto& p : geometry.placements()) {
    // Built in key order and moved in: a long production's report is mostly this.
    JSONValue::Object o;
    o.emplace_hint(o.end(), "duration", JSONValue::seconds(p.duration));
    o.emplace_hint(o.end(), "id", p.id);
    o.emplace_hint(o.end(), "lane", TimelineGeometry::name(p.lane));
    o.emplace_hint(o.end(), "start", JSONValue::seconds(p.start));
    o.emplace_hint(o.end(), "type", p.type);
    o.emplace_hint(o.end(), "width", p.rect.width);
    o.emplace_hint(o.end(), "x", p.rect.x);
    if (p.type == "segment") {
      if (auto it = segments.find(p.id); it != segments.end()) {
        o.emplace("from", JSONValue::seconds(it->second->from));
        o.emplace("to", JSONValue::seconds(it->second->to));
        o.emplace("rate", it->second->rate.value_or(1));
      }
    } else if (p.type == "zoom") {
      if (auto it = zooms.find(p.id); it != zooms.end()) o.emplace("scale", it->second->scale);
    } else if (auto it = byId.find(p.id); it != byId.end()) {
      const TimelineItem& item = *it->second;
      if (p.type == "line") {
        o.emplace("text", text(item.text));
        o.emplace("rendered", item.audio.has_value());
      } else if (p.type == "music") {
        o.emplace("music", text(item.file));
      } else if (p.type == "label") {
        o.emplace("label", text(item.text));
      } else if (p.type == "action") {
        o.emplace("code", text(item.code));
      }
    }
    out.emplace_back(std::move(o));
  }
  return JSONValue(std::move(out));
}

}  // namespace tavorin
