#include "kit/History.hpp"

#include <iterator>
#include <utility>

namespace tavorin {

namespace {

// Moves the newest step of `from` to the caller and leaves `current`, under that
// step's name, on top of `to`.
std::optional<HistoryStep> walk(std::vector<HistoryStep>& from, std::vector<HistoryStep>& to,
                                const HistoryStep& current) {
  if (from.empty()) return std::nullopt;
  HistoryStep popped = std::move(from.back());
  from.pop_back();
  to.push_back(HistoryStep{popped.what, current.rec, current.blocking});
  return popped;
}

}  // namespace

void History::push(HistoryStep step) {
  past.push_back(std::move(step));
  if (past.size() > limit) past.erase(past.begin(), past.begin() + std::ptrdiff_t(past.size() - limit));
  future.clear();
}

void History::name(std::string what) {
  if (!past.empty()) past.back().what = std::move(what);
}

std::optional<HistoryStep> History::stepBack(const HistoryStep& current) { return walk(past, future, current); }

std::optional<HistoryStep> History::stepForward(const HistoryStep& current) { return walk(future, past, current); }

void History::forget() {
  past.clear();
  future.clear();
}

}  // namespace tavorin
