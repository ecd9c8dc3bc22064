#include "kit/ExportPlan.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "kit/Cut.hpp"
#include "kit/Music.hpp"
#include "kit/Schedule.hpp"
#include "kit/Zooms.hpp"

namespace tavorin {

namespace {

double speed(const Segment& s) { return std::clamp(s.rate.value_or(1.0), Cut::minRate, Cut::maxRate); }

double filmLength(const Recording& recording, const Take& take, std::vector<Segment>* cut) {
  const double footage = std::max(take.seconds - take.pads.slate - take.pads.tail, 0.0);
  double duration = 0;
  bool placedAny = false;
  if (footage > 0) {
    const auto placed = Cut::placed(recording, footage);
    for (const auto& p : placed) {
      if (cut) cut->push_back(p.segment);
      duration = p.start + std::max(p.segment.to - p.segment.from, 0.0) / speed(p.segment);
      placedAny = true;
    }
  }
  if (!placedAny) duration = std::max(Schedule::totalLength(recording), 0.0);
  return duration;
}

}  // namespace

std::string ExportPlan::Piece::Slice::filter() const {
  char buffer[128];
  std::snprintf(buffer, sizeof buffer, "atrim=start=%.4f:end=%.4f,asetpts=PTS-STARTPTS", from, from + seconds);
  return buffer;
}

bool ExportPlan::hasCut() const {
  if (cut.size() >= 2) return true;
  if (cut.size() == 1) return cut[0].from > 0.001 || std::abs(speed(cut[0]) - 1) > 1e-9;
  return false;
}

double ExportPlan::sourceEnd() const {
  if (cut.empty()) return duration;
  double end = 0;
  for (const auto& s : cut) end = std::max(end, s.to);
  return end;
}

ExportPlan ExportPlan::make(const Recording& recording, const Take& take) {
  ExportPlan plan;
  for (const auto* line : recording.lines()) {
    const double start = line->start.value_or(0);
    const double length = line->effectiveDuration().value_or(0);
    const bool hasText = line->text && !line->text->empty();
    const bool hasAudio = line->audio && !line->audio->empty();
    if (hasText && length > 0) plan.captions.push_back({start, length, *line->text});
    if (hasAudio && length > 0) {
      Piece piece{line->id, *line->audio, start, length, line->rate.value_or(1.0), line->text.value_or(""), {}};
      if (line->renderedFrom && line->renderedFrom->group)
        piece.slice = Piece::Slice{line->renderedFrom->offset.value_or(0), line->duration.value_or(length)};
      plan.pieces.push_back(std::move(piece));
    } else if (hasAudio) {
      plan.skipped.push_back(line->id + " is trimmed to nothing");
    } else if (!line->hold) {
      plan.skipped.push_back(line->id + " has no rendered audio");
    }
  }
  for (const auto& item : recording.timeline) {
    if (item.type != ItemType::audio) continue;
    if (!item.file || item.file->empty()) {
      plan.skipped.push_back(item.id + " has no music file");
      continue;
    }
    const double fileLength = item.duration.value_or(0);
    if (!(fileLength > 0)) continue;
    const auto [in, out] = Music::trim(item.trimIn.value_or(0), item.trimOut.value_or(fileLength), fileLength);
    const double seconds = out - in;
    if (!(seconds > 0)) continue;
    plan.beds.push_back(
        {item.id, *item.file, item.start.value_or(0), in, seconds, std::clamp(item.gain.value_or(0.0), -60.0, 6.0)});
  }
  plan.trimHead = take.pads.slate;
  plan.duration = filmLength(recording, take, &plan.cut);
  for (const auto& zoom : Zooms::list(recording))
    if (zoom.from < plan.duration - 0.01) plan.zooms.push_back(zoom);
  plan.look = recording.look;
  plan.target = recording.exportTarget;
  plan.video = "takes/" + take.id + "/" + take.video;
  return plan;
}

double ExportPlan::runtime(const Recording& recording, const Take& take) {
  return filmLength(recording, take, nullptr);
}

}  // namespace tavorin
