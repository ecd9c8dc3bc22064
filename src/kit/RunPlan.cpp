#include "kit/RunPlan.hpp"

#include <algorithm>
#include <unordered_map>

#include "kit/Schedule.hpp"

namespace tavorin {

double RunPlan::occupied(const Blocking::Kind& kind) {
  using K = Blocking::Kind;
  if (const auto* wait = kind.as<K::Wait>()) return wait->seconds;
  if (const auto* hold = kind.as<K::Hold>()) return hold->seconds;
  if (const auto* move = kind.as<K::Move>()) return move->over.value_or(0);
  if (const auto* scroll = kind.as<K::Scroll>()) return scroll->over.value_or(0);
  return 0;
}

bool RunPlan::isPause(const Blocking::Kind& kind) {
  using K = Blocking::Kind;
  return kind.is<K::Wait>() || kind.is<K::Hold>() || kind.is<K::Cue>() || kind.is<K::AnchorHeader>() ||
         kind.is<K::Unknown>();
}

RunPlan RunPlan::make(std::string_view source, const Recording& rec) {
  const auto steps = Blocking::parse(source);
  // A repeated id keeps the later step.
  std::unordered_map<int, const Blocking::Step*> byId;
  for (const auto& step : steps) byId[step.id] = &step;

  RunPlan plan;
  for (const auto& cue : Schedule::cues(steps, rec)) {
    const auto found = byId.find(cue.id);
    if (found == byId.end()) continue;
    const Blocking::Step& step = *found->second;
    if (step.kind.is<Blocking::Kind::Unknown>()) continue;
    plan.events.push_back(Event{cue.id, cue.time, step.kind, cue.label, step.sourceLine});
  }
  if (!plan.events.empty()) {
    double end = Schedule::totalLength(rec);
    for (const auto& event : plan.events) end = std::max(end, event.time + occupied(event.kind));
    plan.duration = end;
  }
  return plan;
}

std::vector<std::string> RunPlan::skipped(std::string_view source) {
  std::vector<std::string> out;
  for (const auto& step : Blocking::parse(source))
    if (step.kind.is<Blocking::Kind::Unknown>()) out.push_back(step.raw);
  return out;
}

}  // namespace tavorin
