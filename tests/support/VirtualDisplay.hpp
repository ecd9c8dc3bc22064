#pragma once
#include <sys/types.h>

#include <optional>
#include <string>

namespace tavorin::test {

// An Xvfb of the test's own on a display number the server picks itself, so tests
// never meet the desktop of whoever runs them. Gone with the object.
class VirtualDisplay {
 public:
  VirtualDisplay(int width = 1280, int height = 800);
  ~VirtualDisplay();
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;

  // Why there is no display (Xvfb missing or failing), or nothing when it runs.
  const std::optional<std::string>& missing() const { return missing_; }
  // ":N".
  const std::string& name() const { return name_; }
  // Ends the server, as a display that goes away mid-run.
  void kill();

 private:
  pid_t pid_ = -1;
  std::string name_;
  std::optional<std::string> missing_;
};

}  // namespace tavorin::test
