#pragma once
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "voice/VoiceDriver.hpp"

namespace tavorin {

class LocalDriver;
class UserDefaults;

// A row of the engine form.
struct FormOption {
  std::string value, title, note;
  bool disabled = false;
  bool operator==(const FormOption&) const = default;
};

// The placeholder for an engine that is not released yet.
class ComingSoon final : public VoiceDriver {
 public:
  struct Unreleased : std::runtime_error {
    using std::runtime_error::runtime_error;
  };
  explicit ComingSoon(std::string name = "corvane") : name_(std::move(name)) {}
  std::string name() const override { return name_; }
  DriverHealth health() override { return DriverHealth::absent(name_ + " is coming soon"); }
  std::vector<DriverCharacter> characters() override { return {}; }
  RenderResult render(const std::string&, const std::string&, const std::string&,
                      const std::filesystem::path&) override {
    throw Unreleased(name_ + " is coming soon");
  }

 private:
  std::string name_;
};

// The engines the studio knows, owned by the model.
class VoiceEngines {
 public:
  // A template so that this library needs no header of the local driver's: the
  // caller, which holds a LocalDriver, makes the conversion.
  template <class Local>
  VoiceEngines(bool corvaneOpen, std::shared_ptr<VoiceDriver> corvane, std::shared_ptr<VoiceDriver> kokoro,
               std::shared_ptr<Local> local)
      : VoiceEngines(corvaneOpen, std::move(corvane), std::move(kokoro), std::shared_ptr<VoiceDriver>(local)) {
    local_ = std::move(local);
  }

  bool corvaneOpen() const { return corvaneOpen_; }
  const std::shared_ptr<VoiceDriver>& corvane() const { return corvane_; }
  const std::shared_ptr<VoiceDriver>& kokoro() const { return kokoro_; }
  const std::shared_ptr<LocalDriver>& local() const { return local_; }
  const std::shared_ptr<VoiceDriver>& localDriver() const { return localDriver_; }

  // The production's engine; a name that is none of ours lands on the external one.
  std::shared_ptr<VoiceDriver> pick(const std::optional<std::string>& name) const;
  std::vector<std::shared_ptr<VoiceDriver>> all() const;
  std::shared_ptr<VoiceDriver> named(std::string_view name) const;
  std::vector<FormOption> models() const;

  // The user's word for an engine, as its key: "native" is "kokoro", "server" is "local".
  static std::optional<std::string> settled(std::string_view text);
  // TAVORIN_CORVANE=1, else the user default `corvane`.
  static bool corvaneReleased(const UserDefaults& defaults);

 private:
  VoiceEngines(bool corvaneOpen, std::shared_ptr<VoiceDriver> corvane, std::shared_ptr<VoiceDriver> kokoro,
               std::shared_ptr<VoiceDriver> local);
  bool corvaneOpen_;
  std::shared_ptr<VoiceDriver> corvane_, kokoro_, localDriver_;
  std::shared_ptr<LocalDriver> local_;
};

}  // namespace tavorin
