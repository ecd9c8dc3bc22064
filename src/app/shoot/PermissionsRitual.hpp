#pragma once
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/model/MainActor.hpp"
#include "app/model/Offloader.hpp"
#include "app/shoot/PermissionsProbe.hpp"

namespace tavorin {

// Keeps the grants' facts straight: what each need's state is, what the one honest
// button for it does, and what the sheet and the footer say. Decisions are pure
// functions of the facts the probe last gave, so a posed probe shows every look.
// Lives on the main actor; the camera and the browser are asked on `lane`.
class PermissionsRitual {
 public:
  struct State {
    enum class Kind {
      missing, granted, captureProven, captureBlocked, checkingCapture, relaunchNeeded, waitingOnChrome,
      unavailable, on, off, unknown
    };
    Kind kind = Kind::missing;
    bool canPrompt = true;  // missing only
    bool operator==(const State&) const = default;
    // "missing", "missing-prompt-spent", "granted", "blocked", ...
    std::string wire() const;
  };
  enum class Act { request, openSettings, relaunch, openChrome, checkCamera };
  struct Button {
    std::string label;
    bool enabled = false;
    std::optional<Act> act;
  };
  struct Row {
    Need need;
    std::string title;
    std::string line;
    State state;
    Button button;
    std::optional<std::string> note;
  };

  static constexpr Need needs[] = {Need::screenRecording, Need::accessibility, Need::automation, Need::chromeJS,
                                   Need::agent};

  PermissionsRitual(PermissionsProbe& probe, MainActor& actor, Offloader& lane);
  ~PermissionsRitual();
  PermissionsRitual(const PermissionsRitual&) = delete;
  PermissionsRitual& operator=(const PermissionsRitual&) = delete;

  // Reads the quick facts again and starts the camera's check when it is due.
  void refresh(std::optional<bool> jsRefused = std::nullopt);
  State state(Need need) const;
  bool allSettled() const;
  // What the sheet would raise itself for at launch: a missing screen or input, a
  // browser that refused.
  bool wanting() const;
  std::vector<Row> rows() const;
  Button button(Need need) const;
  // Presses a row's button. Slow acts finish later; `done` runs once the facts are
  // read again, with what the act said (the settings that opened, say).
  void act(Need need, std::function<void(const std::string& said)> done = {});
  // A row's settings, whatever its button offers; the facts are read again after.
  void openSettings(Need need, std::function<void(const SettingsOpened&)> done = {});
  std::optional<std::string> note(Need need, const State& state) const;
  std::string identityLine() const;
  bool showsStaleNote() const;
  static std::string staleNote();

  // While the sheet stands the facts are read again every `rereadEvery`, so a grant
  // given in another program shows by itself.
  static constexpr std::chrono::milliseconds rereadEvery{1000};
  void show();
  void dismiss() { showing_ = false; }
  bool showing() const { return showing_; }

  void probeChromeJS(std::function<void()> done = {});
  void exerciseCameraIfNeeded();
  void recheckCamera(std::function<void()> done = {});

  PermissionsProbe& probe() { return probe_; }
  const std::optional<CameraVerdict>& camera() const { return camera_; }
  bool checkingCamera() const { return checkingCamera_; }
  bool screenAtLaunch() const { return screenAtLaunch_; }
  static std::string title(Need need);
  static std::string line(Need need);
  // Every change of the facts, for the window.
  std::function<void()> onChange;

 private:
  void runCamera(std::function<void()> done);
  void keepRereading();
  void changed();

  PermissionsProbe& probe_;
  MainActor& actor_;
  Offloader& lane_;
  bool screenAtLaunch_ = false;
  std::set<Need> promptSpent_;
  std::set<Need> settingsVisited_;
  bool askingChrome_ = false;
  bool screen_ = false;
  bool ax_ = false;
  AutomationState automation_ = AutomationState::notDetermined;
  ChromeJSState js_ = ChromeJSState::unknown;
  bool jsRefused_ = false;
  bool probingJS_ = false;
  bool askedJS_ = false;
  bool agent_ = false;
  bool showing_ = false;
  std::shared_ptr<MainActor::Timer> rereading_;
  std::optional<CameraVerdict> camera_;
  bool checkingCamera_ = false;
  // Answers from the lane for a ritual that is gone find this down.
  std::shared_ptr<bool> alive_;
};

// The footer's one line and the popover's rows, from the voice engine and the ritual.
namespace SystemsCopy {
struct Row {
  std::string title;
  std::string state;
  bool ok = false;
  bool checking = false;
};
// The phrase for what a need lacks in its state; none when nothing is lacking.
std::optional<std::string> wanting(Need need, const PermissionsRitual::State& state);
std::string status(bool engineChecking, bool engineOnline, const PermissionsRitual& ritual);
std::vector<Row> rows(bool engineChecking, bool engineOnline, const PermissionsRitual& ritual);
std::string cameraState(const PermissionsRitual& ritual);
}  // namespace SystemsCopy

}  // namespace tavorin
