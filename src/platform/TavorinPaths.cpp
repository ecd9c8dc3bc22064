#include "platform/TavorinPaths.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace tavorin {

namespace fs = std::filesystem;

std::optional<std::string> Environment::value(const char* name) {
  const char* v = std::getenv(name);
  if (!v) return std::nullopt;
  return std::string(v);
}

bool Environment::present(const char* name) { return std::getenv(name) != nullptr; }

fs::path Environment::home() {
  if (auto h = value("HOME"); h && !h->empty()) return fs::path(*h);
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return fs::path(pw->pw_dir);
  return fs::path("/");
}

fs::path Environment::expandTilde(const std::string& text) {
  if (text == "~") return home();
  if (text.rfind("~/", 0) == 0) return home() / text.substr(2);
  return fs::path(text);
}

fs::path TavorinPaths::applicationSupport() {
  if (auto xdg = Environment::value("XDG_DATA_HOME"); xdg && !xdg->empty() && fs::path(*xdg).is_absolute())
    return fs::path(*xdg);
  return Environment::home() / ".local" / "share";
}

fs::path TavorinPaths::productionsRoot() {
  if (auto root = Environment::value("TAVORIN_ROOT"); root && !root->empty()) return Environment::expandTilde(*root);
  return Environment::home() / "Tavorin";
}

fs::path TavorinPaths::supportDir() {
  if (auto s = Environment::value("TAVORIN_SUPPORT"); s && !s->empty()) return Environment::expandTilde(*s);
  return applicationSupport() / "Tavorin";
}

}  // namespace tavorin
