#include "kit/Recording.hpp"

#include <cctype>
#include <cmath>
#include <limits>

#include "kit/Music.hpp"
#include "kit/RecordingJSON.hpp"
#include "kit/VoiceGroups.hpp"

namespace tavorin {

using Json = nlohmann::json;
using RecordingJSON::put;
using RecordingJSON::Reader;

// ---------------------------------------------------------------------------
// Tags

namespace Schema {

bool accepted(std::string_view tag) { return tag == current || tag == legacy; }

std::string normalize(std::string_view tag) { return std::string(tag == legacy ? current : tag); }

}  // namespace Schema

std::string name(ItemType type) {
  switch (type) {
    case ItemType::line: return "line";
    case ItemType::action: return "action";
    case ItemType::label: return "label";
    case ItemType::audio: return "audio";
  }
  return "line";
}

std::optional<ItemType> parseItemType(std::string_view text) {
  for (auto type : {ItemType::line, ItemType::action, ItemType::label, ItemType::audio})
    if (name(type) == text) return type;
  return std::nullopt;
}

// ---------------------------------------------------------------------------
// Strict reading

namespace RecordingJSON {

namespace {

std::string capitalised(std::string text) {
  if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

std::string quoted(std::string_view key) { return "\"" + std::string(key) + "\""; }

}  // namespace

std::string describe(const Json& value) {
  switch (value.type()) {
    case Json::value_t::null: return "null";
    case Json::value_t::object: return "an object";
    case Json::value_t::array: return "a list";
    case Json::value_t::string: return "the text " + value.dump(-1, ' ', false, Json::error_handler_t::replace);
    case Json::value_t::boolean: return value.get<bool>() ? "true" : "false";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float: return "the number " + value.dump();
    case Json::value_t::binary:
    case Json::value_t::discarded: break;
  }
  return "a value of no JSON type";
}

Json parse(std::string_view text) {
  try {
    return Json::parse(text.begin(), text.end());
  } catch (const Json::parse_error& e) {
    // nlohmann prefixes its messages with "[json.exception.parse_error.101] ".
    std::string why = e.what();
    if (auto close = why.find("] "); why.rfind("[json.exception", 0) == 0 && close != std::string::npos)
      why = why.substr(close + 2);
    throw DocumentError("The document is not valid JSON: " + why + ".");
  } catch (const Json::exception&) {
    // The only other failure of parsing: a number past the range of a double.
    throw DocumentError("The document is not valid JSON: it holds a number too large to read.");
  }
}

Reader::Reader(const Json& object, std::string record) : object_(object), record_(std::move(record)) {
  if (!object_.is_object())
    throw DocumentError(capitalised(record_) + " must be a JSON object, not " + describe(object_) + ".");
}

const Json* Reader::find(std::string_view key) const {
  auto it = object_.find(key);
  if (it == object_.end() || it->is_null()) return nullptr;
  return &*it;
}

bool Reader::has(std::string_view key) const { return find(key) != nullptr; }

const Json& Reader::required(std::string_view key) const {
  auto it = object_.find(key);
  if (it == object_.end())
    throw DocumentError(capitalised(record_) + " needs the key " + quoted(key) + ".");
  return *it;
}

void Reader::wrongType(std::string_view key, std::string_view expected) const {
  auto it = object_.find(key);
  std::string found = it == object_.end() ? "nothing" : describe(*it);
  throw DocumentError("The key " + quoted(key) + " of " + record_ + " must be " + std::string(expected) + ", not " +
                      found + ".");
}

namespace {

std::string asString(const Reader& r, std::string_view key, const Json& v) {
  if (!v.is_string()) r.wrongType(key, "text");
  return v.get<std::string>();
}

double asNumber(const Reader& r, std::string_view key, const Json& v) {
  if (!v.is_number()) r.wrongType(key, "a number");
  return v.get<double>();
}

int asInteger(const Reader& r, std::string_view key, const Json& v) {
  constexpr auto lo = static_cast<double>(std::numeric_limits<int>::min());
  constexpr auto hi = static_cast<double>(std::numeric_limits<int>::max());
  if (v.is_number_integer() && !v.is_number_unsigned()) {
    auto n = v.get<std::int64_t>();
    if (n >= lo && n <= hi) return static_cast<int>(n);
  } else if (v.is_number_unsigned()) {
    auto n = v.get<std::uint64_t>();
    if (n <= static_cast<std::uint64_t>(hi)) return static_cast<int>(n);
  } else if (v.is_number_float()) {
    double d = v.get<double>();
    if (std::isfinite(d) && d == std::floor(d) && d >= lo && d <= hi) return static_cast<int>(d);
  }
  r.wrongType(key, "a whole number");
}

bool asBoolean(const Reader& r, std::string_view key, const Json& v) {
  if (!v.is_boolean()) r.wrongType(key, "true or false");
  return v.get<bool>();
}

}  // namespace

std::string Reader::string(std::string_view key) const { return asString(*this, key, required(key)); }
std::optional<std::string> Reader::optString(std::string_view key) const {
  const Json* v = find(key);
  return v ? std::optional(asString(*this, key, *v)) : std::nullopt;
}
double Reader::number(std::string_view key) const { return asNumber(*this, key, required(key)); }
std::optional<double> Reader::optNumber(std::string_view key) const {
  const Json* v = find(key);
  return v ? std::optional(asNumber(*this, key, *v)) : std::nullopt;
}
int Reader::integer(std::string_view key) const { return asInteger(*this, key, required(key)); }
std::optional<int> Reader::optInteger(std::string_view key) const {
  const Json* v = find(key);
  return v ? std::optional(asInteger(*this, key, *v)) : std::nullopt;
}
bool Reader::boolean(std::string_view key) const { return asBoolean(*this, key, required(key)); }
std::optional<bool> Reader::optBoolean(std::string_view key) const {
  const Json* v = find(key);
  return v ? std::optional(asBoolean(*this, key, *v)) : std::nullopt;
}

}  // namespace RecordingJSON

namespace {

// Enumerations travel as their case names; a name outside the enumeration fails
// the document, as a wrong type would.
constexpr std::string_view itemTypes = "\"line\", \"action\", \"label\" or \"audio\"";
constexpr std::string_view exportFormats = "\"mp4\" or \"gif\"";
constexpr std::string_view exportQualities = "\"studio\", \"balanced\", \"web\" or \"small\"";
constexpr std::string_view exportDestinations = "\"file\", \"clipboard\" or \"youtube\"";

template <class E, class Parse>
E decodeCase(const Json& j, std::string_view what, std::string_view choices, Parse parse) {
  if (j.is_string())
    if (auto value = parse(j.get<std::string>())) return *value;
  throw DocumentError(std::string(what) + " must be one of " + std::string(choices) + ", not " +
                      RecordingJSON::describe(j) + ".");
}

std::optional<ItemType> parseType(const std::string& s) { return parseItemType(s); }

}  // namespace

// ---------------------------------------------------------------------------
// The records of the document

void to_json(Json& j, const Origin& v) {
  j = Json::object();
  put(j, "prompt", v.prompt);
  put(j, "agent", v.agent);
  put(j, "sessionId", v.sessionId);
  put(j, "createdAt", v.createdAt);
}

void from_json(const Json& j, Origin& v) {
  Reader r(j, "the origin");
  v.prompt = r.optString("prompt");
  v.agent = r.optString("agent");
  v.sessionId = r.optString("sessionId");
  v.createdAt = r.optString("createdAt");
}

void to_json(Json& j, const VoiceConfig& v) {
  j = Json::object();
  j["driver"] = v.driver;
  put(j, "character", v.character);
  put(j, "voice", v.voice);
  put(j, "span", v.span);
}

void from_json(const Json& j, VoiceConfig& v) {
  Reader r(j, "the production's voice");
  v.driver = r.string("driver");
  v.character = r.optString("character");
  v.voice = r.optString("voice");
  v.span = r.optString("span");
}

void to_json(Json& j, const CaptureConfig& v) {
  j = Json::object();
  put(j, "mode", v.mode);
  put(j, "app", v.app);
  put(j, "fps", v.fps);
  put(j, "audio", v.audio);
}

void from_json(const Json& j, CaptureConfig& v) {
  Reader r(j, "the capture settings");
  v.mode = r.optString("mode");
  v.app = r.optString("app");
  v.fps = r.optInteger("fps");
  v.audio = r.optBoolean("audio");
}

void to_json(Json& j, const ItemType& v) { j = name(v); }

void from_json(const Json& j, ItemType& v) {
  v = decodeCase<ItemType>(j, "The type of a timeline item", itemTypes, parseType);
}

void to_json(Json& j, const Anchor& v) {
  j = Json::object();
  put(j, "to", v.to);
  put(j, "edge", v.edge);
  put(j, "offset", v.offset);
  put(j, "until", v.until);
}

void from_json(const Json& j, Anchor& v) {
  Reader r(j, "an item's anchor");
  v.to = r.optString("to");
  v.edge = r.optString("edge");
  v.offset = r.optNumber("offset");
  v.until = r.optString("until");
}

void to_json(Json& j, const WordTime& v) { j = Json{{"w", v.w}, {"t", v.t}}; }

void from_json(const Json& j, WordTime& v) {
  Reader r(j, "a word time");
  v.w = r.string("w");
  v.t = r.number("t");
}

void to_json(Json& j, const RenderedFrom& v) {
  j = Json::object();
  put(j, "text", v.text);
  put(j, "character", v.character);
  put(j, "voice", v.voice);
  put(j, "used", v.used);
  put(j, "imported", v.imported);
  put(j, "from", v.from);
  put(j, "offset", v.offset);
  put(j, "group", v.group);
  put(j, "split", v.split);
  put(j, "sample", v.sample);
  put(j, "words", v.words);
}

void from_json(const Json& j, RenderedFrom& v) {
  Reader r(j, "a render receipt");
  v.text = r.optString("text");
  v.character = r.optString("character");
  v.voice = r.optString("voice");
  v.used = r.optString("used");
  v.imported = r.optBoolean("imported");
  v.from = r.optString("from");
  v.offset = r.optNumber("offset");
  v.group = r.optString("group");
  v.split = r.optString("split");
  v.sample = r.optInteger("sample");
  v.words = r.optList<WordTime>("words");
}

void to_json(Json& j, const TimelineItem& v) {
  j = Json::object();
  j["id"] = v.id;
  j["type"] = v.type;
  put(j, "start", v.start);
  put(j, "note", v.note);
  put(j, "text", v.text);
  put(j, "character", v.character);
  put(j, "voice", v.voice);
  put(j, "audio", v.audio);
  put(j, "duration", v.duration);
  put(j, "rate", v.rate);
  put(j, "approved", v.approved);
  put(j, "renderedFrom", v.renderedFrom);
  put(j, "together", v.together);
  put(j, "hold", v.hold);
  put(j, "anchor", v.anchor);
  put(j, "code", v.code);
  put(j, "file", v.file);
  put(j, "trimIn", v.trimIn);
  put(j, "trimOut", v.trimOut);
  put(j, "gain", v.gain);
  put(j, "source", v.source);
}

void from_json(const Json& j, TimelineItem& v) {
  Reader r(j, "a timeline item");
  v.id = r.string("id");
  r.rename("the timeline item \"" + v.id + "\"");
  v.type = r.choice("type", parseType, itemTypes);
  v.start = r.optNumber("start");
  v.note = r.optString("note");
  v.text = r.optString("text");
  v.character = r.optString("character");
  v.voice = r.optString("voice");
  v.audio = r.optString("audio");
  v.duration = r.optNumber("duration");
  v.rate = r.optNumber("rate");
  v.approved = r.optBoolean("approved");
  v.renderedFrom = r.optRecord<RenderedFrom>("renderedFrom");
  v.together = r.optString("together");
  v.hold = r.optNumber("hold");
  v.anchor = r.optRecord<Anchor>("anchor");
  v.code = r.optString("code");
  v.file = r.optString("file");
  v.trimIn = r.optNumber("trimIn");
  v.trimOut = r.optNumber("trimOut");
  v.gain = r.optNumber("gain");
  v.source = r.optString("source");
}

void to_json(Json& j, const Recording& v) {
  j = Json::object();
  j["schema"] = v.schema;
  j["id"] = v.id;
  j["title"] = v.title;
  put(j, "description", v.description);
  put(j, "origin", v.origin);
  j["voice"] = v.voice;
  put(j, "capture", v.capture);
  put(j, "gap", v.gap);
  put(j, "blocking", v.blocking);
  j["timeline"] = v.timeline;
  put(j, "segments", v.segments);
  put(j, "zooms", v.zooms);
  put(j, "subtitles", v.subtitles);
  put(j, "look", v.look);
  put(j, "agent", v.agent);
  put(j, "export", v.exportTarget);
}

void from_json(const Json& j, Recording& v) {
  Reader r(j, "the production");
  v.schema = r.string("schema");
  v.id = r.string("id");
  v.title = r.string("title");
  v.description = r.optString("description");
  v.origin = r.optRecord<Origin>("origin");
  v.voice = r.record<VoiceConfig>("voice");
  v.capture = r.optRecord<CaptureConfig>("capture");
  v.gap = r.optNumber("gap");
  v.blocking = r.optString("blocking");
  v.timeline = r.list<TimelineItem>("timeline");
  v.segments = r.optList<Segment>("segments");
  v.zooms = r.optList<Zoom>("zooms");
  v.subtitles = r.optRecord<SubtitleStyle>("subtitles");
  v.look = r.optRecord<Look>("look");
  v.agent = r.optRecord<AgentPolicy>("agent");
  v.exportTarget = r.optRecord<ExportTarget>("export");
}

// ---------------------------------------------------------------------------
// Records other parts of the document bring

void to_json(Json& j, const Segment& v) {
  j = Json{{"id", v.id}, {"from", v.from}, {"to", v.to}};
  put(j, "take", v.take);
  put(j, "rate", v.rate);
}

void from_json(const Json& j, Segment& v) {
  Reader r(j, "a segment of the cut");
  v.id = r.string("id");
  r.rename("the segment \"" + v.id + "\"");
  v.take = r.optString("take");
  v.from = r.number("from");
  v.to = r.number("to");
  v.rate = r.optNumber("rate");
}

void to_json(Json& j, const Zoom::Anchor& v) { j = Json{{"x", v.x}, {"y", v.y}}; }

void from_json(const Json& j, Zoom::Anchor& v) {
  Reader r(j, "a zoom's anchor");
  v.x = r.number("x");
  v.y = r.number("y");
}

void to_json(Json& j, const Zoom& v) {
  j = Json{{"id", v.id}, {"from", v.from}, {"to", v.to}, {"scale", v.scale}};
  put(j, "anchor", v.anchor);
  put(j, "style", v.style);
  put(j, "ramp", v.ramp);
}

void from_json(const Json& j, Zoom& v) {
  Reader r(j, "a zoom");
  v.id = r.string("id");
  r.rename("the zoom \"" + v.id + "\"");
  v.from = r.number("from");
  v.to = r.number("to");
  v.scale = r.number("scale");
  v.anchor = r.optRecord<Zoom::Anchor>("anchor");
  v.style = r.optString("style");
  v.ramp = r.optNumber("ramp");
}

void to_json(Json& j, const SubtitleStyle::Anchor& v) { j = Json{{"x", v.x}, {"y", v.y}}; }

void from_json(const Json& j, SubtitleStyle::Anchor& v) {
  Reader r(j, "the subtitles' anchor");
  v.x = r.number("x");
  v.y = r.number("y");
}

void to_json(Json& j, const SubtitleStyle::Highlight& v) {
  j = Json::object();
  put(j, "mode", v.mode);
  put(j, "color", v.color);
  put(j, "fill", v.fill);
  put(j, "lead", v.lead);
}

void from_json(const Json& j, SubtitleStyle::Highlight& v) {
  Reader r(j, "the subtitles' highlight");
  v.mode = r.optString("mode");
  v.color = r.optString("color");
  v.fill = r.optString("fill");
  v.lead = r.optNumber("lead");
}

void to_json(Json& j, const SubtitleStyle& v) {
  j = Json::object();
  put(j, "burn", v.burn);
  put(j, "font", v.font);
  put(j, "size", v.size);
  put(j, "anchor", v.anchor);
  put(j, "position", v.position);
  put(j, "margin", v.margin);
  put(j, "highlight", v.highlight);
}

void from_json(const Json& j, SubtitleStyle& v) {
  Reader r(j, "the subtitle style");
  v.burn = r.optBoolean("burn");
  v.font = r.optString("font");
  v.size = r.optNumber("size");
  v.anchor = r.optRecord<SubtitleStyle::Anchor>("anchor");
  v.position = r.optString("position");
  v.margin = r.optNumber("margin");
  v.highlight = r.optRecord<SubtitleStyle::Highlight>("highlight");
}

void to_json(Json& j, const Look::Background& v) {
  j = Json::object();
  put(j, "preset", v.preset);
  put(j, "color", v.color);
  put(j, "image", v.image);
}

void from_json(const Json& j, Look::Background& v) {
  Reader r(j, "the look's background");
  v.preset = r.optString("preset");
  v.color = r.optString("color");
  v.image = r.optString("image");
}

void to_json(Json& j, const Look& v) {
  j = Json::object();
  put(j, "on", v.on);
  put(j, "padding", v.padding);
  put(j, "radius", v.radius);
  put(j, "shadow", v.shadow);
  put(j, "background", v.background);
}

void from_json(const Json& j, Look& v) {
  Reader r(j, "the look");
  v.on = r.optBoolean("on");
  v.padding = r.optNumber("padding");
  v.radius = r.optNumber("radius");
  v.shadow = r.optBoolean("shadow");
  v.background = r.optRecord<Look::Background>("background");
}

void to_json(Json& j, const AgentPolicy& v) {
  j = Json::object();
  put(j, "rules", v.rules);
  put(j, "model", v.model);
  put(j, "fences", v.fences);
  put(j, "pace", v.pace);
}

void from_json(const Json& j, AgentPolicy& v) {
  Reader r(j, "the agent policy");
  v.rules = r.optString("rules");
  v.model = r.optString("model");
  if (auto fences = r.optList<Json>("fences")) {
    v.fences.emplace();
    for (const auto& fence : *fences) {
      if (!fence.is_string()) r.wrongType("fences", "a list of text");
      v.fences->push_back(fence.get<std::string>());
    }
  } else {
    v.fences.reset();
  }
  v.pace = r.optNumber("pace");
}

void to_json(Json& j, const ExportFormat& v) { j = name(v); }
void from_json(const Json& j, ExportFormat& v) {
  v = decodeCase<ExportFormat>(j, "The export format", exportFormats, parseExportFormat);
}

void to_json(Json& j, const ExportQuality& v) { j = name(v); }
void from_json(const Json& j, ExportQuality& v) {
  v = decodeCase<ExportQuality>(j, "The export quality", exportQualities, parseExportQuality);
}

void to_json(Json& j, const ExportDestination& v) { j = name(v); }
void from_json(const Json& j, ExportDestination& v) {
  v = decodeCase<ExportDestination>(j, "The export destination", exportDestinations, parseExportDestination);
}

void to_json(Json& j, const ExportTarget& v) {
  j = Json::object();
  put(j, "format", v.format);
  put(j, "height", v.height);
  put(j, "fps", v.fps);
  put(j, "quality", v.quality);
  put(j, "destination", v.destination);
}

void from_json(const Json& j, ExportTarget& v) {
  Reader r(j, "the export settings");
  v.format = r.optChoice("format", parseExportFormat, exportFormats);
  v.height = r.optInteger("height");
  v.fps = r.optInteger("fps");
  v.quality = r.optChoice("quality", parseExportQuality, exportQualities);
  v.destination = r.optChoice("destination", parseExportDestination, exportDestinations);
}

// ---------------------------------------------------------------------------
// Whole documents and single items as text

namespace {

// Strings made in the program may hold broken UTF-8; a save must not fail on them.
std::string dumped(const Json& j, int indent) { return j.dump(indent, ' ', false, Json::error_handler_t::replace); }

}  // namespace

std::string TimelineItem::encoded() const { return dumped(Json(*this), -1); }

TimelineItem TimelineItem::decode(std::string_view json) { return RecordingJSON::parse(json).get<TimelineItem>(); }

std::string Recording::encoded() const { return dumped(Json(*this), 2) + "\n"; }

Recording Recording::decode(std::string_view json) { return RecordingJSON::parse(json).get<Recording>(); }

// ---------------------------------------------------------------------------
// Computed properties

std::optional<double> TimelineItem::effectiveDuration() const {
  if (type == ItemType::audio) {
    if (!duration || !(*duration > 0)) return duration;
    auto [in, out] = Music::trim(trimIn.value_or(0), trimOut.value_or(*duration), *duration);
    return std::max(out - in, 0.0);
  }
  if (!duration) return hold;
  return *duration / (rate ? std::max(*rate, 0.01) : 1.0);
}

std::vector<const TimelineItem*> Recording::lines() const {
  std::vector<const TimelineItem*> out;
  for (const auto& item : timeline)
    if (item.type == ItemType::line) out.push_back(&item);
  return out;
}

std::vector<const TimelineItem*> Recording::staleLines() const {
  std::vector<const TimelineItem*> out;
  for (const auto* line : lines())
    if (isStale(*line)) out.push_back(line);
  return out;
}

std::optional<std::string> Recording::resolvedCharacter(const TimelineItem& item) const {
  return item.character ? item.character : voice.character;
}

std::optional<std::string> Recording::resolvedVoice(const TimelineItem& item) const {
  if (item.voice && !item.voice->empty()) return item.voice;
  if (resolvedCharacter(item) == voice.character) return voice.voice;
  // A foreign character speaks with its own default, chosen at render time.
  return std::nullopt;
}

std::optional<std::string> Recording::staleReason(const TimelineItem& item) const {
  if (!item.audio) return std::nullopt;
  if (!item.renderedFrom) return "nothing recorded how it was rendered";
  const RenderedFrom& receipt = *item.renderedFrom;
  if (item.text && receipt.text != item.text) return "its text changed";
  if (receipt.imported.value_or(false)) return std::nullopt;
  if (receipt.character != resolvedCharacter(item)) return "its character changed";
  if (auto resolved = resolvedVoice(item)) {
    const auto& spoke = receipt.used ? receipt.used : receipt.voice;
    if (spoke != resolved) return "its voice changed";
  }
  if (receipt.group && VoiceGroups::rehash(*this, *receipt.group) != *receipt.group)
    return "its generation group changed";
  return std::nullopt;
}

const TimelineItem* Recording::item(std::string_view id) const {
  for (const auto& candidate : timeline)
    if (candidate.id == id) return &candidate;
  return nullptr;
}

TimelineItem* Recording::item(std::string_view id) {
  return const_cast<TimelineItem*>(static_cast<const Recording&>(*this).item(id));
}

std::set<std::string> Recording::itemIds() const {
  std::set<std::string> ids;
  for (const auto& item : timeline) ids.insert(item.id);
  return ids;
}

}  // namespace tavorin
