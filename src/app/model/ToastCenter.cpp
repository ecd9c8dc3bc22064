#include "app/model/ToastCenter.hpp"

#include <algorithm>
#include <chrono>

namespace tavorin {

using Clock = MainActor::Clock;
using namespace std::chrono_literals;

namespace {
constexpr Clock::time_point farFuture = Clock::time_point::max();

Clock::duration seconds(double s) { return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s)); }
}  // namespace

std::string word(Toast::Kind k) {
  switch (k) {
    case Toast::Kind::voice: return "voice";
    case Toast::Kind::export_: return "export";
    case Toast::Kind::upload: return "upload";
    case Toast::Kind::failure: return "failure";
  }
  return "voice";
}

double ToastCenter::secondsLeft(const Toast& t) const {
  if (!t.hasClock()) return 0;
  if (t.deadline == farFuture) return t.remaining;
  return std::max(0.0, std::chrono::duration<double>(t.deadline - actor_.now()).count());
}

std::string ToastCenter::post(Toast::Kind kind, std::string text) {
  Toast t;
  t.id = "t" + std::to_string(++counter_);
  t.kind = kind;
  t.text = std::move(text);
  if (t.hasClock()) {
    t.deadline = actor_.now() + seconds(clockSeconds);
    t.remaining = clockSeconds;
  } else {
    t.deadline = farFuture;
    t.remaining = 0;
  }
  toasts_.insert(toasts_.begin(), t);
  trim();
  armSweep();
  return t.id;
}

bool ToastCenter::dismiss(const std::string& id) {
  auto it = std::find_if(toasts_.begin(), toasts_.end(), [&](const Toast& t) { return t.id == id; });
  if (it == toasts_.end()) return false;
  toasts_.erase(it);
  return true;
}

void ToastCenter::dismissOverflow() {
  if (toasts_.size() > shown) toasts_.resize(shown);
}

void ToastCenter::dismissAll() { toasts_.clear(); }

void ToastCenter::hover(const std::string& id, bool inside) {
  for (auto& t : toasts_) {
    if (t.id != id || !t.hasClock() || t.hovered == inside) continue;
    t.hovered = inside;
    if (inside) {
      t.remaining = std::max(0.0, std::chrono::duration<double>(t.deadline - actor_.now()).count());
      t.deadline = farFuture;
    } else {
      t.deadline = actor_.now() + seconds(t.remaining);
    }
  }
}

void ToastCenter::trim() {
  if (toasts_.size() >= kept + 1) toasts_.resize(kept);
}

void ToastCenter::sweep() {
  const auto now = actor_.now();
  std::erase_if(toasts_, [&](const Toast& t) { return t.deadline != farFuture && t.deadline <= now; });
}

void ToastCenter::armSweep() {
  if (sweeper_) return;
  sweeper_ = actor_.after(250ms, [this] {
    sweeper_.reset();
    sweep();
    // The sweep stops itself once nothing stands.
    if (!toasts_.empty()) armSweep();
  });
}

}  // namespace tavorin
