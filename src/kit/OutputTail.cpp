#include "kit/OutputTail.hpp"

#include <cctype>

#include "base/Text.hpp"

namespace tavorin {

void OutputTail::append(std::string_view s) {
  std::lock_guard guard(lock_);
  text_.append(s);
  if (text_.size() >= 8001) text_.erase(0, text_.size() - 4000);
}

std::string OutputTail::text() const {
  std::lock_guard guard(lock_);
  return text_;
}

std::string lastMeaningfulLine(std::string_view text) {
  std::string found;
  for (std::string_view line : Text::split(text, '\n')) {
    line = Text::trimSpace(line);
    bool meaningful = false;
    for (const char c : line) {
      const auto u = static_cast<unsigned char>(c);
      // Bytes above ASCII are letters of some script, never bare punctuation.
      if (u >= 0x80 || std::isalnum(u)) {
        meaningful = true;
        break;
      }
    }
    if (meaningful) found = std::string(line);
  }
  return found;
}

}  // namespace tavorin
