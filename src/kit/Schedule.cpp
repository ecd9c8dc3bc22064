#include "kit/Schedule.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <unordered_set>

#include "kit/BlockingText.hpp"
#include "kit/VoiceGroups.hpp"
#include "base/Hex.hpp"

namespace tavorin {

namespace {

double fourDecimals(double value) { return std::round(value * 10000) / 10000; }

// Cut toward zero and written without a fraction; never "-0".
std::string whole(double value) {
  double cut = std::trunc(value);
  if (cut == 0) cut = 0;
  char buffer[400];
  std::snprintf(buffer, sizeof buffer, "%.0f", cut);
  return buffer;
}

double gapOf(const Recording& recording, std::optional<double> gap) {
  if (gap) return *gap;
  return recording.gap.value_or(Schedule::defaultGap);
}

// Seconds of the timeline a step without an anchor takes from the cursor.
double occupies(const Blocking::Kind& kind) {
  using K = Blocking::Kind;
  if (const auto* wait = kind.as<K::Wait>()) return wait->seconds;
  if (const auto* hold = kind.as<K::Hold>()) return hold->seconds;
  if (const auto* move = kind.as<K::Move>()) return move->over.value_or(0);
  if (const auto* scroll = kind.as<K::Scroll>()) return scroll->over.value_or(0);
  return 0;
}

using IdSet = std::unordered_set<std::string_view>;

IdSet idSet(const std::vector<std::string>& ids) { return IdSet(ids.begin(), ids.end()); }

}  // namespace

namespace Schedule {

double hundredths(double value) { return std::round(value * 100) / 100; }

std::string plainDecimal(double value) {
  char buffer[1100];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
  std::string out(buffer, result.ptr);
  if (std::isfinite(value) && out.find('.') == std::string::npos) out += ".0";
  return out;
}

std::vector<LineSpan> lineSpans(const Recording& recording) {
  std::vector<LineSpan> spans;
  for (const auto& item : recording.timeline) {
    if (item.type != ItemType::line || !item.start) continue;
    spans.push_back({item.id, *item.start, *item.start + item.effectiveDuration().value_or(0)});
  }
  std::stable_sort(spans.begin(), spans.end(),
                   [](const LineSpan& a, const LineSpan& b) { return a.start < b.start; });
  return spans;
}

double totalLength(const Recording& recording) {
  std::optional<double> longest;
  for (const auto& item : recording.timeline) {
    if (!item.start) continue;
    const double end = *item.start + item.effectiveDuration().value_or(0);
    if (!longest || end > *longest) longest = end;
  }
  return longest.value_or(0);
}

double resolve(const std::optional<Anchor>& anchor, const SpanMap& spans, double cursor) {
  if (!anchor || !anchor->to || spans.empty()) return cursor;
  const auto found = spans.find(*anchor->to);
  if (found == spans.end()) return cursor;
  const double edge = anchor->edge == "end" ? found->second.end : found->second.start;
  return edge + anchor->offset.value_or(0);
}

std::string label(const Blocking::Step& step) {
  using K = Blocking::Kind;
  using BlockingText::prefixCodePoints;
  const K& kind = step.kind;
  if (const auto* app = kind.as<K::App>()) return "app " + app->name;
  if (const auto* open = kind.as<K::Open>()) return "open " + open->target;
  if (const auto* click = kind.as<K::Click>()) return "click " + whole(click->x) + "," + whole(click->y);
  if (const auto* move = kind.as<K::Move>()) return "move " + whole(move->x) + "," + whole(move->y);
  if (const auto* scroll = kind.as<K::Scroll>()) return "scroll " + whole(scroll->px);
  if (const auto* type = kind.as<K::Type>()) return "type " + std::string(prefixCodePoints(type->text, 24));
  if (const auto* agent = kind.as<K::Agent>()) return "agent " + std::string(prefixCodePoints(agent->prompt, 24));
  if (const auto* key = kind.as<K::Key>()) return "key " + key->combo;
  if (const auto* wait = kind.as<K::Wait>()) return "wait " + plainDecimal(wait->seconds) + "s";
  if (const auto* hold = kind.as<K::Hold>()) return "hold " + plainDecimal(hold->seconds) + "s";
  if (kind.is<K::Js>()) return "js";
  if (const auto* cue = kind.as<K::Cue>()) return cue->name;
  if (kind.is<K::Unknown>()) return step.raw;
  return "";
}

std::vector<Cue> cues(const std::vector<Blocking::Step>& steps, const Recording& recording) {
  SpanMap spans;
  for (auto& span : lineSpans(recording)) spans[span.id] = std::move(span);

  std::vector<Cue> out;
  out.reserve(steps.size());
  double cursor = 0;
  for (const auto& step : steps) {
    if (step.kind.is<Blocking::Kind::AnchorHeader>()) continue;
    Cue cue;
    cue.id = step.id;
    cue.time = resolve(step.anchor, spans, cursor);
    cue.label = label(step);
    cue.anchored = step.anchor.has_value();
    cue.known = !step.kind.is<Blocking::Kind::Unknown>();
    cue.sourceLine = step.sourceLine;
    cue.raw = step.raw;
    cue.mark = step.kind.mark();
    // A block's steps all show the block's time; only free steps move the cursor.
    if (!step.anchor) cursor += occupies(step.kind);
    out.push_back(std::move(cue));
  }
  std::stable_sort(out.begin(), out.end(), [](const Cue& a, const Cue& b) { return a.time < b.time; });
  return out;
}

std::optional<double> end(const std::vector<std::string>& of, const Recording& recording) {
  const IdSet ids = idSet(of);
  bool anyLength = false;
  std::optional<double> latest;
  for (const auto& item : recording.timeline) {
    if (item.type != ItemType::line || !item.start || !ids.count(item.id)) continue;
    const auto length = item.effectiveDuration();
    anyLength = anyLength || length.has_value();
    const double itemEnd = *item.start + length.value_or(0);
    if (!latest || itemEnd > *latest) latest = itemEnd;
  }
  if (!anyLength) return std::nullopt;
  return latest;
}

Reflow ripple(Recording& recording, std::string_view changed, std::optional<double> from,
              std::optional<double> gap) {
  Reflow reflow{std::string(changed), 0, {}};
  auto& timeline = recording.timeline;
  const auto found = std::find_if(timeline.begin(), timeline.end(), [&](const TimelineItem& item) {
    return item.type == ItemType::line && item.id == changed;
  });
  if (found == timeline.end() || !found->start) return reflow;
  const double start = *found->start;
  const double length = found->effectiveDuration().value_or(0);

  // Array position decides who follows, not the clock.
  std::vector<TimelineItem*> followers;
  for (auto it = found + 1; it != timeline.end(); ++it)
    if (it->type == ItemType::line && it->start && *it->start >= start - nudge) followers.push_back(&*it);

  double delta;
  if (from) {
    delta = length - *from;
  } else {
    if (!(length > 0) || followers.empty()) return reflow;
    delta = start + length + gapOf(recording, gap) - *followers.front()->start;
  }
  if (!(std::abs(delta) > nudge)) return reflow;

  for (auto* follower : followers) {
    follower->start = hundredths(std::max(*follower->start + delta, 0.0));
    reflow.moved.push_back(follower->id);
  }
  reflow.delta = fourDecimals(delta);
  return reflow;
}

std::vector<RunEntry> run(const Recording& recording, const std::vector<std::string>& members) {
  const IdSet ids = idSet(members);
  std::vector<RunEntry> entries;
  for (size_t i = 0; i < recording.timeline.size(); ++i) {
    const auto& item = recording.timeline[i];
    if (item.type != ItemType::line || !item.start || !ids.count(item.id)) continue;
    if (!item.renderedFrom || !item.renderedFrom->group) continue;
    entries.push_back({i, item.renderedFrom->startsAt()});
  }
  std::sort(entries.begin(), entries.end(), [](const RunEntry& a, const RunEntry& b) {
    return a.offset != b.offset ? a.offset < b.offset : a.index < b.index;
  });
  return entries;
}

Glue glue(Recording& recording, std::string_view group) {
  const auto members = VoiceGroups::members(recording, group);
  const auto from = end(members, recording);
  return glue(recording, group, members, from);
}

Glue glue(Recording& recording, std::string_view group, const std::vector<std::string>& members,
          std::optional<double> from, std::optional<double> gap) {
  Glue result{std::string(group), {}, 0, {}};
  const auto entries = run(recording, members);
  auto& timeline = recording.timeline;
  if (entries.empty() || !timeline[entries.front().index].start) return result;
  const double base = *timeline[entries.front().index].start;
  const double baseOffset = entries.front().offset;

  double threshold = base;
  if (from) {
    threshold = *from;
  } else {
    for (const auto& entry : entries) threshold = std::max(threshold, timeline[entry.index].start.value_or(base));
  }

  // Unlike a ripple, any line behind the group follows, wherever it stands in the array.
  const IdSet ids = idSet(members);
  std::vector<TimelineItem*> followers;
  for (auto& item : timeline)
    if (item.type == ItemType::line && !ids.count(item.id) && item.start && *item.start >= threshold - nudge)
      followers.push_back(&item);

  for (size_t i = 1; i < entries.size(); ++i) {
    TimelineItem& item = timeline[entries[i].index];
    const double target = hundredths(std::max(base + entries[i].offset - baseOffset, 0.0));
    if (!item.start || std::abs(target - *item.start) > nudge) {
      item.start = target;
      result.closed.push_back(item.id);
    }
  }

  const double groupEnd = end(members, recording).value_or(base);
  double delta;
  if (from) {
    delta = groupEnd - *from;
  } else {
    if (followers.empty()) return result;
    const TimelineItem* earliest = followers.front();
    for (const auto* follower : followers)
      if (*follower->start < *earliest->start) earliest = follower;
    delta = groupEnd + gapOf(recording, gap) - *earliest->start;
  }
  if (std::abs(delta) > nudge) {
    for (auto* follower : followers) {
      follower->start = hundredths(std::max(*follower->start + delta, 0.0));
      result.moved.push_back(follower->id);
    }
  }
  result.delta = fourDecimals(delta);
  return result;
}

bool isContiguous(const Recording& recording, std::string_view group) {
  const auto entries = run(recording, VoiceGroups::members(recording, group));
  if (entries.empty()) return false;
  const auto& timeline = recording.timeline;
  for (const auto& entry : entries)
    if (!timeline[entry.index].start) return false;
  const double first = *timeline[entries.front().index].start;
  const double firstOffset = entries.front().offset;
  // The slack keeps a drift of exactly the seam inside it despite binary fractions.
  constexpr double slack = 1e-9;
  for (size_t i = 1; i < entries.size(); ++i) {
    const double expected = first + entries[i].offset - firstOffset;
    if (std::abs(*timeline[entries[i].index].start - expected) > seam + slack) return false;
  }
  return true;
}

std::string digest(std::string_view source, const Recording& recording) {
  std::string rows;
  for (const auto& cue : cues(Blocking::parse(source), recording)) {
    if (!cue.known) continue;
    if (!rows.empty()) rows += '\n';
    rows += std::to_string(cue.id);
    rows += ':';
    rows += plainDecimal(std::round(cue.time * 1000) / 1000);
    rows += ':';
    rows += cue.label;
  }
  unsigned char hash[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_Digest(rows.data(), rows.size(), hash, &size, EVP_sha256(), nullptr);
  return hexDigits(hash, 8);
}

}  // namespace Schedule

}  // namespace tavorin
