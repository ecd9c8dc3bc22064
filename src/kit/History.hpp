#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// One step of undo: the whole document and the script as they stood before an edit.
struct HistoryStep {
  std::string what;
  Recording rec;
  std::string blocking;
  bool operator==(const HistoryStep&) const = default;
};

// Undo and redo as two stacks of snapshots, newest last. Lives only as long as the
// open production.
struct History {
  static constexpr std::size_t limit = 100;

  std::vector<HistoryStep> past;
  std::vector<HistoryStep> future;

  // A fresh edit: keeps the newest `limit` steps and ends any forward walk.
  void push(HistoryStep step);
  // Renames the newest step, if there is one.
  void name(std::string what);
  // Pops the newest past step and keeps `current` for redo under that step's name.
  std::optional<HistoryStep> stepBack(const HistoryStep& current);
  // The mirror of stepBack.
  std::optional<HistoryStep> stepForward(const HistoryStep& current);
  void forget();

  bool canStepBack() const { return !past.empty(); }
  bool canStepForward() const { return !future.empty(); }
};

}  // namespace tavorin
