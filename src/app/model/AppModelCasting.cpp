// The casting room: voices heard before they are cast, through the same render
// queue as the lines, and the cast put on a line or the production from there.
#include <algorithm>

#include "app/model/AppModel.hpp"
#include "platform/TavorinPaths.hpp"
#include "voice/AudioFile.hpp"

namespace tavorin {

namespace fs = std::filesystem;

Auditions& AppModel::auditions() {
  if (!auditions_) {
    Auditions::Player player;
    // The room plays through the studio's one output, as a line heard alone does.
    player.play = [this](const fs::path& file) {
      requireTransport();
      const auto seconds = AudioFile::seconds(file);
      if (!seconds) throw std::runtime_error("not audio");
      stopTransport();
      TimelineItem clip("audition", ItemType::line);
      clip.audio = file.string();
      clip.duration = *seconds;
      transport_->playLine(clip, baseDir_.value_or(file.parent_path()));
      scheduleTick();
    };
    player.stop = [this] { stopLine(); };
    player.playing = [this] { return transport_ && transport_->playingId().has_value(); };
    auditions_ = std::make_unique<Auditions>(actor_, TavorinPaths::supportDir(), player);
    auditionJob = [this](const std::string& ticket) { return auditions_->job(ticket); };
    auditionFinished = [this](const std::string& ticket, const RenderResult& result) {
      auditions_->finish(ticket, result);
    };
  }
  return *auditions_;
}

void AppModel::openCasting(const std::optional<std::string>& character, const std::optional<std::string>& voice,
                           const std::optional<std::string>& line, const std::optional<std::string>& tab) {
  const auto people = cast();
  if (people.empty()) throw Failure::cannotVoice(driver()->name() + " lists no characters, so there is nobody to cast.");
  if (tab && *tab != "voices" && *tab != "past") throw Failure::badChoice(*tab, "casting tab", "voices · past");
  const TimelineItem* target = nullptr;
  if (line) {
    target = stored_ ? stored_->item(*line) : nullptr;
    if (!target || target->type != ItemType::line) throw Failure::noSuchLine(*line);
  }
  std::optional<std::string> who = character;
  if (!who && target) who = stored_->resolvedCharacter(*target);
  if (!who && stored_) who = stored_->voice.character;
  if (!who || who->empty()) who = people.front().id;
  std::optional<std::string> heard = voice;
  // The voice the pick would land on speaks now, when it belongs to that character.
  if (!heard && target && stored_->resolvedCharacter(*target) == who) heard = stored_->resolvedVoice(*target);
  if (!heard && stored_ && stored_->voice.character == who) heard = stored_->voice.voice;
  heard = namedVoice(*who, heard);  // refuses a character or voice the engine lacks
  castingCall_ = CastingCall{*who, heard, line, tab.value_or("voices")};
  note("casting " + *who + (line ? " for " + *line : std::string(" for the production")));
}

void AppModel::closeCasting() {
  if (auditions_) auditions_->stop();
  if (!castingCall_) return;
  castingCall_.reset();
  note("casting closed");
}

void AppModel::castingPick(const std::string& character, const std::optional<std::string>& voice) {
  if (!castingCall_) throw Failure::cannotVoice("the casting room is shut");
  const std::string settled = namedVoice(character, voice);
  castingCall_->character = character;
  castingCall_->voice = settled;
}

void AppModel::castingTab(const std::string& tab) {
  if (!castingCall_) throw Failure::cannotVoice("the casting room is shut");
  if (tab != "voices" && tab != "past") throw Failure::badChoice(tab, "casting tab", "voices · past");
  castingCall_->tab = tab;
}

std::string AppModel::audition(const std::string& character, const std::optional<std::string>& voice,
                               const std::string& prompt) {
  const std::string settled = namedVoice(character, voice);
  const std::string ticket = auditions().request(character, settled, prompt);
  renders().enqueue({ticket});
  note("auditioning " + settled);
  return ticket;
}

std::string AppModel::auditionFromRoom(const std::optional<std::string>& character, const std::optional<std::string>& voice,
                                       const std::optional<std::string>& prompt) {
  if (!castingCall_) throw Failure::cannotVoice("the casting room is shut");
  const std::string who = character.value_or(castingCall_->character);
  const auto heard = voice ? voice : (who == castingCall_->character ? castingCall_->voice : std::nullopt);
  return audition(who, heard, prompt.value_or(std::string(castingPrompt)));
}

std::string AppModel::hear(const std::string& character, const std::optional<std::string>& voice) {
  const std::string settled = namedVoice(character, voice);
  for (const auto& person : cast())
    if (person.id == character)
      for (const auto& v : person.voices) {
        std::error_code ec;
        if (v.id == settled && v.preview && fs::is_regular_file(*v.preview, ec)) {
          auditions().preview(v);
          if (auditions().failure()) throw Failure::cannotVoice(*auditions().failure());
          return "played the voice's own clip";
        }
      }
  audition(character, settled, std::string(castingPrompt));
  return "rendering — this one takes a moment";
}

std::string AppModel::hearVoice(const std::optional<std::string>& line) {
  const Recording& rec = recording();
  std::optional<std::string> character = rec.voice.character;
  std::optional<std::string> voice = rec.voice.voice;
  if (line) {
    const TimelineItem* item = rec.item(*line);
    if (!item || item->type != ItemType::line) throw Failure::noSuchLine(*line);
    character = rec.resolvedCharacter(*item);
    voice = rec.resolvedVoice(*item);
  }
  if (!character || character->empty())
    throw Failure::cannotVoice(line ? *line + " has no voice to play. Cast it first."
                                    : std::string("The production has no voice to play. Cast it first."));
  return hear(*character, voice);
}

void AppModel::castingUse(const std::optional<std::string>& character, const std::string& voice) {
  if (!castingCall_) throw Failure::cannotVoice("the casting room is shut");
  const std::string who = character.value_or(castingCall_->character);
  castOn(castingCall_->line, who, voice);
  castingCall_->character = who;
  castingCall_->voice = voice;
}

void AppModel::castOn(const std::optional<std::string>& line, const std::string& character,
                      const std::optional<std::string>& voice) {
  requireEditable();
  const std::string settled = namedVoice(character, voice);
  Recording next = *stored_;
  if (line) {
    TimelineItem* item = next.item(*line);
    if (!item || item->type != ItemType::line) throw Failure::noSuchLine(*line);
    item->character = character == next.voice.character ? std::nullopt : std::optional<std::string>(character);
    item->voice = settled;
  } else {
    next.voice.character = character;
    next.voice.voice = settled;
  }
  if (next == *stored_) return;
  remember("the casting");
  setRecording(std::move(next));
  scheduleDraft();
  note("cast " + character + " as " + settled + " on " + (line ? *line : std::string("the production")));
}

}  // namespace tavorin
