#include "Processes.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string_view>
#include <thread>

extern char** environ;

namespace tavorin::test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

fs::path programs() { return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "src/main"; }

Spawned spawn(const fs::path& program, const std::vector<std::string>& args, const std::vector<std::string>& env,
              const fs::path& logs) {
  static std::atomic<int> counter{0};
  const int n = ++counter;
  Spawned s;
  s.out = logs / ("out" + std::to_string(n));
  s.err = logs / ("err" + std::to_string(n));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, s.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, s.err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<std::string> argStore{program.string()};
  argStore.insert(argStore.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : argStore) argv.push_back(a.data());
  argv.push_back(nullptr);
  std::vector<std::string> envStore;
  // A variable the caller names replaces the inherited one: getenv reads the first
  // entry, so an appended HOME would never be seen.
  auto named = [&](const std::string& entry) {
    const std::string key = entry.substr(0, entry.find('=') + 1);
    for (const auto& e : env)
      if (e.rfind(key, 0) == 0) return true;
    return false;
  };
  for (char** e = environ; *e; ++e)
    if (!named(*e)) envStore.emplace_back(*e);
  envStore.insert(envStore.end(), env.begin(), env.end());
  std::vector<char*> envp;
  for (auto& e : envStore) envp.push_back(e.data());
  envp.push_back(nullptr);
  if (posix_spawn(&s.pid, program.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) s.pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return s;
}

int waitFor(pid_t pid, std::chrono::milliseconds limit) {
  const auto until = std::chrono::steady_clock::now() + limit;
  do {
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    std::this_thread::sleep_for(5ms);
  } while (std::chrono::steady_clock::now() < until);
  return -1;
}

bool waitForFile(const fs::path& file, std::chrono::milliseconds limit) {
  const auto until = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < until) {
    if (fs::exists(file)) return true;
    std::this_thread::sleep_for(5ms);
  }
  return false;
}

}  // namespace tavorin::test
