#pragma once
#include <string>
#include <vector>

namespace tavorin {

// The keyboard shortcuts the studio's window binds: one table, which the window
// installs and the `keys` verb and the palette read, so the three never disagree.
namespace Shortcuts {

struct Shortcut {
  std::string keys;   // as a `key` step writes them: "ctrl+s"
  std::string act;    // what it does, for people
  std::string verb;   // the verb that does the same
  bool useful = false;  // the palette shows it first
};

const std::vector<Shortcut>& all();

}  // namespace Shortcuts

}  // namespace tavorin
