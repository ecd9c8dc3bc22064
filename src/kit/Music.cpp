#include "kit/Music.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>


namespace tavorin {

namespace {

std::string format(const char* pattern, auto... args) {
  char buffer[512];
  std::snprintf(buffer, sizeof buffer, pattern, args...);
  return buffer;
}

const TimelineItem* ofType(const Recording& recording, std::string_view id, ItemType type) {
  const auto* found = recording.item(id);
  return found && found->type == type ? found : nullptr;
}

}  // namespace

double Music::gain(double db) {
  if (std::isnan(db)) return defaultGain;
  return std::clamp(db, minGain, maxGain);
}

double Music::amplitude(double db) {
  if (std::isnan(db) || db <= minGain) return 0.001;
  return std::pow(10.0, std::min(db, maxGain) / 20.0);
}

std::pair<double, double> Music::trim(double in, double out, double duration) {
  if (!(duration > 0)) return {0, 0};
  in = std::clamp(in, 0.0, duration);
  out = std::clamp(out, 0.0, duration);
  if (!(out > in)) out = std::min(in + minLength, duration);
  // The mark lay at the file's end: take the tenth from before it instead.
  if (!(out > in)) in = std::max(out - minLength, 0.0);
  return {in, out};
}

double Music::length(const TimelineItem& item, std::optional<double> duration) {
  double out = 0;
  if (item.trimOut) out = *item.trimOut;
  else if (duration) out = *duration;
  else if (item.duration) out = *item.duration;
  return std::max(out - item.trimIn.value_or(0), 0.0);
}

TimelineItem Music::item(std::string id, std::string file, double at, double duration) {
  TimelineItem bed(std::move(id), ItemType::audio);
  bed.start = std::max(at, 0.0);
  bed.file = std::move(file);
  bed.duration = duration;
  bed.gain = defaultGain;
  return bed;
}

std::string Music::nextId(const Recording& recording) {
  const auto taken = recording.itemIds();
  for (int n = 1;; ++n) {
    std::string id = "m" + std::to_string(n);
    if (!taken.count(id)) return id;
  }
}

const TimelineItem* Music::bed(const Recording& recording, std::string_view id) {
  return ofType(recording, id, ItemType::audio);
}

const TimelineItem* Music::label(const Recording& recording, std::string_view id) {
  return ofType(recording, id, ItemType::label);
}

std::string Music::collisionName(std::string_view name, std::string_view unique) {
  const auto dot = name.rfind('.');
  // A leading dot names a hidden file, not an extension.
  if (dot == std::string_view::npos || dot == 0) return std::string(name) + "-" + std::string(unique);
  return std::string(name.substr(0, dot)) + "-" + std::string(unique) + std::string(name.substr(dot));
}

std::string Music::noLength(std::string_view name) {
  return std::string(name) + " has no length this app can measure. Try a wav or an mp3.";
}

std::string Music::wouldNotCopy(std::string_view name, std::string_view reason) {
  return std::string(name) + " would not copy into audio/: " + std::string(reason);
}

std::string Music::addedEvent(std::string_view id, std::string_view name, double seconds, double at) {
  return format("music %.*s — %.*s, %.1fs at %.2f", int(id.size()), id.data(), int(name.size()), name.data(),
                seconds, at);
}

std::string Music::trimmedEvent(std::string_view id, double in, double out) {
  return format("music %.*s trimmed to %.2f–%.2fs", int(id.size()), id.data(), in, out);
}

std::string Music::gainEvent(std::string_view id, double db) {
  return format("music %.*s gain %.1f dB", int(id.size()), id.data(), db);
}

std::string Music::removedEvent(std::string_view id) {
  return "removed audio " + std::string(id) + " — Ctrl+Z puts it back";
}

}  // namespace tavorin
