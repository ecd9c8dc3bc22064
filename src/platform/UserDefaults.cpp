#include "platform/UserDefaults.hpp"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "platform/TavorinPaths.hpp"
#include "base/AtomicFile.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {
json readAll(const fs::path& file) {
  std::ifstream in(file);
  if (!in) return json::object();
  std::stringstream s;
  s << in.rdbuf();
  try {
    json j = json::parse(s.str());
    return j.is_object() ? j : json::object();
  } catch (const json::exception&) {
    return json::object();
  }
}

void writeAll(const fs::path& file, const json& j) {
  std::error_code ec;
  fs::create_directories(file.parent_path(), ec);
  AtomicFile::write(file, j.dump(2) + "\n");
}
}  // namespace

UserDefaults UserDefaults::standard() { return UserDefaults(TavorinPaths::supportDir() / "defaults.json"); }

std::optional<bool> UserDefaults::boolValue(const std::string& key) const {
  const json j = readAll(file_);
  auto it = j.find(key);
  if (it == j.end() || !it->is_boolean()) return std::nullopt;
  return it->get<bool>();
}

std::optional<std::string> UserDefaults::stringValue(const std::string& key) const {
  const json j = readAll(file_);
  auto it = j.find(key);
  if (it == j.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

void UserDefaults::set(const std::string& key, bool value) const {
  json j = readAll(file_);
  j[key] = value;
  writeAll(file_, j);
}

void UserDefaults::set(const std::string& key, const std::string& value) const {
  json j = readAll(file_);
  j[key] = value;
  writeAll(file_, j);
}

}  // namespace tavorin
