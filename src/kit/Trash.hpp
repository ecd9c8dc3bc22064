#pragma once
#include <filesystem>

namespace tavorin {

// The desktop's wastebasket, where a whole project goes so that a file manager can
// bring it back. The kit only asks; the platform layer knows how.
struct Trash {
  virtual ~Trash() = default;
  // Moves `item` away and returns where it now lies. Throws a readable sentence when
  // it cannot, leaving `item` where it was.
  virtual std::filesystem::path moveToTrash(const std::filesystem::path& item) = 0;
};

}  // namespace tavorin
