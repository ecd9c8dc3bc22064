#include "kit/PlaybackPlan.hpp"

#include <algorithm>

#include "kit/Music.hpp"
#include "kit/Schedule.hpp"

namespace tavorin {

PlaybackPlan PlaybackPlan::make(const Recording& recording, double start) {
  PlaybackPlan plan;
  plan.duration = Schedule::totalLength(recording);
  plan.from = std::max(start, 0.0);
  const double from = plan.from;

  std::vector<const TimelineItem*> lines;
  for (const auto& item : recording.timeline)
    if (item.type == ItemType::line && item.start) lines.push_back(&item);
  std::stable_sort(lines.begin(), lines.end(),
                   [](const TimelineItem* a, const TimelineItem* b) { return *a->start < *b->start; });

  for (const auto* line : lines) {
    const double lineStart = *line->start;
    const double rate = std::max(line->rate.value_or(1.0), minRate);
    const auto length = line->effectiveDuration();
    if (length ? lineStart + *length <= from : lineStart <= from) continue;
    if (!line->audio || line->audio->empty()) {
      plan.skipped.push_back(line->id);
      continue;
    }
    const double past = std::max(0.0, from - lineStart);
    Cue cue;
    cue.id = line->id;
    cue.delay = std::max(lineStart - from, 0.0);
    const double sliceStart = line->renderedFrom ? line->renderedFrom->startsAt() : 0.0;
    cue.offsetInFile = sliceStart + past * rate;
    cue.rate = rate;
    cue.audio = *line->audio;
    if (line->duration) {
      cue.wallDuration = std::max(*line->duration / rate - past, 0.0);
      cue.secondsInFile = cue.wallDuration * rate;
    }
    plan.cues.push_back(std::move(cue));
  }

  for (const auto& item : recording.timeline) {
    if (item.type != ItemType::audio || !item.start || !item.file) continue;
    const double length = Music::length(item);
    const double bedStart = *item.start;
    if (bedStart + length <= from) continue;
    const double past = std::max(0.0, from - bedStart);
    Bed bed;
    bed.id = item.id;
    bed.delay = std::max(bedStart - from, 0.0);
    bed.offsetInFile = std::max(item.trimIn.value_or(0), 0.0) + past;
    bed.wallDuration = length - past;
    bed.gain = Music::gain(item.gain.value_or(Music::defaultGain));
    bed.file = *item.file;
    plan.beds.push_back(std::move(bed));
  }
  return plan;
}

}  // namespace tavorin
