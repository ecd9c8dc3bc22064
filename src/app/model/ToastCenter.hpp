#pragma once
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model/MainActor.hpp"

namespace tavorin {

// A transient notice at the top right of the window.
struct Toast {
  enum class Kind { voice, export_, upload, failure };
  std::string id;
  Kind kind = Kind::voice;
  std::string text;
  MainActor::Clock::time_point deadline;
  double remaining = 0;  // seconds left while held; 0 for a failure, which has no clock
  bool hovered = false;

  bool hasClock() const { return kind != Kind::failure; }
};

std::string word(Toast::Kind);

// The stack of toasts, newest first. Clocked toasts last six seconds unless the
// pointer holds them; failure toasts stand until dismissed.
class ToastCenter {
 public:
  static constexpr double clockSeconds = 6.0;
  static constexpr std::size_t kept = 24;
  static constexpr std::size_t shown = 5;

  explicit ToastCenter(MainActor& actor) : actor_(actor) {}
  ~ToastCenter() {
    if (sweeper_) sweeper_->cancel();
  }
  ToastCenter(const ToastCenter&) = delete;
  ToastCenter& operator=(const ToastCenter&) = delete;

  const std::vector<Toast>& toasts() const { return toasts_; }
  // The toasts behind the "+N more" card.
  std::size_t overflow() const { return toasts_.size() > shown ? toasts_.size() - shown : 0; }
  // Seconds left on a toast's clock: held ones report what they had, failures 0.
  double secondsLeft(const Toast& toast) const;

  // Returns the new toast's id.
  std::string post(Toast::Kind kind, std::string text);
  // False when no toast has that id.
  bool dismiss(const std::string& id);
  void dismissOverflow();
  void dismissAll();
  // The pointer entering a toast holds its clock; leaving restarts it with what it had.
  void hover(const std::string& id, bool inside);

  // Removes expired toasts; runs on its own every quarter second while toasts stand.
  void sweep();

 private:
  void trim();
  void armSweep();

  MainActor& actor_;
  std::vector<Toast> toasts_;
  std::shared_ptr<MainActor::Timer> sweeper_;
  unsigned long counter_ = 0;
};

}  // namespace tavorin
