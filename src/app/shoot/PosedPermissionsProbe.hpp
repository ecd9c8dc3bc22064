#pragma once
#include <optional>
#include <string>
#include <string_view>

#include "app/shoot/PermissionsProbe.hpp"

namespace tavorin {

// Answers from a fixed picture, so every look of the sheet can be seen on a desktop
// that has every grant, and tests touch nothing of the desktop. Its acts change
// nothing: the picture is the pose.
class PosedPermissionsProbe final : public PermissionsProbe {
 public:
  enum class Pose { none, mixed, all, relaunch, blocked };
  // The words TAVORIN_FORCE_PERMISSIONS_SHEET accepts.
  static std::optional<Pose> named(std::string_view word);
  static std::string word(Pose pose);

  explicit PosedPermissionsProbe(Pose pose) : pose(pose) {}

  bool isBundled() const override { return true; }
  GrantHolder grantHolder() const override { return GrantHolder{"Tavorin", "/usr/bin/tavorin", 0, false}; }
  bool screenRecording() override;
  bool accessibility() override { return pose != Pose::none && pose != Pose::mixed; }
  AutomationState automation(bool) override;
  CameraVerdict exerciseCamera() override;
  void requestScreenRecording() override { ++requests; }
  void requestAccessibility() override { ++requests; }
  void requestAutomation() override { ++requests; }
  ChromeJSState probeChromeJS() override;
  SettingsOpened openSettings(Need need) override;
  void openChrome() override { ++requests; }
  void relaunch() override { ++requests; }
  bool agentCommand() override { return pose != Pose::none; }

  Pose pose;
  // How often the screen was asked about: the relaunch pose answers no only to the
  // first question, the one a launch asks.
  int screenReads = 0;
  int requests = 0;
};

}  // namespace tavorin
