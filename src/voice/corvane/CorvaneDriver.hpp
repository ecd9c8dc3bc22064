#pragma once
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "voice/VoiceDriver.hpp"

namespace tavorin {

// The engine that speaks cloned voices. It is a script, voices.py, run once per act
// through `/usr/bin/env python3`; each run prints one JSON object. Its cast also lies
// on disk as packages, read when the engine will not answer, so the picker is never
// empty for a slow or broken engine.
class CorvaneDriver final : public VoiceDriver {
 public:
  struct Listing {
    std::vector<DriverCharacter> characters;
    DriverHealth health;
  };

  // What one run of the script came to.
  struct Run {
    bool finished = false;  // exited on its own, status 0 or not
    int status = -1;
    bool killed = false;  // ran past its deadline
    std::string out, err;
  };

  static constexpr double listingDeadline = 6.0;

  // `script`: voices.py; `charactersRoot`: the packages. Defaults: the script shipped
  // beside the studio, and ~/.config/corvane/characters.
  explicit CorvaneDriver(std::optional<std::filesystem::path> script = std::nullopt,
                         std::optional<std::filesystem::path> charactersRoot = std::nullopt,
                         double deadline = listingDeadline);

  std::string name() const override { return "corvane"; }
  DriverHealth health() override { return ask().health; }
  std::vector<DriverCharacter> characters() override { return ask().characters; }
  void refresh() override;
  RenderResult render(const std::string& text, const std::string& character, const std::string& voice,
                      const std::filesystem::path& to) override;

  // The cast, from the engine when it answers in time, else off disk; cached.
  Listing ask();
  Listing offDisk() const;
  std::vector<DriverCharacter> readPackages() const;
  // Runs `/usr/bin/env python3 <script> <arguments...>`; with a deadline, the process
  // is killed when it runs past it.
  Run run(const std::vector<std::string>& arguments, std::optional<double> deadline) const;

  // Decodes what `voices.py list` prints; throws on anything else.
  static Listing decodeListing(const std::string& json);
  // Health with the counts of a cast.
  static DriverHealth healthOf(const std::vector<DriverCharacter>& cast, bool present, bool clones, std::string source,
                               std::optional<std::string> note);

  const std::filesystem::path& charactersRoot() const { return charactersRoot_; }
  const std::filesystem::path& script() const { return script_; }
  static std::filesystem::path defaultScript();
  static std::filesystem::path defaultCharactersRoot();

 private:
  std::filesystem::path script_;
  std::filesystem::path charactersRoot_;
  std::string python_ = "/usr/bin/env";
  double deadline_;
  mutable std::mutex lock_;
  std::optional<Listing> cached_;
};

}  // namespace tavorin
