#include "app/export/ErrorLog.hpp"

#include <algorithm>

namespace tavorin {

namespace {
bool blank(const std::string& s) {
  return std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isspace(c); });
}
}  // namespace

void Tail::append(const std::string& line) {
  std::lock_guard guard(lock_);
  lines_.push_back(line);
  while (lines_.size() > keep_) lines_.pop_front();
}

std::deque<std::string> Tail::lines() const {
  std::lock_guard guard(lock_);
  return lines_;
}

std::string Tail::joined() const {
  std::string out;
  for (const auto& line : lines()) out += line + "\n";
  return out;
}

void ErrorLog::append(const std::string& line) {
  if (!blank(line)) tail_.append(line);
}

std::string ErrorLog::lastLine() const {
  const auto lines = tail_.lines();
  return lines.empty() ? std::string() : lines.back();
}

bool ErrorLog::empty() const { return tail_.lines().empty(); }

}  // namespace tavorin
