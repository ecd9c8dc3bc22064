#pragma once
#include <mutex>
#include <string>
#include <string_view>

namespace tavorin {

// The end of a child program's output, fed from its pipe threads and read on the
// main actor. The end is the part that says what went wrong, so the buffer keeps
// the last 4000 characters once it reaches 8001.
class OutputTail {
 public:
  void append(std::string_view s);
  std::string text() const;

 private:
  mutable std::mutex lock_;
  std::string text_;
};

// The last line with something other than punctuation and blanks in it, trimmed;
// empty when there is none.
std::string lastMeaningfulLine(std::string_view text);

}  // namespace tavorin
