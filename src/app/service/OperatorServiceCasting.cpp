// The cast group's casting verbs: the cast as the picker lists it, the casting room
// with its auditions, and casting without the room.
#include "app/model/AppStore.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "base/IsoDate.hpp"
#include "base/Text.hpp"

namespace tavorin {

namespace {

bool holds(const std::string& text, const std::string& part) {
  return Text::lower(text).find(Text::lower(part)) != std::string::npos;
}

JSONValue auditionTakesReport(const std::vector<Auditions::Take>& takes) {
  JSONValue::Array out;
  for (const auto& t : takes)
    out.push_back(JSONValue::object({{"file", t.file},
                                     {"prompt", t.prompt},
                                     {"date", IsoDate::format(t.date)},
                                     {"seconds", JSONValue::seconds(t.duration)}}));
  return JSONValue(std::move(out));
}

}  // namespace

JSONValue OperatorService::castingReport() const {
  AppModel& m = model();
  const auto& call = m.castingCall();
  const Auditions* a = m.auditionsIfMade();
  return JSONValue::object(
      {{"open", call.has_value()},
       {"character", call ? JSONValue(call->character) : JSONValue()},
       {"voice", call ? Reports::text(call->voice) : JSONValue()},
       {"line", call ? Reports::text(call->line) : JSONValue()},
       {"tab", call ? JSONValue(call->tab) : JSONValue()},
       {"playing", a ? Reports::text(a->playing()) : JSONValue()},
       {"speaking", a ? Reports::text(a->speaking()) : JSONValue()},
       {"failure", a ? Reports::text(a->failure()) : JSONValue()},
       {"waiting", static_cast<long long>(a ? a->requests().size() : 0)}});
}

OperatorService::Answer OperatorService::castingVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  AppModel& m = model();
  const std::string& v = c.verb;
  if (v == "cast" || v == "casting.cast") {
    const auto filter = a.text(v == "cast" ? "filter" : "character");
    std::optional<std::string> pick, pickVoice;
    if (v == "casting.cast" && m.castingCall()) {
      pick = m.castingCall()->character;
      pickVoice = m.castingCall()->voice;
    }
    JSONValue::Array people;
    for (const auto& person : m.cast()) {
      const bool named = !filter || (v == "cast" ? holds(person.id, *filter) || holds(person.name, *filter)
                                                 : person.id == *filter);
      JSONValue::Array voices;
      for (const auto& voice : person.voices) {
        if (v == "cast" && filter && !named && !holds(voice.id, *filter) && !holds(voice.name, *filter)) continue;
        // How many takes the room kept; only the picker's own listing counts them.
        JSONValue kept;
        if (v == "casting.cast") kept = JSONValue(static_cast<long long>(m.auditions().count(person.id, voice.id)));
        voices.push_back(JSONValue::object({{"id", voice.id},
                                            {"name", voice.name},
                                            {"enabled", voice.enabled},
                                            {"source", Reports::text(voice.source)},
                                            {"preview", Reports::text(voice.preview)},
                                            {"auditions", std::move(kept)}}));
      }
      if (!named && voices.empty()) continue;
      if (v == "casting.cast" && filter && !named) continue;
      people.push_back(JSONValue::object({{"id", person.id},
                                          {"name", person.name},
                                          {"defaultVoice", Reports::text(person.defaultVoiceId())},
                                          {"voices", JSONValue(std::move(voices))}}));
    }
    return OperatorResult::success(
        JSONValue::object({{"driver", m.driver()->name()},
                           {"characters", JSONValue(std::move(people))},
                           {"character", m.isOpen() ? Reports::text(m.recording().voice.character) : JSONValue()},
                           {"voice", Reports::text(m.isOpen() ? m.productionVoiceName() : std::nullopt)},
                           {"pick", Reports::text(pick)},
                           {"pickVoice", Reports::text(pickVoice)}}));
  }
  if (v == "cast.audition") {
    const std::string said = m.hear(*a.text("character"), a.text("voice"));
    return OperatorResult::success(JSONValue::object({{"said", said}, {"room", castingReport()}}));
  }
  if (v == "voice.preview") {
    const std::string said = m.hearVoice(a.text("line"));
    return OperatorResult::success(JSONValue::object({{"said", said}, {"room", castingReport()}}));
  }
  if (v == "cast.use") {
    m.castOn(a.text("line"), *a.text("character"), a.text("voice"));
    return OperatorResult::success(JSONValue::object({{"character", *a.text("character")},
                                                      {"voice", Reports::text(m.productionVoiceName())},
                                                      {"line", Reports::text(a.text("line"))}}));
  }
  if (v == "casting") {
    m.openCasting(a.text("character"), a.text("voice"), a.text("line"), a.text("tab"));
    return OperatorResult::success(castingReport());
  }
  if (v == "casting.dismiss") {
    m.closeCasting();
    return OperatorResult::success(castingReport());
  }
  if (v == "casting.audition") {
    const std::string ticket = m.auditionFromRoom(a.text("character"), a.text("voice"), a.text("prompt"));
    return OperatorResult::success(JSONValue::object({{"ticket", ticket}, {"room", castingReport()}}));
  }
  if (v == "casting.history") {
    const std::string character = *a.text("character");
    JSONValue::Object voices;
    std::vector<std::string> ids;
    if (auto voice = a.text("voice")) ids.push_back(*voice);
    else
      for (const auto& person : m.cast())
        if (person.id == character)
          for (const auto& each : person.voices) ids.push_back(each.id);
    for (const auto& id : ids) voices.emplace(id, auditionTakesReport(m.auditions().takes(character, id)));
    return OperatorResult::success(JSONValue::object({{"character", character}, {"voices", JSONValue(std::move(voices))}}));
  }
  if (v == "casting.use") {
    m.castingUse(a.text("character"), *a.text("voice"));
    return OperatorResult::success(castingReport());
  }
  return std::nullopt;
}

void OperatorService::registerCasting() {
  onBranch(&OperatorService::castingVerbs, {"cast", "cast.audition", "casting", "casting.dismiss", "casting.cast",
                                            "casting.audition", "casting.history", "casting.use", "voice.preview",
                                            "cast.use"});
}

}  // namespace tavorin
