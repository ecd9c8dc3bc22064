// The model's side of the voice engines: answers asked once and cached, the line a
// production is cast with, the local server's address, the generations and a line's
// own audio.
#include <algorithm>
#include <cmath>

#include "app/model/AppModel.hpp"
#include "platform/UserDefaults.hpp"
#include "voice/AudioFile.hpp"
#include "voice/VoiceLadder.hpp"
#include "voice/corvane/CorvaneDriver.hpp"
#include "voice/local/LocalDriver.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

std::string trimmed(const std::string& text) {
  static constexpr std::string_view space = " \t\n\r\f\v";
  auto first = text.find_first_not_of(space);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(space) - first + 1);
}

}  // namespace

void AppModel::useVoiceEngines(std::shared_ptr<VoiceEngines> engines, EngineAnswers::Offload offload) {
  engines_ = std::move(engines);
  answers_ = std::make_unique<EngineAnswers>(std::move(offload));
}

const VoiceEngines& AppModel::engines() {
  if (!engines_) {
    // Kokoro's driver arrives with its own engine; until then it says so.
    const bool corvaneOpen = VoiceEngines::corvaneReleased(UserDefaults::standard());
    auto standard = std::make_shared<VoiceEngines>(corvaneOpen, corvaneOpen ? std::make_shared<CorvaneDriver>() : nullptr,
                                                   std::make_shared<ComingSoon>("kokoro"),
                                                   std::make_shared<LocalDriver>(LocalServer::file()));
    // The engines' own answers never throw: a failure is an absent engine.
    useVoiceEngines(standard, [this](std::function<void()> work, std::function<void()> then) {
      offloader_.offload(std::move(work), [then](std::exception_ptr) { then(); });
    });
  }
  return *engines_;
}

std::shared_ptr<VoiceDriver> AppModel::driver() {
  return engines().pick(stored_ ? std::optional<std::string>(stored_->voice.driver) : std::nullopt);
}

void AppModel::askDriversOnce(bool announce) {
  auto current = driver();
  const std::string currentName = current->name();
  answers_->askOnce(*engines_, current, [this, announce, currentName](const std::string& name) {
    if (announce && name == currentName) note("asked " + name + " again — " + rungSays());
  });
}

DriverHealth AppModel::voiceHealth() {
  askDriversOnce(false);
  return answers_->health(driver()->name());
}

DriverHealth AppModel::health(const VoiceDriver& of) {
  askDriversOnce(false);
  return answers_->health(of.name());
}

std::vector<DriverCharacter> AppModel::cast() {
  askDriversOnce(false);
  return answers_->cast(driver()->name());
}

std::string AppModel::rungSays() {
  const bool nativeReady = health(*engines().kokoro()).present;
  return VoiceLadder::pickerSays(driver()->name(), voiceHealth(), stored_ ? &*stored_ : nullptr, nativeReady);
}

void AppModel::refreshDriver() {
  for (auto& each : engines().all()) each->refresh();
  answers_->forget();
  askDriversOnce(true);
}

std::string AppModel::voiceModel() const {
  const std::string name = stored_ ? stored_->voice.driver : "";
  if (name == "kokoro") return "kokoro-native";
  if (name == "local") return "local";
  return "orvelline";
}

std::string AppModel::voiceModelTitle() {
  const std::string value = voiceModel();
  for (const auto& row : engines().models())
    if (row.value == value) return row.title;
  return value;
}

std::string AppModel::namedVoice(const std::string& character, const std::optional<std::string>& voice) {
  try {
    return VoicePlan::namedVoice(cast(), driver()->name(), character, voice);
  } catch (const VoiceRefusal& refusal) {
    throw Failure::cannotVoice(refusal.what());
  }
}

VoicePlan AppModel::voicePlan(const TimelineItem& item, const Recording& in) {
  return VoicePlan::of(item, in, cast(), driver()->name());
}

std::optional<std::string> AppModel::productionVoiceName() {
  if (!stored_ || !stored_->voice.character || stored_->voice.character->empty()) return std::nullopt;
  try {
    return namedVoice(*stored_->voice.character, stored_->voice.voice);
  } catch (const Failure&) {
    return std::nullopt;
  }
}

std::optional<std::string> AppModel::productionVoiceRefusal() {
  if (!stored_ || !stored_->voice.character || stored_->voice.character->empty()) return std::nullopt;
  try {
    namedVoice(*stored_->voice.character, stored_->voice.voice);
    return std::nullopt;
  } catch (const Failure& failure) {
    return failure.what();
  }
}

