#pragma once
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavorin {

// Why a step could not be performed, in the words the user reads.
class PerformError : public std::runtime_error {
 public:
  enum class Case { noSuchApp, failed, browserUnreachable };
  static PerformError noSuchApp(const std::string& name);
  static PerformError failed(const std::string& step, const std::string& reason);
  static PerformError browserUnreachable(const std::string& reason);
  Case which() const { return case_; }

 private:
  PerformError(Case c, const std::string& text) : std::runtime_error(text), case_(c) {}
  Case case_;
};

// A step under way was told to stop; the runner ends quietly on it.
class PerformCancelled : public std::runtime_error {
 public:
  PerformCancelled() : std::runtime_error("the step was stopped") {}
};

// What acts on the desktop: one operation per kind of step. Each blocks until the
// step is done, paces itself so it looks human on camera, and raises PerformError.
// The runner calls them one at a time, off the main actor.
class Performer {
 public:
  virtual ~Performer() = default;
  virtual void activate(const std::string& app) = 0;
  virtual void open(const std::string& url) = 0;
  virtual void key(const std::string& combo) = 0;
  virtual void type(const std::string& text) = 0;
  virtual void move(double x, double y, std::optional<double> over) = 0;
  virtual void scroll(double pixels, std::optional<double> over) = 0;
  virtual void click(double x, double y) = 0;
  // The script's result as text; the runner ignores it, the `js` check reads it.
  virtual std::string js(const std::string& script) = 0;

  // From any thread: the step under way ends at its next pause with PerformCancelled.
  void interrupt();
  // Before a step: forget an interruption meant for the one before.
  void clearInterrupt();
  bool interrupted() const { return interrupted_.load(); }

 protected:
  // Sleeps, or raises PerformCancelled as soon as the step is interrupted.
  void pause(double seconds);

 private:
  std::mutex lock_;
  std::condition_variable wake_;
  std::atomic<bool> interrupted_{false};
};

// The eased motion of a glide: starts slow, runs, ends slow.
namespace Easing {
// The cubic timing curve through (0,0), (x1,y1), (x2,y2), (1,1), solved for y at time `t`.
double bezier(double t, double x1 = 0.42, double y1 = 0, double x2 = 0.58, double y2 = 1);
// `steps` fractions at even times, the last exactly 1.
std::vector<double> curve(int steps);
// Steps of a glide of `over` seconds: 60 a second, from 2 to 240.
int steps(double over);
}  // namespace Easing

}  // namespace tavorin
