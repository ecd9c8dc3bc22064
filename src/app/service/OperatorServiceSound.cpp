// The sound cues: the set as a user would read it off a card, its mute, and a cue
// played on request so a user can learn which sound means what.
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/SoundCue.hpp"

namespace tavorin {

namespace {

std::string timing(const SoundCueCard& s) {
  const auto ms = [](double seconds) { return std::to_string(static_cast<int>(seconds * 1000 + 0.5)) + " ms"; };
  std::string out = std::to_string(s.notes.size()) + (s.notes.size() == 1 ? " note of " : " notes of ") + ms(s.noteSeconds);
  if (s.notes.size() > 1) out += ", " + ms(s.gap) + " apart";
  return out;
}

}  // namespace

void OperatorService::registerSound() { onBranch(&OperatorService::soundVerbs, {"sound"}); }

JSONValue OperatorService::soundReport(std::optional<SoundCue> played, bool sounded) const {
  const AppModel& m = model();
  JSONValue::Array cues;
  for (const auto& s : SoundCues::all()) {
    JSONValue::Array notes;
    for (const auto& n : s.noteNames) notes.emplace_back(n);
    JSONValue row;
    row.set("number", static_cast<long long>(s.cue));
    row.set("name", s.name);
    row.set("when", s.meaning);
    row.set("notes", JSONValue(std::move(notes)));
    row.set("timing", timing(s));
    row.set("seconds", JSONValue::seconds(s.seconds()));
    row.set("direction", s.direction);
    row.set("muted", m.soundMuted() || m.soundHeld());
    cues.push_back(std::move(row));
  }
  JSONValue answer;
  answer.set("muted", m.soundMuted());
  answer.set("held", m.soundHeld());
  answer.set("cues", JSONValue(std::move(cues)));
  if (!played) return answer;
  answer.set("played", SoundCues::card(*played).name);
  answer.set("sounded", sounded);
  if (sounded) answer.set("silentBecause", nullptr);
  else
    answer.set("silentBecause", m.soundHeld()    ? "held silent by TAVORIN_SILENT or TAVORIN_SNAPSHOT"
                                : m.soundMuted() ? "the cues are muted"
                                                 : "no sound output is open");
  return answer;
}

OperatorService::Answer OperatorService::soundVerbs(const OperatorCommand&, const OperatorArgs& a) {
  AppModel& m = model();
  const auto muted = a.flag("muted");
  std::optional<SoundCue> play;
  if (const auto word = a.text("play")) {
    play = SoundCues::named(*word);
    if (!play) return OperatorResult::failure("no sound cue named \"" + *word + "\": done, failed, exported, rolling or cut");
  }
  if (muted) m.setSoundMuted(*muted);
  const bool sounded = play && m.sound(*play);
  return OperatorResult::success(soundReport(play, sounded));
}

}  // namespace tavorin
