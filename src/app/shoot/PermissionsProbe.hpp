#pragma once
#include <optional>
#include <string>

#include "kit/ScreenRecorder.hpp"

namespace tavorin {

// What the studio needs from the desktop before a take, in the order the sheet
// shows them: filming the display, synthetic input, the browser it drives, the
// browser's JavaScript, and the `claude` command for agent steps.
enum class Need { screenRecording, accessibility, automation, chromeJS, agent };
std::string word(Need);
std::optional<Need> needNamed(std::string_view word);

// Whether the browser on camera can be driven.
enum class AutomationState { granted, notDetermined, denied, chromeNotRunning, chromeNotInstalled };
// Whether the browser runs the JavaScript the studio sends it.
enum class ChromeJSState { on, off, unknown };

// Who the desktop books the grants against: an installed Tavorin, or the program a
// build was started from, which is what the X server and the session see.
struct GrantHolder {
  std::string name;
  std::string path;  // its executable, where known
  int pid = 0;
  bool otherProgram = false;  // not Tavorin itself
};

// What opening a need's settings did, in the user's words.
struct SettingsOpened {
  bool opened = false;
  std::string said;
};

// The desktop's answers about the grants. Each answer is a fact read now; none
// throws. The slow ones (the camera, the browser) are called off the main actor.
class PermissionsProbe {
 public:
  virtual ~PermissionsProbe() = default;
  virtual bool isBundled() const = 0;
  virtual GrantHolder grantHolder() const = 0;
  virtual bool screenRecording() = 0;
  virtual bool accessibility() = 0;
  // `ask` may start the browser to find out; without it the last answer stands.
  virtual AutomationState automation(bool ask) = 0;
  virtual CameraVerdict exerciseCamera() = 0;
  virtual void requestScreenRecording() = 0;
  virtual void requestAccessibility() = 0;
  virtual void requestAutomation() = 0;
  virtual ChromeJSState probeChromeJS() = 0;
  virtual SettingsOpened openSettings(Need need) = 0;
  virtual void openChrome() = 0;
  virtual void relaunch() = 0;
  // Whether `claude` is there for agent steps.
  virtual bool agentCommand() = 0;
  // Whether asking for a need can show the user anything; where it cannot, the
  // row offers its settings at once instead of a Grant that does nothing.
  virtual bool canPrompt(Need) const { return true; }
  // Why a need is missing, in the user's words, where the desktop says.
  virtual std::optional<std::string> why(Need) const { return std::nullopt; }
};

}  // namespace tavorin
