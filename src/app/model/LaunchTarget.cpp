#include "app/model/LaunchTarget.hpp"

namespace tavorin {

namespace fs = std::filesystem;

fs::path standardized(const fs::path& p) {
  std::error_code ec;
  fs::path a = fs::absolute(p, ec);
  if (ec) a = p;
  a = a.lexically_normal();
  if (a.has_filename() || a == a.root_path()) return a;
  return a.parent_path();  // "dir/" normalises to "dir/" with an empty filename
}

namespace {
std::string lastComponent(const fs::path& url) {
  const fs::path s = standardized(url);
  return s.filename().empty() ? s.string() : s.filename().string();
}
}  // namespace

LaunchTarget LaunchTarget::of(const fs::path& url, const fs::path& root,
                              const std::function<bool(const fs::path&)>& existsFn) {
  auto exists = existsFn ? existsFn : [](const fs::path& p) {
    std::error_code ec;
    return fs::exists(p, ec);
  };
  const fs::path u = standardized(url);
  if (exists(u / "manifest.json")) return {Kind::production, u};
  if (exists(u / "recordings")) return {Kind::project, u};
  if (u == standardized(root)) return {Kind::root, u};
  if (auto k = ImportRouter::kind(u)) return {Kind::media, u, *k};
  return {Kind::unknown, u};
}

std::string LaunchTarget::word() const {
  switch (kind) {
    case Kind::production: return "production";
    case Kind::project: return "project";
    case Kind::root: return "root";
    case Kind::media: return ImportRouter::word(media);
    case Kind::unknown: return "unknown";
  }
  return "unknown";
}

std::string LaunchTarget::refusal(const fs::path& url) {
  return lastComponent(url) + " isn't a production or a project (a production has a manifest.json beside versions/).";
}

std::string LaunchTarget::refusalWithNothingOpen(const fs::path& url) {
  return lastComponent(url) + " needs a production to go into. Open one from Projects, then drop it again.";
}

}  // namespace tavorin