void AppModel::useLocalServer(const std::optional<std::string>& url, const std::optional<std::string>& key) {
  auto local = engines().local();
  const LocalServer current = local->server();
  LocalServer next = current;
  if (url) {
    auto normalized = LocalServer::normalized(*url);
    if (!normalized)
      throw Failure::badChoice(*url, "server address",
                               "host:port or an http(s) base URL, such as 127.0.0.1:8080 or http://host:8880");
    next.url = *normalized;
  }
  if (key) {
    std::string bare = trimmed(*key);
    next.key = bare.empty() ? std::nullopt : std::optional<std::string>(bare);
  }
  if (next == current) return;
  try {
    local->use(next);
  } catch (const std::exception& error) {
    throw Failure::cannotVoice(error.what());
  }
  ++localServerRevision_;
  note("local voice server set to " + next.url + (next.key ? " with a key" : ""));
  refreshDriver();
}

void AppModel::editVoiceField(Recording& next, const std::string& field, const std::string& value) {
  if (field == "driver") {
    auto key = VoiceEngines::settled(value.empty() ? "kokoro" : value);
    auto found = key ? engines().named(*key) : nullptr;
    if (!found) {
      std::string names;
      for (const auto& each : engines().all()) names += (names.empty() ? "" : " · ") + each->name();
      throw Failure::badChoice(value, "voice engine", names);
    }
    next.voice.driver = found->name();
  } else if (field == "span") {
    if (value.empty() || value == "line") {
      next.voice.span.reset();
      return;
    }
    auto span = VoiceSpan::named(value);
    if (!span && VoiceSpan::parse(value).groups()) span = VoiceSpan::parse(value);
    if (!span) throw Failure::badChoice(value, "span", "line · chars:300 · chars:600 · chars:1000 · cue");
    next.voice.span = span->raw();
  } else if (field == "character") {
    const std::string character = trimmed(value);
    const auto oldVoice = next.voice.voice;
    next.voice.character = character.empty() ? std::nullopt : std::optional<std::string>(character);
    if (character.empty()) {
      next.voice.voice.reset();
    } else if (auto kept = VoicePlan::surviving(cast(), oldVoice, character)) {
      next.voice.voice = kept;
    } else {
      try {
        next.voice.voice = namedVoice(character, std::nullopt);
      } catch (const Failure&) {
        next.voice.voice.reset();
      }
    }
  } else {  // voice
    if (!value.empty()) {
      next.voice.voice = value;
    } else if (next.voice.character && !next.voice.character->empty()) {
      try {
        next.voice.voice = namedVoice(*next.voice.character, std::nullopt);
      } catch (const Failure&) {
        next.voice.voice.reset();
      }
    } else {
      next.voice.voice.reset();
    }
  }
}

// ---- Generations -------------------------------------------------------------------

VoiceSpan AppModel::voiceSpan() const { return stored_ ? VoiceSpan::parse(stored_->voice.span) : VoiceSpan::line(); }

VoiceGroups::CueTags AppModel::cueTags() const {
  VoiceGroups::CueTags tags;
  if (!stored_) return tags;
  std::vector<std::pair<double, std::string>> cueTimes;
  for (const auto& step : blockingSteps_) {
    if (!step.kind.is<Blocking::Kind::Cue>()) continue;  // only cue steps name a section
    for (const auto& cue : cues_)
      if (cue.id == step.id) cueTimes.emplace_back(cue.time, Schedule::label(step));
  }
  for (const auto& item : stored_->timeline) {
    if (item.type != ItemType::line || !item.start) continue;
    std::optional<std::string> tag;
    for (const auto& [time, label] : cueTimes)
      if (time <= *item.start + Schedule::seam) tag = label;
    if (tag) tags[item.id] = *tag;
  }
  return tags;
}

std::vector<VoiceGroups::Group> AppModel::voiceGroups() const {
  if (!stored_) return {};
  return VoiceGroups::of(*stored_, voiceSpan().kind == VoiceSpan::Kind::cue ? cueTags() : VoiceGroups::CueTags{});
}

std::optional<VoiceGroups::Group> AppModel::voiceGroup(const std::string& id) const {
  for (auto& group : voiceGroups())
    if (std::find(group.lineIds.begin(), group.lineIds.end(), id) != group.lineIds.end()) return group;
  return std::nullopt;
}

bool AppModel::isContiguous(const std::string& group) const {
  return stored_ && Schedule::isContiguous(*stored_, group);
}

}  // namespace tavorin
