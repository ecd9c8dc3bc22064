// edit: selection, clipboard, history, labels, the panel and single fields.
#include <algorithm>

#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"

namespace tavorin {

namespace {

// Reads a field's value from the wire as the kind the model takes for that field.
FieldValue fieldValue(const std::string& field, const std::string& raw) {
  if (raw.empty()) return FieldValue();
  switch (AppModel::fieldKind(field)) {
    case FieldValue::Kind::number:
      if (auto v = OperatorArgs::parseNumber(raw)) return *v;
      throw AppModelFailure::badValue(field, raw);
    case FieldValue::Kind::truth:
      if (auto v = OperatorArgs::parseSwitch(raw)) return *v;
      throw AppModelFailure::badChoice(raw, "value for " + field, "1 or 0");
    case FieldValue::Kind::text: break;
  }
  return raw;
}

}  // namespace

namespace {

// What the inspector offers for an item: each field, its value in force, and where an
// inherited one comes from.
JSONValue inspectJSON(const Recording& rec, const TimelineItem& i) {
  auto field = [](JSONValue value, const char* from) {
    return JSONValue::object({{"value", std::move(value)}, {"from", from}});
  };
  JSONValue fields = JSONValue::object({});
  fields.set("start", field(Reports::seconds(i.start), "item"));
  fields.set("note", field(Reports::text(i.note), "item"));
  if (i.type == ItemType::line || i.type == ItemType::label) fields.set("text", field(Reports::text(i.text), "item"));
  if (i.type == ItemType::line) {
    fields.set("character", field(Reports::text(rec.resolvedCharacter(i)), i.character ? "item" : "production"));
    fields.set("voice", field(Reports::text(rec.resolvedVoice(i)), i.voice ? "item" : "production"));
    fields.set("rate", field(JSONValue(i.rate.value_or(1.0)), i.rate ? "item" : "default"));
    fields.set("hold", field(Reports::seconds(i.hold), "item"));
    fields.set("approved", field(JSONValue(i.approved.value_or(false)), "item"));
    fields.set("audio", field(Reports::text(i.audio), "item"));
    fields.set("stale", field(Reports::text(rec.staleReason(i)), "computed"));
  }
  if (i.type == ItemType::audio) {
    fields.set("file", field(Reports::text(i.file), "item"));
    fields.set("gain", field(i.gain ? JSONValue(*i.gain) : JSONValue(), "item"));
    fields.set("trimIn", field(Reports::seconds(i.trimIn.value_or(0)), i.trimIn ? "item" : "default"));
    fields.set("trimOut", field(Reports::seconds(i.trimOut ? i.trimOut : i.duration), i.trimOut ? "item" : "default"));
  }
  if (i.anchor && i.anchor->to) fields.set("anchor", field(JSONValue(*i.anchor->to), "item"));
  return JSONValue::object({{"id", i.id}, {"type", name(i.type)}, {"fields", std::move(fields)}});
}

}  // namespace

void OperatorService::registerEdit() {
  onBranch(&OperatorService::editVerbs, {"copy", "cut", "paste", "delete", "undo", "redo", "history", "label.add",
                                         "label.rename", "label.edit", "panel", "select", "selection", "inspect",
                                         "hover", "item.move", "item.duplicate", "snap", "edit"});
}

OperatorService::Answer OperatorService::editVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  AppModel& m = model();
  auto selectionIds = [&] {
    JSONValue::Array ids;
    for (const auto& id : m.selection()) ids.emplace_back(id);
    return JSONValue(std::move(ids));
  };
  auto idArray = [](const std::vector<std::string>& ids) {
    JSONValue::Array out;
    for (const auto& id : ids) out.emplace_back(id);
    return JSONValue(std::move(out));
  };

