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
    JSONValue o = JSONValue::object({{"id", p.id},
                                     {"type", p.type},
                                     {"lane", TimelineGeometry::name(p.lane)},
                                     {"start", JSONValue::seconds(p.start)},
                                     {"duration", JSONValue::seconds(p.duration)},
                                     {"x", p.rect.x},
                                     {"y", p.rect.y},
                                     {"width", p.rect.width},
                                     {"height", p.rect.height}});
    if (p.type == "segment") {
      if (auto it = segments.find(p.id); it != segments.end()) {
        o.set("from", JSONValue::seconds(it->second->from));
        o.set("to", JSONValue::seconds(it->second->to));
        o.set("rate", it->second->rate.value_or(1));
      }
    } else if (p.type == "zoom") {
      if (auto it = zooms.find(p.id); it != zooms.end()) o.set("scale", it->second->scale);
    } else if (auto it = byId.find(p.id); it != byId.end()) {
      const TimelineItem& item = *it->second;
      if (p.type == "line") {
        o.set("text", text(item.text));
        o.set("rendered", item.audio.has_value());
      } else if (p.type == "music") {
        o.set("music", text(item.file));
      } else if (p.type == "label") {
        o.set("label", text(item.text));
      } else if (p.type == "action") {
        o.set("code", text(item.code));
      }
    }
    out.push_back(std::move(o));
  }
  return JSONValue(std::move(out));
}

}  // namespace tavorin
