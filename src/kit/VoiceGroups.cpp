#include "kit/VoiceGroups.hpp"

#include "kit/VoiceSpan.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include "base/Hex.hpp"

namespace tavorin {

namespace {

constexpr char fieldSeparator = '\x01';
constexpr char lineSeparator = '\x02';

std::string printedRate(const TimelineItem& item) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", item.rate.value_or(1.0));
  return buffer;
}

std::string effectiveCharacter(const Recording& recording, const TimelineItem& item) {
  return item.character ? *item.character : recording.voice.character.value_or("");
}

std::string md5Hex(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr);
  return hexDigits(digest, length);
}

VoiceGroups::Predicate landedAs(std::string_view group) {
  return [group](const TimelineItem& item) { return item.renderedFrom && item.renderedFrom->group == group; };
}

}  // namespace

std::vector<const TimelineItem*> VoiceGroups::ordered(const Recording& recording, const Predicate& where) {
  std::vector<const TimelineItem*> lines;
  for (const auto& item : recording.timeline)
    if (item.type == ItemType::line && (!where || where(item))) lines.push_back(&item);
  static constexpr double unplaced = std::numeric_limits<double>::max();
  std::stable_sort(lines.begin(), lines.end(), [](const TimelineItem* a, const TimelineItem* b) {
    return a->start.value_or(unplaced) < b->start.value_or(unplaced);
  });
  return lines;
}

std::string VoiceGroups::text(const std::vector<const TimelineItem*>& lines) {
  std::string out;
  bool first = true;
  for (const auto* line : lines) {
    if (!line->text) continue;
    if (!first) out += joiner;
    out += *line->text;
    first = false;
  }
  return out;
}

std::string VoiceGroups::castKey(const Recording& recording, const TimelineItem& item) {
  return effectiveCharacter(recording, item) + fieldSeparator + recording.resolvedVoice(item).value_or("") +
         fieldSeparator + printedRate(item);
}

namespace {

// The hash over lines whose cast keys are already known.
std::string hashOfKeys(const std::vector<const TimelineItem*>& lines, const std::vector<std::string>& castKeys) {
  std::string keys;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const TimelineItem& line = *lines[i];
    if (i > 0) keys += lineSeparator;
    keys += line.id;
    keys += fieldSeparator;
    if (line.text) keys += *line.text;
    keys += fieldSeparator;
    keys += castKeys[i];
  }
  return md5Hex(keys).substr(0, 10);
}

}  // namespace

std::string VoiceGroups::hash(const Recording& recording, const std::vector<const TimelineItem*>& lines) {
  std::vector<std::string> castKeys;
  castKeys.reserve(lines.size());
  for (const auto* line : lines) castKeys.push_back(castKey(recording, *line));
  return hashOfKeys(lines, castKeys);
}

std::string VoiceGroups::rehash(const Recording& recording, std::string_view group) {
  return hash(recording, ordered(recording, landedAs(group)));
}

std::vector<std::string> VoiceGroups::members(const Recording& recording, std::string_view group) {
  std::vector<std::string> ids;
  for (const auto* line : ordered(recording, landedAs(group))) ids.push_back(line->id);
  return ids;
}

}  // namespace tavorin

namespace tavorin {

namespace {

// A line that may share a generation: pinned, or packing is on; never an approved
// line (frozen) or one speaking a chosen sample (a take of its own).
bool packable(const TimelineItem& line, const VoiceSpan& span) {
  if (!line.together && !span.groups()) return false;
  if (line.approved.value_or(false)) return false;
  return !(line.renderedFrom && line.renderedFrom->sample);
}

std::optional<std::string> tagOf(const VoiceGroups::CueTags& cues, const std::string& id) {
  auto found = cues.find(id);
  if (found == cues.end()) return std::nullopt;
  return found->second;
}

class Packer {
 public:
  Packer(const Recording& recording, const VoiceSpan& span, const VoiceGroups::CueTags& cues)
      : recording_(recording), span_(span), cues_(cues) {}

  void add(const TimelineItem& line) {
    if (!packable(line, span_)) {
      flush();
      pack_.push_back(&line);
      keys_.push_back(VoiceGroups::castKey(recording_, line));
      flush();
      return;
    }
    std::string key = VoiceGroups::castKey(recording_, line);
    if (!pack_.empty() && breaksBefore(line, key)) flush();
    pack_.push_back(&line);
    keys_.push_back(std::move(key));
  }

  std::vector<VoiceGroups::Group> finish() {
    flush();
    return std::move(groups_);
  }

 private:
  bool breaksBefore(const TimelineItem& line, const std::string& key) const {
    const TimelineItem& last = *pack_.back();
    if (keys_.back() != key) return true;
    if (last.together) return line.together != last.together;
    if (line.together) return true;
    if (pack_.size() >= static_cast<size_t>(VoiceGroups::packLimit)) return true;
    if (span_.kind == VoiceSpan::Kind::characters) {
      auto joined = pack_;
      joined.push_back(&line);
      return characterCount(VoiceGroups::text(joined)) > static_cast<size_t>(span_.limit);
    }
    if (span_.kind == VoiceSpan::Kind::cue && !cues_.empty())
      return tagOf(cues_, last.id) != tagOf(cues_, line.id);
    return false;
  }

  // Characters as a reader counts them, not bytes.
  static size_t characterCount(const std::string& text) {
    size_t count = 0;
    for (unsigned char c : text)
      if ((c & 0xC0) != 0x80) ++count;
    return count;
  }

  void flush() {
    if (pack_.empty()) return;
    VoiceGroups::Group group;
    group.hash = hashOfKeys(pack_, keys_);
    for (const auto* line : pack_) group.lineIds.push_back(line->id);
    group.text = VoiceGroups::text(pack_);
    const TimelineItem& first = *pack_.front();
    group.character = first.character ? first.character : recording_.voice.character;
    group.voice = recording_.resolvedVoice(first);
    groups_.push_back(std::move(group));
    pack_.clear();
    keys_.clear();
  }

  const Recording& recording_;
  VoiceSpan span_;
  const VoiceGroups::CueTags& cues_;
  std::vector<const TimelineItem*> pack_;
  std::vector<std::string> keys_;
  std::vector<VoiceGroups::Group> groups_;
};

}  // namespace

std::string VoiceGroups::Group::file(std::string_view salt) const {
  std::string name = "group-" + hash;
  if (!salt.empty()) name += "-" + std::string(salt);
  return name + ".wav";
}

bool VoiceGroups::isGroupTicket(std::string_view text) { return text.starts_with(mark); }

std::vector<VoiceGroups::Group> VoiceGroups::of(const Recording& recording, const CueTags& cues) {
  Packer packer(recording, VoiceSpan::parse(recording.voice.span), cues);
  for (const auto* line : ordered(recording)) packer.add(*line);
  return packer.finish();
}

std::optional<VoiceGroups::Group> VoiceGroups::containing(std::string_view id, const Recording& recording,
                                                          const CueTags& cues) {
  for (auto& group : of(recording, cues))
    for (const auto& member : group.lineIds)
      if (member == id) return std::move(group);
  return std::nullopt;
}

}  // namespace tavorin
