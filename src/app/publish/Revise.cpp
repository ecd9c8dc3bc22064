#include "app/publish/Revise.hpp"

#include <map>

#include "app/export/ChildProcess.hpp"
#include "app/publish/ToolLocation.hpp"
#include "base/Text.hpp"
#include "kit/Agents.hpp"
#include "kit/Revision.hpp"
#include "kit/OutputTail.hpp"

extern char** environ;

namespace tavorin {

namespace {

std::vector<std::string> sanitisedEnvironment() {
  std::map<std::string, std::string> all;
  for (char** e = environ; *e; ++e) {
    const std::string entry(*e);
    const size_t eq = entry.find('=');
    if (eq != std::string::npos) all[entry.substr(0, eq)] = entry.substr(eq + 1);
  }
  std::vector<std::string> out;
  for (const auto& [key, value] : Agents::sanitizedEnvironment(all)) out.push_back(key + "=" + value);
  return out;
}

}  // namespace

std::string name(Revise::Phase phase) {
  switch (phase) {
    case Revise::Phase::idle: return "idle";
    case Revise::Phase::thinking: return "thinking";
    case Revise::Phase::landed: return "landed";
    case Revise::Phase::failed: return "failed";
  }
  return "idle";
}

Revise::Revise(MainActor& actor, std::optional<std::filesystem::path> claude)
    : actor_(actor), claude_(std::move(claude)) {}

Revise::~Revise() {
  if (deadline_) deadline_->cancel();
}

std::filesystem::path Revise::claudePath() const { return claude_ ? *claude_ : locateTool("claude"); }

void Revise::start(const Recording& recording, const std::filesystem::path& dir, const std::string& instruction,
                   std::function<std::string(const Recording&)> then) {
  actor_.checkOnActor();
  if (phase_ == Phase::thinking) throw ReviseError::busy();
  const std::string asked(Text::trimSpace(instruction));
  if (asked.empty()) throw ReviseError::noInstruction();
  const std::filesystem::path claude = claudePath();
  if (!isExecutable(claude)) throw ReviseError::noClaude(claude.string());

  const std::string prompt = Revision::prompt(recording, asked);
  const unsigned run = ++run_;
  auto out = std::make_shared<OutputTail>();
  auto err = std::make_shared<OutputTail>();
  // The whole reply is needed, not its tail: stdout is kept in full on the reader thread
  // and handed over once, at the end.
  auto reply = std::make_shared<std::string>();
  ChildProcess::Callbacks callbacks;
  callbacks.stdoutLine = [reply](const std::string& line) { reply->append(line).append("\n"); };
  callbacks.stderrLine = [err](const std::string& line) { err->append(line + "\n"); };
  auto land = lifetime_.guard([this, run](int status, const std::string& text, const std::string& errors) {
    if (run == run_ && phase_ == Phase::thinking) finish(status, text, errors);
  });
  callbacks.onExit = [land, reply, err, &actor = actor_](int status) {
    actor.post([land, status, text = *reply, errors = err->text()]() mutable { land(status, text, errors); });
  };
  ChildProcess::Options options;
  options.workingDirectory = dir;
  options.environment = sanitisedEnvironment();
  std::unique_ptr<ChildProcess> child;
  try {
    child = std::make_unique<ChildProcess>(claude.string(), Revision::arguments(prompt), std::move(callbacks), options);
  } catch (const std::system_error& e) {
    throw ReviseError::launchFailed(e.code().message());
  }
  // The previous run's child, if any, has ended; it is reaped here, off the reader's thread.
  process_ = std::move(child);
  phase_ = Phase::thinking;
  failure_.reset();
  version_.reset();
  instruction_ = asked;
  expectedId_ = recording.id;
  then_ = std::move(then);
  if (deadline_) deadline_->cancel();
  deadline_ = actor_.after(timeLimit, [this, run] {
    if (run != run_ || phase_ != Phase::thinking) return;
    ++run_;
    if (process_) process_->terminate();
    const auto minutes = std::chrono::duration_cast<std::chrono::seconds>(timeLimit).count();
    fail("claude gave no reply in " + std::to_string(minutes) + " seconds, so nothing was changed");
  });
}

void Revise::finish(int status, const std::string& out, const std::string& err) {
  if (deadline_) deadline_->cancel();
  if (status != 0) {
    std::string reason = lastMeaningfulLine(err);
    if (reason.empty()) reason = lastMeaningfulLine(out);
    fail(reason.empty() ? "claude exited with status " + std::to_string(status) : reason);
    return;
  }
  try {
    const Recording revised = Revision::parse(out, expectedId_);
    version_ = then_(revised);
    phase_ = Phase::landed;
  } catch (const std::exception& e) {
    fail(e.what());
  }
}

void Revise::fail(const std::string& text) {
  phase_ = Phase::failed;
  failure_ = text;
  if (onFailure) onFailure(text);
}

}  // namespace tavorin
