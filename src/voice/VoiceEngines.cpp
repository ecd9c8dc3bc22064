#include "voice/VoiceEngines.hpp"

#include <algorithm>
#include <cctype>

#include "platform/TavorinPaths.hpp"
#include "platform/UserDefaults.hpp"

namespace tavorin {

VoiceEngines::VoiceEngines(bool corvaneOpen, std::shared_ptr<VoiceDriver> corvane, std::shared_ptr<VoiceDriver> kokoro,
                           std::shared_ptr<VoiceDriver> local)
    : corvaneOpen_(corvaneOpen),
      corvane_(corvane ? std::move(corvane) : std::make_shared<ComingSoon>()),
      kokoro_(std::move(kokoro)),
      localDriver_(std::move(local)) {}

std::shared_ptr<VoiceDriver> VoiceEngines::pick(const std::optional<std::string>& name) const {
  if (name == "kokoro") return kokoro_;
  if (name == "local") return localDriver_;
  return corvane_;
}

std::vector<std::shared_ptr<VoiceDriver>> VoiceEngines::all() const {
  std::vector<std::shared_ptr<VoiceDriver>> out;
  if (corvaneOpen_) out.push_back(corvane_);
  out.push_back(kokoro_);
  out.push_back(localDriver_);
  return out;
}

std::shared_ptr<VoiceDriver> VoiceEngines::named(std::string_view name) const {
  for (auto& driver : all())
    if (driver->name() == name) return driver;
  return nullptr;
}

std::vector<FormOption> VoiceEngines::models() const {
  FormOption native{"kokoro-native", "Kokoro (Native)", "no install needed", false};
  FormOption server{"local", "Local", "your own TTS server", false};
  if (corvaneOpen_) return {{"orvelline", "Corvane", "", false}, native, server};
  return {native, server, {"orvelline", "Corvane", "coming soon", true}};
}

std::optional<std::string> VoiceEngines::settled(std::string_view text) {
  static constexpr std::string_view space = " \t\n\r\f\v";
  auto first = text.find_first_not_of(space);
  if (first == std::string_view::npos) return std::nullopt;
  std::string word(text.substr(first, text.find_last_not_of(space) - first + 1));
  std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::tolower(c); });
  if (word == "corvane" || word == "orvelline") return "corvane";
  if (word == "kokoro" || word == "kokoro-native" || word == "native") return "kokoro";
  if (word == "local" || word == "server") return "local";
  return std::nullopt;
}

bool VoiceEngines::corvaneReleased(const UserDefaults& defaults) {
  if (Environment::value("TAVORIN_CORVANE") == "1") return true;
  return defaults.boolValue("corvane").value_or(false);
}

}  // namespace tavorin
