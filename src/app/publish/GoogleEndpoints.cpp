#include "app/publish/GoogleEndpoints.hpp"

#include <cstdlib>

namespace tavorin {

GoogleEndpoints GoogleEndpoints::fromEnvironment() {
  const char* base = std::getenv("TAVORIN_GOOGLE");
  if (base && *base) return at(base);
  return {};
}

}  // namespace tavorin
