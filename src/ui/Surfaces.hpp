#pragma once
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "kit/TimelineGeometry.hpp"
#include "ui/ElementRegistry.hpp"
#include "ui/MonitorFeed.hpp"
#include "ui/Theme.hpp"

namespace tavorin {

class AppStore;
class AppModel;
class OperatorService;
struct OperatorCommand;
struct DriverCharacter;

// The pages, panels, sheets and the timeline canvas, drawn straight from the store
// and the model each frame; a control calls the same operation its verb calls. The
// state kept here is only what a hand holds mid-gesture: a drag, a field being typed.
class Surfaces {
 public:
  explicit Surfaces(AppStore& store);

  // One frame of ImGui widgets for a window of that size; every control drawn is
  // noted in `registry`.
  void draw(double width, double height, ElementRegistry& registry);
  // Whether anything on screen moves by itself, so the window keeps drawing.
  bool animating() const;
  // How often motion needs a frame: a playing film at the rate takes are filmed, a
  // drag at every frame the window can give (zero).
  std::chrono::steady_clock::duration animationPace() const;
  // Desktop shortcuts; true when the key was the studio's. `typing` is true while a
  // text field holds the keyboard, when Space and Delete belong to the field.
  enum class Key { undo, redo, save, play, remove, import };
  bool shortcut(Key key, bool typing);

  Theme& theme() { return theme_; }
  // The monitor's picture; without one the monitor says what it would show.
  void setMonitorFeed(MonitorFeed* feed) { feed_ = feed; }

  // What the shoot, the grants and the YouTube account live with, and how a control
  // runs one of their verbs (a roll, a camera check, a sign-in wait on the world, so
  // they go through the verb's own coroutine). Without it those parts are not drawn.
  using Perform = std::function<void(OperatorCommand)>;
  void attachService(OperatorService* service, Perform perform);

 private:
  void drawTopBar(double width);
  void drawEditPage(double width, double height);
  void drawMonitor(double x, double y, double w, double h);
  void drawInspector(double x, double y, double w, double h);
  void drawTransport(double x, double y, double w, double h);
  void drawTimeline(double x, double y, double w, double h);
  void drawScriptPage(double width, double height);
  void drawLibraryPage(double width, double height);
  void drawSheets(double width, double height);
  void drawExportSheet(double width, double height);
  void drawYouTubeRows();
  void drawRenderQueue(double width, double height);
  void drawCastingRoom(double width, double height);
  void drawKeptAuditions(const DriverCharacter& person, const std::optional<std::string>& picked);
  void drawSlate(double width, double height);
  void drawFetchSheet(double width, double height);
  void drawPermissionsSheet(double width, double height);
  // A button of a row of choices, drawn pressed when it is the one in force.
  bool choice(const std::string& id, const std::string& label, const std::string& help, bool on, bool enabled = true);
  void drawToasts(double width);
  void drawPalette(double width, double height);

  // Opens a fixed panel (an ImGui window) and notes it; ends with endPanel.
  bool beginPanel(const char* id, const std::string& title, double x, double y, double w, double h,
                  bool scroll = false, bool floating = false);
  void endPanel();
  // Notes the last ImGui item as a control.
  void note(const std::string& id, const char* role, const std::string& label, const std::string& help,
            bool enabled = true);
  bool button(const std::string& id, const std::string& label, const std::string& help, bool enabled = true);
  // A text field that commits when the hand leaves it; true with the new text.
  std::optional<std::string> field(const std::string& id, const std::string& label, const std::string& value,
                                   const std::string& help, bool multiline = false, double width = -1);
  std::optional<double> numberField(const std::string& id, const std::string& label, std::optional<double> value,
                                    const std::string& help);
  // Runs an act of the model; a refusal becomes a failure toast with its sentence.
  void act(const std::function<void()>& a);

  AppStore& store_;
  AppModel& model_;
  Theme theme_;
  ElementRegistry* registry_ = nullptr;
  // Text being typed, by field id, until it is committed.
  std::map<std::string, std::string> typing_;
  struct Drag {
    std::string id;
    double grabbedAt = 0;  // seconds from the item's start to the pointer
    double start = 0;
  };
  std::optional<Drag> drag_;
  bool editingBlocking_ = false;
  std::string blockingText_;
  std::string lastFailure_;
  // The timeline's geometry, made once at the start of an edit page's frame.
  std::optional<TimelineGeometry> geometry_;
  MonitorFeed* feed_ = nullptr;
  // The shape of the monitor's film, width over height, once a frame has said it.
  double filmAspect_ = 0;
  OperatorService* service_ = nullptr;
  Perform perform_;
  // The words the casting room's next audition says, as typed.
  std::optional<std::string> auditionWords_;
};

}  // namespace tavorin
