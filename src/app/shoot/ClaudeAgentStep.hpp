#pragma once
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "app/model/MainActor.hpp"
#include "app/shoot/AgentStepDriver.hpp"
#include "base/LifetimeToken.hpp"

namespace tavorin {

// Runs an agent step through the `claude` program: one child a step, its words as
// arguments (never through a shell), killed at the step's timeout or on abort.
class ClaudeAgentStep final : public AgentStepDriver {
 public:
  // `home` empty: the user's home folder, read when a step starts.
  explicit ClaudeAgentStep(MainActor& actor, std::filesystem::path home = {});
  ~ClaudeAgentStep() override;

  std::optional<std::filesystem::path> workingDirectory;
  // Seconds between asking the child to end and forcing it.
  double graceSeconds = 2;

  // ~/.local/bin/claude when it is there, else `claude` on PATH, else the first.
  std::string program() const;

  void run(const Blocking::AgentCall& call, const std::optional<AgentPolicy>& policy, Done done) override;
  void abort() override;

 private:
  struct Child;
  void kill();
  MainActor& actor_;
  std::filesystem::path home_;
  std::shared_ptr<Child> child_;
  LifetimeToken alive_;
};

}  // namespace tavorin
