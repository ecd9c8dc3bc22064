#include "kit/Diff.hpp"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <string_view>

#include "kit/Looks.hpp"
#include "kit/Subtitles.hpp"

namespace tavorin::Diff {

namespace {

// A bed without a level of its own sits this far under the voice.
constexpr double defaultGain = -18;
constexpr const char* arrow = " → ";

using Index = std::map<std::string_view, const TimelineItem*>;

// The first item of each id, as every lookup by id in the model finds it.
Index indexById(const Recording& recording) {
  Index index;
  for (const auto& item : recording.timeline) index.emplace(item.id, &item);
  return index;
}

const TimelineItem* find(const Index& index, std::string_view id) {
  auto found = index.find(id);
  return found == index.end() ? nullptr : found->second;
}

std::vector<Change> compare(const TimelineItem& a, const TimelineItem& b) {
  std::vector<Change> changes;
  if (a.start.value_or(0) != b.start.value_or(0)) changes.push_back(Change::retimed(a.start.value_or(0), b.start.value_or(0)));
  if (a.text != b.text) changes.push_back(Change::of(Change::Kind::retexted));
  if (a.voice != b.voice) changes.push_back(Change::revoiced(a.voice, b.voice));
  if (a.rate.value_or(1) != b.rate.value_or(1)) changes.push_back(Change::rerated(a.rate.value_or(1), b.rate.value_or(1)));
  if (a.gain.value_or(defaultGain) != b.gain.value_or(defaultGain))
    changes.push_back(Change::regained(a.gain.value_or(defaultGain), b.gain.value_or(defaultGain)));
  if (a.trimIn != b.trimIn || a.trimOut != b.trimOut) changes.push_back(Change::of(Change::Kind::retrimmed));
  if (b.audio && a.audio != b.audio) changes.push_back(Change::of(Change::Kind::rendered));
  if (a.audio && !b.audio) changes.push_back(Change::of(Change::Kind::unrendered));
  return changes;
}

std::string orDash(const std::optional<std::string>& text) { return text ? *text : "—"; }

std::string cast(const VoiceConfig& voice) { return orDash(voice.character) + " " + orDash(voice.voice); }

template <typename T>
std::size_t count(const std::optional<std::vector<T>>& list) {
  return list ? list->size() : 0;
}

// Absent and empty both mean "none stored".
template <typename T>
bool sameList(const std::optional<std::vector<T>>& a, const std::optional<std::vector<T>>& b) {
  return count(a) == count(b) && (count(a) == 0 || *a == *b);
}

std::vector<std::string> productionSentences(const Recording& before, const Recording& after) {
  std::vector<std::string> out;
  if (before.title != after.title) out.push_back("title: " + before.title + arrow + after.title);
  if (before.voice.character != after.voice.character || before.voice.voice != after.voice.voice)
    out.push_back("cast: " + cast(before.voice) + arrow + cast(after.voice));
  if (before.voice.driver != after.voice.driver)
    out.push_back("voice: " + before.voice.driver + arrow + after.voice.driver);
  if (before.gap.value_or(0) != after.gap.value_or(0)) {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "gap: %.2f → %.2f", before.gap.value_or(0), after.gap.value_or(0));
    out.emplace_back(buffer);
  }
  if (before.description != after.description) out.emplace_back("description changed");
  if (before.subtitles != after.subtitles) out.push_back("subtitles " + Subtitles::summary(after.subtitles));
  if (!sameList(before.segments, after.segments)) out.push_back(spanLine("cut", count(before.segments), count(after.segments)));
  if (!sameList(before.zooms, after.zooms)) out.push_back(spanLine("zooms", count(before.zooms), count(after.zooms)));
  if (before.look != after.look) out.push_back("look: " + Looks::summary(after.look));
  return out;
}

std::string typeName(ItemType type) {
  switch (type) {
    case ItemType::line: return "the new line";
    case ItemType::action: return "the action";
    case ItemType::label: return "the label";
    case ItemType::audio: return "the music";
  }
  return "the edit";
}

std::string nameOfItemEdit(const TimelineItem& a, const TimelineItem& b) {
  if (a.text != b.text) return b.type == ItemType::label ? "the label" : "the line text";
  if (a.audio != b.audio) return b.audio ? "the render" : "the audio";
  if (a.character != b.character || a.voice != b.voice) return "the casting";
  if (a.approved != b.approved) return "the approval";
  if (a.start != b.start) return "the move";
  if (a.rate != b.rate) return "the rate";
  if (a.hold != b.hold) return "the hold";
  if (a.gain != b.gain) return "the level";
  if (a.trimIn != b.trimIn || a.trimOut != b.trimOut) return "the trim";
  if (a.file != b.file || a.source != b.source) return "the music";
  if (a.note != b.note) return "the note";
  return "the edit";
}

std::string nameOfProductionEdit(const Recording& a, const Recording& b) {
  if (!sameList(a.zooms, b.zooms)) return "the zoom";
  if (!sameList(a.segments, b.segments)) return "the cut";
  if (a.subtitles != b.subtitles) return "the subtitles";
  if (a.look != b.look) return "the look";
  if (a.voice != b.voice) return "the casting";
  if (a.title != b.title) return "the title";
  if (a.description != b.description) return "the description";
  if (a.capture != b.capture) return "the capture";
  if (a.agent != b.agent) return "the agent rules";
  if (a.gap != b.gap) return "the gap";
  return "the edit";
}

}  // namespace

