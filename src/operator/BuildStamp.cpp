#include "operator/BuildStamp.hpp"

namespace tavorin {

namespace fs = std::filesystem;

std::optional<fs::path> BuildStamp::checkoutRoot(const fs::path& binary,
                                                 const std::function<bool(const fs::path&)>& exists) {
  fs::path dir = binary.parent_path();
  while (!dir.empty()) {
    if (exists(dir / "CMakeCache.txt")) {
      const fs::path root = dir.parent_path();
      if (exists(root / "CMakeLists.txt") && exists(root / "src")) return root;
      return std::nullopt;
    }
    if (dir == dir.root_path() || dir.parent_path() == dir) break;
    dir = dir.parent_path();
  }
  return std::nullopt;
}

fs::path BuildStamp::currentExecutable() {
  std::error_code ec;
  fs::path p = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : p;
}

}  // namespace tavorin
