#pragma once
// JSON coding of the production document and every record it embeds.
// Kit-internal: include it only from kit .cpp files, never from a header.
//
// Decoding is strict: a required key that is missing or of the wrong JSON type
// throws DocumentError naming the key and the record; an optional key that is
// absent or null decodes as missing; unknown keys are ignored. Encoding never
// writes a missing value. Integer fields (`fps`, `sample`, `height`) accept a
// number only when it is whole; every other number is a double; a boolean is
// never taken for a number.
//
//   nlohmann::json j = item;                    // encode any record
//   auto item = j.get<TimelineItem>();          // decode, throws DocumentError
//   auto zooms = RecordingJSON::list<Zoom>(j, "the clipboard");
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

namespace RecordingJSON {

using Json = nlohmann::json;

// "a string", "an object", "null", ... as a sentence names a JSON value's type.
std::string describe(const Json& value);

// Parses JSON text; text that is no JSON throws DocumentError.
Json parse(std::string_view text);

// Reads the keys of one JSON object that encodes a record. `record` names the record
// in error sentences ("a timeline item", "the production"); rename() sharpens it once
// an id is known.
class Reader {
 public:
  Reader(const Json& object, std::string record);

  void rename(std::string record) { record_ = std::move(record); }
  const std::string& record() const { return record_; }

  bool has(std::string_view key) const;  // present and not null

  std::string string(std::string_view key) const;
  std::optional<std::string> optString(std::string_view key) const;
  double number(std::string_view key) const;
  std::optional<double> optNumber(std::string_view key) const;
  int integer(std::string_view key) const;
  std::optional<int> optInteger(std::string_view key) const;
  bool boolean(std::string_view key) const;
  std::optional<bool> optBoolean(std::string_view key) const;

  // An embedded record or a list of them, decoded through from_json.
  template <class T>
  T record(std::string_view key) const {
    return required(key).template get<T>();
  }
  template <class T>
  std::optional<T> optRecord(std::string_view key) const {
    const Json* v = find(key);
    if (!v) return std::nullopt;
    // The same as get<T>(); clang 14 wrongly takes a nested struct with member
    // initialisers (Zoom::Anchor) for one it cannot default-construct there.
    if constexpr (std::is_aggregate_v<T>) {
      T value{};
      v->get_to(value);
      return value;
    } else {
      return v->template get<T>();
    }
  }
  template <class T>
  std::vector<T> list(std::string_view key) const {
    return decodeList<T>(required(key), key);
  }
  template <class T>
  std::optional<std::vector<T>> optList(std::string_view key) const {
    const Json* v = find(key);
    if (!v) return std::nullopt;
    return decodeList<T>(*v, key);
  }

  // An enumeration stored as its case name; `parse` answers nothing for a name
  // outside it, and `choices` lists the names for the error sentence.
  template <class Parse>
  auto choice(std::string_view key, Parse parse, std::string_view choices) const {
    auto value = parse(string(key));
    if (!value) wrongType(key, "one of " + std::string(choices));
    return *value;
  }
  template <class Parse>
  auto optChoice(std::string_view key, Parse parse, std::string_view choices) const
      -> std::optional<std::decay_t<decltype(*parse(std::string()))>> {
    if (!has(key)) return std::nullopt;
    return choice(key, parse, choices);
  }

  // Throws the sentence for `key` holding something other than `expected`.
  [[noreturn]] void wrongType(std::string_view key, std::string_view expected) const;

 private:
  const Json* find(std::string_view key) const;  // null when absent or null
  const Json& required(std::string_view key) const;

  template <class T>
  std::vector<T> decodeList(const Json& v, std::string_view key) const {
    if (!v.is_array()) wrongType(key, "a list");
    std::vector<T> out;
    out.reserve(v.size());
    for (const auto& element : v) out.push_back(element.template get<T>());
    return out;
  }

  const Json& object_;
  std::string record_;
};

// A JSON array of records, decoded strictly; anything else throws DocumentError
// with `what` ("the clipboard") named as the holder.
template <class T>
std::vector<T> list(const Json& array, std::string_view what) {
  if (!array.is_array())
    throw DocumentError(std::string("The contents of ") + std::string(what) + " must be a list, not " +
                        describe(array) + ".");
  std::vector<T> out;
  out.reserve(array.size());
  for (const auto& element : array) out.push_back(element.template get<T>());
  return out;
}

// Writes `value` under `key` when it is there; a missing value is left out.
template <class T>
void put(Json& object, const char* key, const std::optional<T>& value) {
  if (value) object[key] = *value;
}

}  // namespace RecordingJSON

void to_json(nlohmann::json& j, const Origin& v);
void from_json(const nlohmann::json& j, Origin& v);
void to_json(nlohmann::json& j, const VoiceConfig& v);
void from_json(const nlohmann::json& j, VoiceConfig& v);
void to_json(nlohmann::json& j, const CaptureConfig& v);
void from_json(const nlohmann::json& j, CaptureConfig& v);
void to_json(nlohmann::json& j, const ItemType& v);
void from_json(const nlohmann::json& j, ItemType& v);
void to_json(nlohmann::json& j, const Anchor& v);
void from_json(const nlohmann::json& j, Anchor& v);
void to_json(nlohmann::json& j, const WordTime& v);
void from_json(const nlohmann::json& j, WordTime& v);
void to_json(nlohmann::json& j, const RenderedFrom& v);
void from_json(const nlohmann::json& j, RenderedFrom& v);
void to_json(nlohmann::json& j, const TimelineItem& v);
void from_json(const nlohmann::json& j, TimelineItem& v);
void to_json(nlohmann::json& j, const Recording& v);
void from_json(const nlohmann::json& j, Recording& v);

void to_json(nlohmann::json& j, const Segment& v);
void from_json(const nlohmann::json& j, Segment& v);
void to_json(nlohmann::json& j, const Zoom::Anchor& v);
void from_json(const nlohmann::json& j, Zoom::Anchor& v);
void to_json(nlohmann::json& j, const Zoom& v);
void from_json(const nlohmann::json& j, Zoom& v);
void to_json(nlohmann::json& j, const SubtitleStyle::Anchor& v);
void from_json(const nlohmann::json& j, SubtitleStyle::Anchor& v);
void to_json(nlohmann::json& j, const SubtitleStyle::Highlight& v);
void from_json(const nlohmann::json& j, SubtitleStyle::Highlight& v);
void to_json(nlohmann::json& j, const SubtitleStyle& v);
void from_json(const nlohmann::json& j, SubtitleStyle& v);
void to_json(nlohmann::json& j, const Look::Background& v);
void from_json(const nlohmann::json& j, Look::Background& v);
void to_json(nlohmann::json& j, const Look& v);
void from_json(const nlohmann::json& j, Look& v);
void to_json(nlohmann::json& j, const AgentPolicy& v);
void from_json(const nlohmann::json& j, AgentPolicy& v);
void to_json(nlohmann::json& j, const ExportFormat& v);
void from_json(const nlohmann::json& j, ExportFormat& v);
void to_json(nlohmann::json& j, const ExportQuality& v);
void from_json(const nlohmann::json& j, ExportQuality& v);
void to_json(nlohmann::json& j, const ExportDestination& v);
void from_json(const nlohmann::json& j, ExportDestination& v);
void to_json(nlohmann::json& j, const ExportTarget& v);
void from_json(const nlohmann::json& j, ExportTarget& v);

}  // namespace tavorin