bool ItemChange::has(Change::Kind kind) const {
  return std::ranges::any_of(changes, [&](const Change& c) { return c.kind == kind; });
}

Result between(const Recording& before, const Recording& after, bool blockingChanged) {
  Result result;
  const Index beforeIndex = indexById(before);
  const Index afterIndex = indexById(after);
  std::set<std::string_view> seen;

  for (const auto& item : before.timeline) {
    if (!seen.insert(item.id).second) continue;
    const TimelineItem* now = find(afterIndex, item.id);
    if (!now) {
      result.items.push_back({item.id, item.type, {Change::of(Change::Kind::removed)}});
    } else if (!(item == *now)) {
      auto changes = compare(item, *now);
      if (!changes.empty()) result.items.push_back({item.id, now->type, std::move(changes)});
    }
  }
  for (const auto& item : after.timeline) {
    if (!find(beforeIndex, item.id) && seen.insert(item.id).second)
      result.items.push_back({item.id, item.type, {Change::of(Change::Kind::added)}});
  }
  std::ranges::stable_sort(result.items, {}, &ItemChange::id);

  result.production = productionSentences(before, after);
  result.blockingChanged = blockingChanged;
  return result;
}

std::string Result::summary() const {
  std::vector<std::string> parts;
  const auto tally = [&](auto&& counts, const char* words) {
    const auto n = std::ranges::count_if(items, counts);
    if (n > 0) parts.push_back(std::to_string(n) + words);
  };
  const auto with = [](Change::Kind kind) { return [kind](const ItemChange& item) { return item.has(kind); }; };
  using K = Change::Kind;
  tally(with(K::added), " added");
  tally(with(K::removed), " removed");
  tally(with(K::retexted), " retexted");
  tally(with(K::revoiced), " revoiced");
  tally(with(K::retimed), " retimed");
  tally(with(K::rerated), " re-rated");
  tally(with(K::rendered), " rendered");
  tally(with(K::unrendered), " now unrendered");
  tally([](const ItemChange& item) { return item.has(K::regained) || item.has(K::retrimmed); }, " music adjusted");
  parts.insert(parts.end(), production.begin(), production.end());
  if (blockingChanged) parts.emplace_back("blocking changed");
  if (parts.empty()) return "no changes";

  std::string line = parts.front();
  for (std::size_t i = 1; i < parts.size(); ++i) line += " · " + parts[i];
  return line;
}

std::string name(const Recording& before, const Recording& after) {
  const Index beforeIndex = indexById(before);
  const Index afterIndex = indexById(after);

  std::vector<const TimelineItem*> arrived;
  for (const auto& [id, item] : afterIndex)
    if (!find(beforeIndex, id)) arrived.push_back(item);
  bool anyLeft = false;
  std::vector<std::pair<const TimelineItem*, const TimelineItem*>> changed;
  for (const auto& [id, item] : beforeIndex) {
    const TimelineItem* now = find(afterIndex, id);
    if (!now) anyLeft = true;
    else if (!(*item == *now)) changed.emplace_back(item, now);
  }

  if (!arrived.empty() && !anyLeft) return arrived.size() > 1 ? "the paste" : typeName(arrived.front()->type);
  if (anyLeft) return arrived.empty() ? "the delete" : "the edit";
  if (changed.size() == 1) return nameOfItemEdit(*changed.front().first, *changed.front().second);
  if (changed.size() > 1) return "the edit";
  return nameOfProductionEdit(before, after);
}

std::string spanLine(const std::string& label, std::size_t before, std::size_t after) {
  if (before == after) return label + ": " + std::to_string(before) + " changed";
  return label + ": " + std::to_string(before) + arrow + std::to_string(after);
}

}  // namespace tavorin::Diff
