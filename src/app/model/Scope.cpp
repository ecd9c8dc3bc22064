#include "app/model/Scope.hpp"

#include <optional>

#include "platform/TavorinPaths.hpp"
#include "platform/UserDefaults.hpp"

namespace tavorin {

namespace {
std::optional<bool> decided;
}

bool Scope::scripting() {
  if (!decided) {
    if (Environment::value("TAVORIN_SCRIPTING") == std::optional<std::string>("0")) decided = false;
    else if (auto d = UserDefaults::standard().boolValue("scripting")) decided = *d;
    else decided = true;
  }
  return *decided;
}

void Scope::resetForTesting() { decided.reset(); }

}  // namespace tavorin