  if (v == "copy") return OperatorResult::success(JSONValue::object({{"copied", static_cast<long long>(m.copySelection())}}));
  if (v == "cut") return OperatorResult::success(JSONValue::object({{"cut", static_cast<long long>(m.cutSelection())}}));
  if (v == "paste") {
    const auto ids = m.paste(a.number("at"), a.text("text"));
    return OperatorResult::success(JSONValue::object({{"pasted", idArray(ids)}}));
  }
  if (v == "delete") {
    std::vector<std::string> ids = a.idList("ids");
    if (ids.empty()) ids = m.selection();
    m.requireEditable();
    m.deleteItems(ids);
    return OperatorResult::success(
        JSONValue::object({{"deleted", idArray(ids)}, {"message", "deleted — `undo` puts it back"}}));
  }
  if (v == "undo" || v == "redo") {
    const auto ids = v == "undo" ? m.undo() : m.redo();
    return OperatorResult::success(JSONValue::object(
        {{"event", m.events().empty() ? JSONValue() : JSONValue(m.events().back())}, {"ids", idArray(ids)},
         {"undo", static_cast<long long>(m.history().past.size())},
         {"redo", static_cast<long long>(m.history().future.size())}}));
  }
  if (v == "history") {
    m.recording();
    JSONValue::Array past, future;
    for (auto it = m.history().past.rbegin(); it != m.history().past.rend(); ++it) past.emplace_back(it->what);
    for (auto it = m.history().future.rbegin(); it != m.history().future.rend(); ++it) future.emplace_back(it->what);
    return OperatorResult::success(
        JSONValue::object({{"undo", JSONValue(std::move(past))}, {"redo", JSONValue(std::move(future))}}));
  }
  if (v == "label.add") {
    const auto at = a.number("at");
    const std::string id = m.addLabel(*at, a.text("text"));
    return OperatorResult::success(Reports::item(m.recording(), *m.recording().item(id)));
  }
  if (v == "label.rename") {
    const auto id = a.text("id");
    const auto text = a.text("text");
    m.renameLabel(*id, *text);
    return OperatorResult::success(Reports::item(m.recording(), *m.recording().item(*id)));
  }
  if (v == "label.edit") {
    m.requireEditable();
    std::optional<std::string> id = a.text("id");
    if (!id)
      for (const auto& s : m.selection())
        if (const auto* item = m.recording().item(s); item && item->type == ItemType::label) id = s;
    if (!id) return OperatorResult::failure("label.edit needs id=<label>, or a label selected");
    m.editLabel(*id);
    return OperatorResult::success(JSONValue::object({{"editing", *id}}));
  }
  if (v == "panel") {
    if (auto tab = a.text("tab")) {
      if (tab->rfind("panel.tab.", 0) == 0) tab = tab->substr(10);
      m.showPanelTab(*tab);
    }
    if (auto group = a.text("group")) {
      if (group->rfind("panel.group.", 0) == 0) group = group->substr(12);
      m.setGroupCollapsed(*group, a.flag("collapsed"));
    }
    JSONValue::Array tabs, collapsed;
    for (const auto& t : AppModel::panelTabs()) tabs.emplace_back(t);
    for (const auto& g : m.collapsedGroups()) collapsed.emplace_back(g);
    return OperatorResult::success(JSONValue::object(
        {{"tabs", JSONValue(std::move(tabs))},
         {"tab", m.panelTab()},
         {"editor", m.selection().empty() ? JSONValue() : JSONValue(m.selection().front())},
         {"collapsed", JSONValue(std::move(collapsed))}}));
  }
  if (v == "select") {
    const Recording& rec = m.recording();
    if (a.flag("none").value_or(false)) m.clearSelection();
    else if (a.flag("all").value_or(false)) m.selectAll();
    else {
      const auto ids = a.idList("ids");
      if (ids.empty()) return OperatorResult::failure("select needs ids=<item id,item id>, all=1 or none=1");
      for (const auto& id : ids) {
        bool known = rec.item(id) != nullptr;
        if (!known && rec.zooms)
          known = std::any_of(rec.zooms->begin(), rec.zooms->end(), [&](const Zoom& z) { return z.id == id; });
        if (!known) {
          const auto placed = m.placedSegments();
          known = std::any_of(placed.begin(), placed.end(), [&](const Cut::Placed& p) { return p.segment.id == id; });
        }
        if (!known) throw AppModel::Failure::noSuchItem(id);
      }
      m.select(ids, a.flag("extend").value_or(false));
    }
    return OperatorResult::success(JSONValue::object({{"selection", selectionIds()}}));
  }
  if (v == "selection") {
    const Recording& rec = m.recording();
    JSONValue::Array items;
    for (const auto& id : m.selection()) {
      if (const TimelineItem* item = rec.item(id)) items.push_back(Reports::item(rec, *item));
      else if (rec.zooms)
        for (const auto& z : *rec.zooms)
          if (z.id == id)
            items.push_back(JSONValue::object({{"id", z.id},
                                               {"type", "zoom"},
                                               {"start", JSONValue::seconds(z.from)},
                                               {"length", JSONValue::seconds(z.to - z.from)}}));
    }
    return OperatorResult::success(JSONValue::object({{"selection", JSONValue(std::move(items))}}));
  }
  if (v == "inspect") {
    const Recording& rec = m.recording();
    std::optional<std::string> id = a.text("id");
    if (!id && !m.selection().empty()) id = m.selection().front();
    if (!id) return OperatorResult::failure("inspect needs id=<item id>, or an item selected");
    const TimelineItem* item = rec.item(*id);
    if (!item) throw AppModel::Failure::noSuchItem(*id);
    return OperatorResult::success(inspectJSON(rec, *item));
  }
  if (v == "hover") {
    const auto id = a.text("id");
    const Recording& rec = m.recording();
    const TimelineItem* item = rec.item(*id);
    if (!item) throw AppModel::Failure::noSuchItem(*id);
    m.hover(*id);
    JSONValue card = Reports::item(rec, *item);
    if (item->start) card.set("end", JSONValue::seconds(*item->start + item->effectiveDuration().value_or(0)));
    return OperatorResult::success(card);
  }
  if (v == "item.move") {
    const auto id = a.text("id");
    const auto to = a.number("to");
    const Retime::Snap landing = m.moveItem(*id, *to, a.lenient("snap"));
    return OperatorResult::success(JSONValue::object(
        {{"id", *id}, {"start", JSONValue::seconds(landing.start)}, {"snapped", Reports::seconds(landing.snapped)}}));
  }
  if (v == "item.duplicate") {
    const auto id = a.text("id");
    const std::string copy = m.duplicateItem(*id, a.number("at"));
    return OperatorResult::success(Reports::item(m.recording(), *m.recording().item(copy)));
  }
  if (v == "snap") {
    const auto id = a.text("id");
    const auto to = a.number("to");
    const Retime::Snap landing = m.snapPreview(*id, *to);
    return OperatorResult::success(JSONValue::object({{"id", *id},
                                                      {"start", JSONValue::seconds(landing.start)},
                                                      {"snapped", Reports::seconds(landing.snapped)},
                                                      {"window", m.snapWindow(std::nullopt)},
                                                      {"snapping", m.snapping}}));
  }
  if (v == "edit") {
    const auto id = a.text("id");
    const auto field = a.text("field");
    m.editItem(*id, *field, fieldValue(*field, a.text("value").value_or("")));
    if (*id == "production") return OperatorResult::success(productionReport());
    return OperatorResult::success(Reports::item(m.recording(), *m.recording().item(*id)));
  }
  return std::nullopt;
}

}  // namespace tavorin
