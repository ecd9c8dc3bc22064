#pragma once
#include <filesystem>
#include <optional>
#include <string>

namespace tavorin {

// The user's few preferences, in defaults.json in the support folder.
class UserDefaults {
 public:
  explicit UserDefaults(std::filesystem::path file) : file_(std::move(file)) {}
  // The file in the support folder named by the environment now.
  static UserDefaults standard();

  // Nothing when the key is missing, of another type, or the file will not read.
  std::optional<bool> boolValue(const std::string& key) const;
  std::optional<std::string> stringValue(const std::string& key) const;
  // Writes the whole file again with the key set. Throws with a sentence.
  void set(const std::string& key, bool value) const;
  void set(const std::string& key, const std::string& value) const;

  const std::filesystem::path& file() const { return file_; }

 private:
  std::filesystem::path file_;
};

}  // namespace tavorin
