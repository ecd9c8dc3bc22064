#include "kit/LineEdits.hpp"

#include <algorithm>
#include <cmath>
#include <set>

#include "kit/Retime.hpp"
#include "kit/Schedule.hpp"
#include "kit/VoiceGroups.hpp"
#include "kit/VoiceSplit.hpp"

namespace tavorin {

namespace {

double thousandths(double value) { return std::round(value * 1000) / 1000; }

std::string trimmed(std::string_view text) {
  static constexpr std::string_view space = " \t\n\r\f\v";
  auto first = text.find_first_not_of(space);
  if (first == std::string_view::npos) return {};
  auto last = text.find_last_not_of(space);
  return std::string(text.substr(first, last - first + 1));
}

// Byte offsets of each character's start, so that `at` counts characters, not bytes.
std::vector<size_t> characterStarts(const std::string& text) {
  std::vector<size_t> starts;
  for (size_t i = 0; i < text.size(); ++i)
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) starts.push_back(i);
  return starts;
}

size_t indexOf(const Recording& recording, const TimelineItem* item) {
  return static_cast<size_t>(item - recording.timeline.data());
}

// Where a line's sound ends: its start (0 when unplaced) plus its length.
double endOf(const TimelineItem& line) {
  double length = 0;
  if (line.duration)
    length = *line.duration / std::max(line.rate.value_or(1.0), 0.01);
  else if (line.hold)
    length = *line.hold;
  return line.start.value_or(0) + length;
}

}  // namespace

std::optional<std::vector<const TimelineItem*>> LineEdits::run(const Recording& recording,
                                                               const std::vector<std::string>& ids) {
  if (ids.empty()) return std::nullopt;
  std::set<std::string, std::less<>> wanted(ids.begin(), ids.end());
  auto lines = VoiceGroups::ordered(recording);
  std::vector<size_t> positions;
  for (size_t i = 0; i < lines.size(); ++i)
    if (wanted.contains(lines[i]->id)) positions.push_back(i);
  std::set<std::string, std::less<>> found;
  for (size_t p : positions) found.insert(lines[p]->id);
  if (found.size() != wanted.size()) return std::nullopt;
  for (size_t i = 1; i < positions.size(); ++i)
    if (positions[i] != positions[i - 1] + 1) return std::nullopt;
  std::vector<const TimelineItem*> out;
  for (size_t p : positions) out.push_back(lines[p]);
  return out;
}

std::vector<LineEdits::Pin> LineEdits::pins(const Recording& recording) {
  std::vector<Pin> out;
  std::optional<std::string> previous;
  for (const auto* line : VoiceGroups::ordered(recording)) {
    if (!line->together) {
      previous.reset();
      continue;
    }
    if (previous == line->together)
      out.back().ids.push_back(line->id);
    else
      out.push_back({*line->together, {line->id}});
    previous = line->together;
  }
  return out;
}

std::optional<LineEdits::Pin> LineEdits::together(Recording& recording, const std::vector<std::string>& ids) {
  auto lines = run(recording, ids);
  if (!lines || lines->size() < 2) return std::nullopt;
  Pin pin{lines->front()->id, {}};
  std::vector<size_t> indices;
  for (const auto* line : *lines) indices.push_back(indexOf(recording, line));
  for (size_t i : indices) {
    recording.timeline[i].together = pin.name;
    pin.ids.push_back(recording.timeline[i].id);
  }
  return pin;
}

std::vector<std::string> LineEdits::alone(Recording& recording, const std::vector<std::string>& ids) {
  std::vector<std::string> unpinned;
  for (const auto& id : ids) {
    TimelineItem* item = recording.item(id);
    if (!item || !item->together) continue;
    item->together.reset();
    unpinned.push_back(id);
  }
  return unpinned;
}

