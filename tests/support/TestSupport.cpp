#include "TestSupport.hpp"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tavorin::test {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::temp_directory_path() / "tavorin-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = fs::path(pattern);
}

TempDir::~TempDir() {
  std::error_code ec;
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(path_, ec);
}

ScopedEnv::ScopedEnv(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
  if (const char* v = std::getenv(name_.c_str())) old_ = v;
  if (value) setenv(name_.c_str(), value->c_str(), 1);
  else unsetenv(name_.c_str());
}

ScopedEnv::~ScopedEnv() {
  if (old_) setenv(name_.c_str(), old_->c_str(), 1);
  else unsetenv(name_.c_str());
}

std::string refusal(const std::function<void()>& act) {
  try {
    act();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "(no refusal)";
}

std::string readFile(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + file.string());
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void writeFile(const fs::path& file, const std::string& text) {
  if (file.has_parent_path()) fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + file.string());
  out << text;
}

}  // namespace tavorin::test
