#include "app/shoot/PosedPermissionsProbe.hpp"

namespace tavorin {

namespace {
constexpr PosedPermissionsProbe::Pose poses[] = {PosedPermissionsProbe::Pose::none, PosedPermissionsProbe::Pose::mixed,
                                                 PosedPermissionsProbe::Pose::all, PosedPermissionsProbe::Pose::relaunch,
                                                 PosedPermissionsProbe::Pose::blocked};
}

std::string PosedPermissionsProbe::word(Pose pose) {
  switch (pose) {
    case Pose::none: return "none";
    case Pose::mixed: return "mixed";
    case Pose::all: return "all";
    case Pose::relaunch: return "relaunch";
    case Pose::blocked: return "blocked";
  }
  return "none";
}

std::optional<PosedPermissionsProbe::Pose> PosedPermissionsProbe::named(std::string_view w) {
  for (Pose p : poses)
    if (word(p) == w) return p;
  return std::nullopt;
}

bool PosedPermissionsProbe::screenRecording() {
  ++screenReads;
  switch (pose) {
    case Pose::none: return false;
    case Pose::relaunch: return screenReads > 1;
    default: return true;
  }
}

AutomationState PosedPermissionsProbe::automation(bool) {
  switch (pose) {
    case Pose::none: return AutomationState::notDetermined;
    case Pose::mixed: return AutomationState::denied;
    default: return AutomationState::granted;
  }
}

CameraVerdict PosedPermissionsProbe::exerciseCamera() {
  if (pose == Pose::none) return CameraVerdict{CameraVerdict::Kind::noAccess, 0, std::nullopt};
  if (pose == Pose::blocked) return CameraVerdict{CameraVerdict::Kind::blocked, 0, std::string("no frames arrived")};
  return CameraVerdict{CameraVerdict::Kind::proven, 0.12, std::nullopt};
}

ChromeJSState PosedPermissionsProbe::probeChromeJS() {
  switch (pose) {
    case Pose::none: return ChromeJSState::unknown;
    case Pose::mixed: return ChromeJSState::off;
    default: return ChromeJSState::on;
  }
}

SettingsOpened PosedPermissionsProbe::openSettings(Need need) {
  ++requests;
  return SettingsOpened{false, "a posed sheet opens nothing for " + tavorin::word(need)};
}

}  // namespace tavorin
