#include "kit/Clipboard.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "kit/RecordingJSON.hpp"
#include "kit/Zooms.hpp"

namespace tavorin::Clipboard {

namespace {

using nlohmann::json;

std::optional<std::vector<TimelineItem>> itemsIn(const json& value) {
  if (!value.is_array()) return std::nullopt;
  try {
    return value.get<std::vector<TimelineItem>>();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<Cargo> cargoIn(const json& value) {
  if (!value.is_object() || !value.contains("items")) return std::nullopt;
  auto items = itemsIn(value.at("items"));
  if (!items) return std::nullopt;
  Cargo cargo{std::move(*items), {}};
  if (auto zooms = value.find("zooms"); zooms != value.end() && !zooms->is_null()) {
    if (!zooms->is_array()) return std::nullopt;
    try {
      cargo.zooms = zooms->get<std::vector<Zoom>>();
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }
  return cargo;
}

std::optional<TimelineItem> itemIn(const json& value) {
  if (!value.is_object()) return std::nullopt;
  try {
    return value.get<TimelineItem>();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// Text that is not valid UTF-8 must not stop a copy; it is replaced rather than refused.
std::string pretty(const json& value) { return value.dump(2, ' ', false, json::error_handler_t::replace); }

}  // namespace

std::string encode(const std::vector<TimelineItem>& items) { return pretty(json(items)); }

std::string encode(const Cargo& cargo) {
  if (cargo.zooms.empty()) return encode(cargo.items);
  return pretty(json{{"items", cargo.items}, {"zooms", cargo.zooms}});
}

std::optional<Cargo> cargo(std::string_view text) {
  const json value = json::parse(text, nullptr, false);
  if (value.is_discarded()) return std::nullopt;
  if (auto found = cargoIn(value)) return found;
  if (auto items = itemsIn(value)) return Cargo{std::move(*items), {}};
  if (auto item = itemIn(value)) return Cargo{{std::move(*item)}, {}};
  return std::nullopt;
}

std::optional<std::vector<TimelineItem>> decode(std::string_view text) {
  auto found = cargo(text);
  if (!found) return std::nullopt;
  return std::move(found->items);
}

std::string freeId(std::string_view like, const std::set<std::string>& taken) {
  std::string id(like);
  if (!taken.contains(id)) return id;
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    std::string candidate = id + letter;
    if (!taken.contains(candidate)) return candidate;
  }
  for (int n = 2;; ++n) {
    std::string candidate = id + "-" + std::to_string(n);
    if (!taken.contains(candidate)) return candidate;
  }
}

std::vector<TimelineItem> rehome(std::vector<TimelineItem> items, const Recording& into, double at) {
  double origin = 0;
  bool anyStart = false;
  for (const auto& item : items) {
    if (!item.start) continue;
    origin = anyStart ? std::min(origin, *item.start) : *item.start;
    anyStart = true;
  }

  std::set<std::string> taken;
  for (const auto& item : into.timeline) taken.insert(item.id);

  std::ranges::stable_sort(items, {}, [](const TimelineItem& item) { return item.start.value_or(0); });
  for (auto& item : items) {
    item.start = std::max(0.0, at + item.start.value_or(0) - origin);
    item.id = freeId(item.id, taken);
    taken.insert(item.id);
    if (item.type == ItemType::line) {
      item.audio.reset();
      item.renderedFrom.reset();
      item.approved = false;
    }
  }
  return items;
}

std::vector<Zoom> rehome(std::vector<Zoom> zooms, const Recording& into, double at) {
  if (zooms.empty()) return {};
  const double origin = std::ranges::min(zooms, {}, &Zoom::from).from;
  std::ranges::stable_sort(zooms, {}, &Zoom::from);

  // Each landed zoom joins a working copy, so the next one keeps clear of it and
  // takes a different id.
  Recording working = into;
  if (!working.zooms) working.zooms.emplace();
  std::vector<Zoom> landed;
  for (auto zoom : zooms) {
    const double from = std::max(0.0, at + zoom.from - origin);
    const double length = zoom.to - zoom.from;
    zoom.id = Zooms::nextId(working);
    auto span = Zooms::room(working, zoom.id, from, from + length);
    if (!span) continue;
    zoom.from = span->from;
    zoom.to = span->to;
    working.zooms->push_back(zoom);
    landed.push_back(std::move(zoom));
  }
  return landed;
}

}  // namespace tavorin::Clipboard
