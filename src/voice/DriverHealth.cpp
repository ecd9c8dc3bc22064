#include "voice/DriverHealth.hpp"

namespace tavorin {

std::string name(DriverLocation location) {
  switch (location) {
    case DriverLocation::local: return "local";
    case DriverLocation::remote: return "remote";
    case DriverLocation::mixed: return "mixed";
  }
  return "local";
}

std::optional<DriverLocation> parseDriverLocation(std::string_view text) {
  if (text == "local") return DriverLocation::local;
  if (text == "remote") return DriverLocation::remote;
  if (text == "mixed") return DriverLocation::mixed;
  return std::nullopt;
}

DriverHealth DriverHealth::presentWith(bool clones, std::optional<DriverLocation> location, int characters, int voices,
                                    std::string source, std::optional<std::string> note) {
  return {true, clones, location, characters, voices, std::move(source), std::move(note)};
}

DriverHealth DriverHealth::absent(std::string note) { return {false, false, std::nullopt, 0, 0, "none", std::move(note)}; }

DriverHealth DriverHealth::checking(std::string_view driverName) {
  return {false, false, std::nullopt, 0, 0, std::string(checkingSource), "asking " + std::string(driverName)};
}

}  // namespace tavorin
