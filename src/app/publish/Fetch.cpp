#include "app/publish/Fetch.hpp"

#include "app/export/ChildProcess.hpp"
#include "app/publish/ToolLocation.hpp"
#include "kit/FetchPlan.hpp"
#include "kit/OutputTail.hpp"

namespace tavorin {

std::string name(Fetch::Phase phase) {
  switch (phase) {
    case Fetch::Phase::idle: return "idle";
    case Fetch::Phase::fetching: return "fetching";
    case Fetch::Phase::done: return "done";
    case Fetch::Phase::failed: return "failed";
  }
  return "idle";
}

Fetch::Fetch(MainActor& actor, std::optional<std::filesystem::path> ytdlp) : actor_(actor), ytdlp_(std::move(ytdlp)) {}

Fetch::~Fetch() = default;

std::filesystem::path Fetch::ytdlpPath() const { return ytdlp_ ? *ytdlp_ : locateTool("yt-dlp"); }

void Fetch::start(const std::string& url, const std::filesystem::path& folder, std::optional<double> start,
                  std::optional<double> end, std::function<void(const std::filesystem::path&)> then) {
  actor_.checkOnActor();
  if (phase_ == Phase::fetching) throw FetchError::busy();
  const FetchPlan::Plan plan = FetchPlan::plan(url, folder, actor_.wallNow(), start, end);
  const std::filesystem::path ytdlp = ytdlpPath();
  if (!isExecutable(ytdlp)) throw FetchError::noYtDlp(ytdlp.string());
  std::error_code ec;
  std::filesystem::create_directories(folder, ec);
  if (ec) throw FetchError::launchFailed("could not make " + folder.string() + ": " + ec.message());

  const unsigned run = ++run_;
  auto tail = std::make_shared<OutputTail>();
  auto moved = lifetime_.guard([this, run](double fraction) {
    if (run == run_ && phase_ == Phase::fetching) progress_ = std::max(progress_, fraction);
  });
  auto ended = lifetime_.guard([this, run](int status, const std::string& text) {
    if (run == run_ && phase_ == Phase::fetching) finish(status, text);
  });
  ChildProcess::Callbacks callbacks;
  callbacks.stdoutLine = [tail, moved, &actor = actor_](const std::string& line) {
    tail->append(line + "\n");
    if (const auto fraction = FetchPlan::progress(line))
      actor.post([moved, f = *fraction]() mutable { moved(f); });
  };
  callbacks.stderrLine = [tail](const std::string& line) { tail->append(line + "\n"); };
  callbacks.onExit = [tail, ended, &actor = actor_](int status) {
    actor.post([ended, status, text = tail->text()]() mutable { ended(status, text); });
  };
  std::unique_ptr<ChildProcess> child;
  try {
    child = std::make_unique<ChildProcess>(ytdlp.string(), plan.arguments, std::move(callbacks));
  } catch (const std::system_error& e) {
    throw FetchError::launchFailed(e.code().message());
  }
  process_ = std::move(child);
  phase_ = Phase::fetching;
  progress_ = 0;
  failure_.reset();
  output_.reset();
  expected_ = plan.output;
  url_ = url;
  arguments_ = plan.arguments;
  then_ = std::move(then);
}

void Fetch::cancel() {
  ++run_;
  if (process_) process_->terminate();
  phase_ = Phase::idle;
  progress_ = 0;
}

void Fetch::finish(int status, const std::string& tail) {
  std::error_code ec;
  if (status == 0 && std::filesystem::is_regular_file(expected_, ec)) {
    try {
      output_ = expected_;
      progress_ = 1;
      then_(expected_);
      phase_ = Phase::done;
      return;
    } catch (const std::exception& e) {
      phase_ = Phase::failed;
      failure_ = e.what();
      output_.reset();
      if (onFailure) onFailure(*failure_);
      return;
    }
  }
  const std::string reason = lastMeaningfulLine(tail);
  phase_ = Phase::failed;
  failure_ = "yt-dlp couldn't fetch that: " + (reason.empty() ? "status " + std::to_string(status) : reason);
  if (onFailure) onFailure(*failure_);
}

}  // namespace tavorin
