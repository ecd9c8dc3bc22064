// The head of a request to the sign-in's loopback redirect: anyone on the machine can
// send one before the state is checked.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kit/RedirectRequest.hpp"

using namespace tavorin;

namespace {

std::string escaped(const std::string& text) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : text) {
    out += '%';
    out += hex[c >> 4];
    out += hex[c & 15];
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view head(reinterpret_cast<const char*>(data), size);
  const auto request = RedirectRequest::parse(head);
  if (!request) return 0;
  if (request->target.find(' ') != std::string::npos) __builtin_trap();
  // What was read, written again with every byte escaped, reads back the same.
  std::string target = "/?";
  for (const auto& [key, value] : request->query) target += escaped(key) + "=" + escaped(value) + "&";
  const auto again = RedirectRequest::parse("GET " + target + " HTTP/1.1\r\n\r\n");
  if (!again || again->query != request->query) __builtin_trap();
  return 0;
}
