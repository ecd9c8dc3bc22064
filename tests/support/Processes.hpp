#pragma once
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace tavorin::test {

// The built programs: <build>/src/main, beside this test's <build>/tests.
std::filesystem::path programs();

struct Spawned {
  pid_t pid = -1;
  std::filesystem::path out, err;
};

// Starts a program with extra environment entries ("NAME=value"); its standard
// output and error go to files under `logs`.
Spawned spawn(const std::filesystem::path& program, const std::vector<std::string>& args,
              const std::vector<std::string>& env, const std::filesystem::path& logs);
// The exit status (128 + signal when killed), or -1 when still running after `limit`.
int waitFor(pid_t pid, std::chrono::milliseconds limit);
bool waitForFile(const std::filesystem::path& file, std::chrono::milliseconds limit);

}  // namespace tavorin::test
