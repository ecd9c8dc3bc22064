#pragma once
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kit/AgentPolicy.hpp"
#include "kit/ExportTarget.hpp"
#include "kit/Look.hpp"
#include "kit/Segment.hpp"
#include "kit/SubtitleStyle.hpp"
#include "kit/Zoom.hpp"

namespace tavorin {

// The format tags of a production document.
namespace Schema {
inline constexpr std::string_view current = "tavorin.recording.v1";
inline constexpr std::string_view legacy = "velmora.recording.v1";
bool accepted(std::string_view tag);
// The legacy tag becomes the current one; every other tag passes unchanged.
std::string normalize(std::string_view tag);
}  // namespace Schema

// A document (or one record of it) that is not valid JSON of this schema.
// `what()` is a sentence a user can read.
struct DocumentError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What asked for a production.
struct Origin {
  std::optional<std::string> prompt;
  std::optional<std::string> agent;
  std::optional<std::string> sessionId;
  std::optional<std::string> createdAt;
  bool operator==(const Origin&) const = default;
};

// The production's voice, the default of every line.
struct VoiceConfig {
  std::string driver = "kokoro";
  std::optional<std::string> character;
  std::optional<std::string> voice;
  std::optional<std::string> span;
  bool operator==(const VoiceConfig&) const = default;
};

// How a take is filmed.
struct CaptureConfig {
  std::optional<std::string> mode;
  std::optional<std::string> app;
  std::optional<int> fps;
  std::optional<bool> audio;
  bool isEmpty() const { return !mode && !app && !fps && !audio; }
  bool operator==(const CaptureConfig&) const = default;
};

enum class ItemType { line, action, label, audio };
std::string name(ItemType);
std::optional<ItemType> parseItemType(std::string_view);

// Ties an action or a label to an edge of a line.
struct Anchor {
  std::optional<std::string> to;
  std::optional<std::string> edge;
  std::optional<double> offset;
  std::optional<std::string> until;
  bool operator==(const Anchor&) const = default;
};

// One word of a render, seconds from the start of the line's audio.
struct WordTime {
  std::string w;
  double t = 0;
  bool operator==(const WordTime&) const = default;
};

// The receipt stored on a line when its audio lands; staleness is judged against it.
struct RenderedFrom {
  std::optional<std::string> text;
  std::optional<std::string> character;
  std::optional<std::string> voice;
  std::optional<std::string> used;
  std::optional<bool> imported;
  std::optional<std::string> from;
  std::optional<double> offset;
  std::optional<std::string> group;
  std::optional<std::string> split;
  std::optional<int> sample;
  std::optional<std::vector<WordTime>> words;

  double startsAt() const { return offset.value_or(0); }
  bool operator==(const RenderedFrom&) const = default;
};

// One item of the timeline: a line, an action, a label or a music bed.
struct TimelineItem {
  std::string id;
  ItemType type = ItemType::line;
  std::optional<double> start;
  std::optional<std::string> note;
  std::optional<std::string> text;
  std::optional<std::string> character;
  std::optional<std::string> voice;
  std::optional<std::string> audio;
  std::optional<double> duration;
  std::optional<double> rate;
  std::optional<bool> approved;
  std::optional<RenderedFrom> renderedFrom;
  std::optional<std::string> together;
  std::optional<double> hold;
  std::optional<Anchor> anchor;
  std::optional<std::string> code;
  std::optional<std::string> file;
  std::optional<double> trimIn;
  std::optional<double> trimOut;
  std::optional<double> gain;
  std::optional<std::string> source;

  TimelineItem() = default;
  TimelineItem(std::string id, ItemType type) : id(std::move(id)), type(type) {}

  // The length the item takes on the timeline; may be missing.
  std::optional<double> effectiveDuration() const;

  // One item as JSON text (compact), and back; used by the clipboard.
  std::string encoded() const;
  static TimelineItem decode(std::string_view json);

  bool operator==(const TimelineItem&) const = default;
};

// The document of one version of a production.
struct Recording {
  std::string schema{Schema::current};
  std::string id;
  std::string title;
  std::optional<std::string> description;
  std::optional<Origin> origin;
  VoiceConfig voice;
  std::optional<CaptureConfig> capture;
  std::optional<double> gap;
  std::optional<std::string> blocking;
  std::vector<TimelineItem> timeline;
  std::optional<std::vector<Segment>> segments;
  std::optional<std::vector<Zoom>> zooms;
  std::optional<SubtitleStyle> subtitles;
  std::optional<Look> look;
  std::optional<AgentPolicy> agent;
  std::optional<ExportTarget> exportTarget;  // the key `export`

  Recording() = default;
  Recording(std::string id, std::string title) : id(std::move(id)), title(std::move(title)) {}

  // Pretty-printed JSON with keys in byte order; missing values are left out.
  // Writes `schema` as held: the store forces the current tag on save.
  std::string encoded() const;
  // Throws DocumentError when a required key is missing or of the wrong type.
  // The tag is carried as written; stores normalise it after decoding.
  static Recording decode(std::string_view json);

  std::vector<const TimelineItem*> lines() const;
  std::vector<const TimelineItem*> staleLines() const;
  bool isStale(const TimelineItem& item) const { return staleReason(item).has_value(); }
  std::optional<std::string> resolvedCharacter(const TimelineItem& item) const;
  std::optional<std::string> resolvedVoice(const TimelineItem& item) const;
  std::optional<std::string> staleReason(const TimelineItem& item) const;

  const TimelineItem* item(std::string_view id) const;
  TimelineItem* item(std::string_view id);
  std::set<std::string> itemIds() const;

  bool operator==(const Recording&) const = default;
};

}  // namespace tavorin
