#pragma once
#include <filesystem>
#include <functional>
#include <optional>
#include <memory>
#include <string>
#include <vector>

namespace tavorin {

// One child program with its output read line by line on a thread of its own. The
// callbacks run on that thread; `onExit` comes last, once both pipes have closed.
class ChildProcess {
 public:
  struct Callbacks {
    std::function<void(const std::string&)> stdoutLine;
    std::function<void(const std::string&)> stderrLine;
    std::function<void(int status)> onExit;  // the exit code, or 128 + the signal
  };

  // Where the child starts and what it sees; left out, it inherits both.
  struct Options {
    std::optional<std::filesystem::path> workingDirectory;
    std::optional<std::vector<std::string>> environment;  // "KEY=value" entries
  };

  // Throws std::system_error with the system's words when the program cannot start.
  ChildProcess(const std::string& program, const std::vector<std::string>& args, Callbacks callbacks);
  ChildProcess(const std::string& program, const std::vector<std::string>& args, Callbacks callbacks,
               const Options& options);
  // Stops the child and waits for the reader; no callback runs after.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void terminate();
  int pid() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tavorin
