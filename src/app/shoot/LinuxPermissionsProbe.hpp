#pragma once
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/shoot/PermissionsProbe.hpp"

namespace tavorin {

// The grants of an X11 desktop: the display can be opened and grabbed, XTEST is
// there for input, Chromium is installed and answers over its DevTools pipe, and
// `claude` is there for agent steps. Nothing here prompts: an X server has no
// dialog to ask through, so screen and input offer their documentation at once.
// The browser's answers are kept, since asking means starting it.
class LinuxPermissionsProbe final : public PermissionsProbe {
 public:
  struct Options {
    std::optional<std::string> display;      // default: $DISPLAY
    std::string browserProgram = "chromium";  // looked for on PATH
    std::filesystem::path browserProfile;     // default: <support>/chromium-check
    std::string opener = "xdg-open";          // what opens a settings document
    // What each need's settings button opens, the first that exists on this desktop.
    std::map<Need, std::vector<std::string>> settings;
    std::filesystem::path home;               // default: the user's home
    std::filesystem::path executable;         // default: this program
    // Starts a fresh copy and ends this one; without it, relaunch does nothing.
    std::function<void()> relaunch;
  };
  LinuxPermissionsProbe();
  explicit LinuxPermissionsProbe(Options options);

  bool isBundled() const override;
  GrantHolder grantHolder() const override;
  bool screenRecording() override;
  bool accessibility() override;
  AutomationState automation(bool ask) override;
  CameraVerdict exerciseCamera() override;
  void requestScreenRecording() override {}
  void requestAccessibility() override {}
  void requestAutomation() override;
  ChromeJSState probeChromeJS() override;
  SettingsOpened openSettings(Need need) override;
  void openChrome() override;
  void relaunch() override;
  bool agentCommand() override;
  bool canPrompt(Need need) const override { return need == Need::automation; }
  std::optional<std::string> why(Need need) const override;

  // Each need's documents, in the order they are tried.
  static std::map<Need, std::vector<std::string>> defaultSettings();
  // A program by name on PATH (or as a path), if it is there to run.
  static std::optional<std::filesystem::path> findProgram(const std::string& name);

 private:
  // Starts the browser once, asks it for 1 + 1 and ends it.
  void tryBrowser();

  Options options_;
  mutable std::mutex lock_;  // the browser's answers come from the lane
  std::optional<AutomationState> automation_;
  ChromeJSState js_ = ChromeJSState::unknown;
  std::map<Need, std::string> why_;
};

}  // namespace tavorin