std::optional<LineEdits::Split> LineEdits::split(Recording& recording, std::string_view id, int at,
                                                 std::optional<double> gap) {
  TimelineItem* found = recording.item(id);
  if (!found || found->type != ItemType::line) return std::nullopt;
  const std::string text = found->text.value_or("");
  auto starts = characterStarts(text);
  if (at < 1 || static_cast<size_t>(at) >= starts.size()) return std::nullopt;
  std::string headText = trimmed(std::string_view(text).substr(0, starts[at]));
  std::string tailText = trimmed(std::string_view(text).substr(starts[at]));
  if (headText.empty() || tailText.empty()) return std::nullopt;

  const double pause = gap ? *gap : recording.gap.value_or(Schedule::defaultGap);
  const double oldStart = found->start.value_or(0);
  const double oldEnd = oldStart + found->effectiveDuration().value_or(0);
  double headShare = VoiceSplit::share(headText);
  double fraction = headShare / (headShare + VoiceSplit::share(tailText));

  TimelineItem tail = *found;
  tail.id = Retime::nextId(found->id, recording);
  tail.text = tailText;
  tail.approved = false;
  found->text = headText;
  if (found->duration) {
    double whole = *found->duration;
    found->duration = thousandths(fraction * whole);
    tail.duration = thousandths(whole - *found->duration);
  } else if (found->hold) {
    double whole = *found->hold;
    found->hold = thousandths(fraction * whole);
    tail.hold = thousandths(whole - *found->hold);
  }
  tail.start = Schedule::hundredths(oldStart + found->effectiveDuration().value_or(0) + pause);
  const std::string headId = found->id, tailId = tail.id;
  size_t at_index = indexOf(recording, found);
  recording.timeline.insert(recording.timeline.begin() + static_cast<std::ptrdiff_t>(at_index) + 1, std::move(tail));

  // What followed the old line now follows the tail, pushed by what the split added.
  const TimelineItem& placed = *recording.item(tailId);
  double previous = oldEnd - *placed.start;
  auto reflow = Schedule::ripple(recording, tailId, previous);
  return Split{headId, tailId, reflow.moved};
}

std::optional<LineEdits::Merge> LineEdits::merge(Recording& recording, const std::vector<std::string>& ids) {
  auto lines = run(recording, ids);
  if (!lines || lines->size() < 2) return std::nullopt;
  const TimelineItem& firstLine = *lines->front();
  const double firstStart = firstLine.start.value_or(0);
  double oldEnd = 0;
  std::vector<std::string> texts;
  std::optional<double> durations, holds;
  for (const auto* line : *lines) {
    TimelineItem placed = *line;
    if (!placed.start) placed.start = firstStart;
    oldEnd = std::max(oldEnd, endOf(placed));
    if (line->text) texts.push_back(*line->text);
    if (line->duration) durations = durations.value_or(0) + *line->duration;
    if (line->hold) holds = holds.value_or(0) + *line->hold;
  }
  Merge merge{firstLine.id, {}, {}};
  for (size_t i = 1; i < lines->size(); ++i) merge.gone.push_back((*lines)[i]->id);

  TimelineItem* kept = recording.item(merge.kept);
  std::string joined;
  for (size_t i = 0; i < texts.size(); ++i) joined += (i ? " " : "") + texts[i];
  kept->text = joined;
  kept->approved = false;
  if (durations)
    kept->duration = thousandths(*durations);
  else if (holds)
    kept->hold = thousandths(*holds);

  std::set<std::string, std::less<>> gone(merge.gone.begin(), merge.gone.end());
  // Only the lines of the run go: an item of another type that shares an id stays.
  std::erase_if(recording.timeline,
                [&](const TimelineItem& item) { return item.type == ItemType::line && gone.contains(item.id); });
  kept = recording.item(merge.kept);
  auto reflow = Schedule::ripple(recording, merge.kept, oldEnd - kept->start.value_or(0));
  merge.moved = reflow.moved;
  return merge;
}

}  // namespace tavorin
