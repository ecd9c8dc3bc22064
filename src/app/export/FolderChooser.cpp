#include "app/export/FolderChooser.hpp"

#include <signal.h>
#include <unistd.h>

#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "app/export/ChildProcess.hpp"
#include "base/Text.hpp"
#include "platform/TavorinPaths.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {
std::mutex openLock;
std::set<pid_t> open;
bool closing = false;
}  // namespace

std::optional<fs::path> FolderChooser::program() {
  const std::string path = Environment::value("PATH").value_or("/usr/bin:/bin");
  for (const auto& folder : Text::split(path, ':')) {
    if (folder.empty()) continue;
    const fs::path candidate = fs::path(folder) / "zenity";
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

std::optional<fs::path> FolderChooser::ask(const std::string& title, const fs::path& start) {
  const auto zenity = program();
  if (!zenity) throw std::runtime_error("there is no folder chooser on this desktop: install zenity (Debian package zenity)");
  return ask(*zenity, title, start);
}

std::optional<fs::path> FolderChooser::ask(const fs::path& program, const std::string& title, const fs::path& start) {
  struct Answer {
    std::mutex lock;
    std::vector<std::string> out, err;
  };
  auto answer = std::make_shared<Answer>();
  auto ended = std::make_shared<std::promise<int>>();
  std::future<int> status = ended->get_future();
  ChildProcess::Callbacks callbacks;
  callbacks.stdoutLine = [answer](const std::string& line) {
    std::lock_guard hold(answer->lock);
    answer->out.push_back(line);
  };
  callbacks.stderrLine = [answer](const std::string& line) {
    std::lock_guard hold(answer->lock);
    answer->err.push_back(line);
  };
  callbacks.onExit = [ended](int code) { ended->set_value(code); };
  // A trailing slash opens the chooser inside the folder rather than on it.
  const std::vector<std::string> args{"--file-selection", "--directory", "--title=" + title,
                                      "--filename=" + (start / "").string()};
  {
    std::lock_guard hold(openLock);
    if (closing) return std::nullopt;
  }
  std::unique_ptr<ChildProcess> child;
  try {
    child = std::make_unique<ChildProcess>(program.string(), args, std::move(callbacks));
  } catch (const std::system_error& e) {
    throw std::runtime_error("the folder chooser could not start: " + e.code().message());
  }
  const pid_t pid = child->pid();
  {
    std::lock_guard hold(openLock);
    if (closing) return std::nullopt;
    open.insert(pid);
  }
  const int code = status.get();
  bool closed = false;
  {
    std::lock_guard hold(openLock);
    open.erase(pid);
    closed = closing;
  }
  std::lock_guard hold(answer->lock);
  // zenity says 1 for Cancel and for closing the window: the person's no, never a failure.
  if (code == 1 || closed) return std::nullopt;
  if (code == 0) {
    for (const auto& line : answer->out)
      if (!Text::trimSpace(line).empty()) return fs::path(std::string(Text::trimSpace(line)));
    return std::nullopt;
  }
  for (auto line = answer->err.rbegin(); line != answer->err.rend(); ++line)
    if (!Text::trimSpace(*line).empty())
      throw std::runtime_error("the folder chooser failed: " + std::string(Text::trimSpace(*line)));
  throw std::runtime_error("the folder chooser failed with status " + std::to_string(code));
}

void FolderChooser::closeAll() {
  std::lock_guard hold(openLock);
  closing = true;
  for (pid_t pid : open) ::kill(pid, SIGTERM);
}

}  // namespace tavorin
