#pragma once
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "kit/Trash.hpp"

namespace tavorin {

// The home trash of a Linux desktop ($XDG_DATA_HOME/Trash), laid out so that a file
// manager lists the item and can put it back: files/<name> beside info/<name>.trashinfo.
class FreedesktopTrash : public Trash {
 public:
  using Clock = std::chrono::system_clock;

  // `home` is the Trash folder itself; by default it follows the environment on every move.
  explicit FreedesktopTrash(std::optional<std::filesystem::path> home = std::nullopt,
                            std::function<Clock::time_point()> clock = Clock::now);

  std::filesystem::path moveToTrash(const std::filesystem::path& item) override;

  // $XDG_DATA_HOME/Trash when that is set and absolute, else ~/.local/share/Trash.
  static std::filesystem::path defaultHome();
  // A path as the info file writes it: every byte outside A-Z a-z 0-9 - . _ ~ / as %XX.
  static std::string percentEncoded(const std::string& path);
  // Local time, YYYY-MM-DDThh:mm:ss.
  static std::string deletionDate(Clock::time_point t);

 private:
  std::optional<std::filesystem::path> home_;
  std::function<Clock::time_point()> clock_;
};

}  // namespace tavorin
