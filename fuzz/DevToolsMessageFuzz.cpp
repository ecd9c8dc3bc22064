// The browser's DevTools pipe is read as a stream of NUL-closed JSON messages that a
// crashing or hostile page may have shaped: framing and decoding must never crash,
// and what is framed must account for every byte up to the last NUL.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/DevToolsMessage.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string buffer(reinterpret_cast<const char*>(data), size);
  const std::string original = buffer;
  std::size_t framed = 0;
  for (const auto& frame : tavorin::DevToolsMessage::frames(buffer)) {
    framed += frame.size() + 1;
    if (auto message = tavorin::DevToolsMessage::decode(frame)) {
      if (message->result.empty()) std::abort();
    }
  }
  if (framed + buffer.size() != original.size() || buffer.find('\0') != std::string::npos) std::abort();
  return 0;
}
