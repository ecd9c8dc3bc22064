#pragma once
#include <deque>
#include <mutex>
#include <string>

namespace tavorin {

// The last lines a child program wrote, bounded, under its own lock: the pipe's
// thread writes and the main actor reads.
class Tail {
 public:
  explicit Tail(size_t keep = 64) : keep_(keep) {}
  void append(const std::string& line);
  std::deque<std::string> lines() const;
  std::string joined() const;

 private:
  mutable std::mutex lock_;
  size_t keep_;
  std::deque<std::string> lines_;
};

// ffmpeg's error output; its last non-empty line is what a failure says.
class ErrorLog {
 public:
  void append(const std::string& line);
  std::string lastLine() const;
  bool empty() const;
  const Tail& tail() const { return tail_; }

 private:
  Tail tail_;
};

}  // namespace tavorin
