#include "app/shoot/FakePerformer.hpp"

#include <cstdio>

#include "kit/Keys.hpp"

namespace tavorin {

namespace {

std::string number(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

std::string overWords(std::optional<double> over) { return over ? " over " + number(*over) : ""; }

}  // namespace

std::vector<FakePerformer::Call> FakePerformer::calls() const {
  std::lock_guard guard(lock_);
  return calls_;
}

std::vector<std::string> FakePerformer::texts() const {
  std::vector<std::string> out;
  for (const auto& call : calls()) out.push_back(call.what);
  return out;
}

void FakePerformer::key(const std::string& combo) {
  // The same refusal the desktop gives for a combination it cannot press.
  if (!Keys::parse(combo))
    throw PerformError::failed("key " + combo, Keys::refusal(combo).value_or("unknown key"));
  act("key " + combo);
}

void FakePerformer::move(double x, double y, std::optional<double> over) {
  act("move " + number(x) + " " + number(y) + overWords(over));
}

void FakePerformer::scroll(double pixels, std::optional<double> over) {
  act("scroll " + number(pixels) + overWords(over));
}

void FakePerformer::click(double x, double y) { act("click " + number(x) + " " + number(y)); }

void FakePerformer::act(const std::string& what) {
  {
    std::lock_guard guard(lock_);
    calls_.push_back({what, clock ? clock() : 0});
  }
  for (const auto& [prefix, reason] : failures)
    if (what.rfind(prefix, 0) == 0) throw PerformError::failed(what, reason);
  if (blocksFor > 0) pause(blocksFor);
}

}  // namespace tavorin
