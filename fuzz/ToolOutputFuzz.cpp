// yt-dlp's and claude's output lines, and titles people type: progress is a fraction or
// nothing, the tail's last words are a line of the input, and counting never runs off.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "kit/FetchPlan.hpp"
#include "kit/PublishRequest.hpp"
#include "kit/OutputTail.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tavorin;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto p = FetchPlan::progress(text); p && !(*p >= 0 && *p <= 1)) std::abort();
  const std::string last = lastMeaningfulLine(text);
  if (last.size() > text.size()) std::abort();
  if (perceivedLength(text) > text.size()) std::abort();
  OutputTail tail;
  tail.append(text);
  tail.append(text);
  if (tail.text().size() > 8000) std::abort();
  PublishRequest request;
  request.title = std::string(text);
  (void)request.refusal();
  return 0;
}
