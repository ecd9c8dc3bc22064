#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace tavorin {

// Where an engine's inference runs.
enum class DriverLocation { local, remote, mixed };
std::string name(DriverLocation);
std::optional<DriverLocation> parseDriverLocation(std::string_view);

// What an engine answered when asked whether it can speak.
struct DriverHealth {
  static constexpr std::string_view checkingSource = "checking";

  bool present = false;
  bool clones = false;
  std::optional<DriverLocation> location;
  int characters = 0;
  int voices = 0;
  std::string source = "none";
  std::optional<std::string> note;  // why an engine is absent or degraded

  static DriverHealth presentWith(bool clones, std::optional<DriverLocation> location, int characters, int voices,
                                  std::string source, std::optional<std::string> note = std::nullopt);
  static DriverHealth absent(std::string note);
  // The placeholder while the engine is being asked.
  static DriverHealth checking(std::string_view driverName);

  bool operator==(const DriverHealth&) const = default;
};

}  // namespace tavorin
