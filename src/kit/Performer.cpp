#include "kit/Performer.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace tavorin {

PerformError PerformError::noSuchApp(const std::string& name) {
  return PerformError(Case::noSuchApp, "Couldn't bring '" + name + "' forward — is it installed and running?");
}

PerformError PerformError::failed(const std::string& step, const std::string& reason) {
  return PerformError(Case::failed, step + " didn't work: " + reason);
}

PerformError PerformError::browserUnreachable(const std::string& reason) {
  return PerformError(Case::browserUnreachable,
                      "Chromium can't be reached to run JavaScript (" + reason +
                          "). Put an `open` step before the `js` step so Tavorin starts its own browser.");
}

void Performer::interrupt() {
  {
    std::lock_guard guard(lock_);
    interrupted_ = true;
  }
  wake_.notify_all();
}

void Performer::clearInterrupt() {
  std::lock_guard guard(lock_);
  interrupted_ = false;
}

void Performer::pause(double seconds) {
  std::unique_lock guard(lock_);
  if (seconds > 0)
    wake_.wait_for(guard, std::chrono::duration<double>(seconds), [this] { return interrupted_.load(); });
  if (interrupted_) throw PerformCancelled();
}

namespace Easing {

double bezier(double t, double x1, double y1, double x2, double y2) {
  t = std::clamp(t, 0.0, 1.0);
  auto at = [](double u, double a, double b) {
    const double v = 1 - u;
    return 3 * v * v * u * a + 3 * v * u * u * b + u * u * u;
  };
  // x(u) rises monotonically for control points inside the unit square: bisect for u.
  double lo = 0, hi = 1, u = t;
  for (int i = 0; i < 40; ++i) {
    u = (lo + hi) / 2;
    if (at(u, x1, x2) < t) lo = u; else hi = u;
  }
  return at(u, y1, y2);
}

std::vector<double> curve(int steps) {
  std::vector<double> out;
  if (steps <= 0) return out;
  out.reserve(steps);
  for (int i = 1; i <= steps; ++i) out.push_back(i == steps ? 1.0 : bezier(static_cast<double>(i) / steps));
  return out;
}

int steps(double over) {
  const double n = std::round(over * 60);
  return static_cast<int>(std::clamp(n, 2.0, 240.0));
}

}  // namespace Easing

}  // namespace tavorin
