#include "kit/VoiceGroups.hpp"

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

std::string VoiceGroups::hash(const Recording& recording, const std::vector<const TimelineItem*>& lines) {
  std::string keys;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const TimelineItem& line = *lines[i];
    if (i > 0) keys += lineSeparator;
    keys += line.id + fieldSeparator + line.text.value_or("") + fieldSeparator + castKey(recording, line);
  }
  return md5Hex(keys).substr(0, 10);
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
