#pragma once
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "kit/Performer.hpp"

namespace tavorin {

// A performer that acts on nothing: it writes down each call, in order, and fails
// where a test tells it to. Calls may come from the runner's lane thread.
class FakePerformer final : public Performer {
 public:
  struct Call {
    std::string what;  // "key cmd+s", "click 10 20", ...
    double at = 0;     // `clock()` when it came
  };

  // The time to stamp calls with; zero when not given.
  std::function<double()> clock;
  // A call whose text starts with a key here raises PerformError::failed with the value as reason.
  std::map<std::string, std::string> failures;
  // Seconds each call blocks for, interruptibly (real time: only tests of abort use it).
  double blocksFor = 0;
  std::string jsResult = "null";

  std::vector<Call> calls() const;
  std::vector<std::string> texts() const;

  void activate(const std::string& app) override { act("app " + app); }
  void open(const std::string& url) override { act("open " + url); }
  void key(const std::string& combo) override;
  void type(const std::string& text) override { act("type " + text); }
  void move(double x, double y, std::optional<double> over) override;
  void scroll(double pixels, std::optional<double> over) override;
  void click(double x, double y) override;
  std::string js(const std::string& script) override {
    act("js " + script);
    return jsResult;
  }

 private:
  void act(const std::string& what);
  mutable std::mutex lock_;
  std::vector<Call> calls_;
};

}  // namespace tavorin
