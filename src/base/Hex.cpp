#include "base/Hex.hpp"

namespace tavorin {

std::string hexDigits(const unsigned char* bytes, std::size_t count) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(count * 2);
  for (std::size_t i = 0; i < count; ++i) {
    out += digits[bytes[i] >> 4];
    out += digits[bytes[i] & 0xF];
  }
  return out;
}

}  // namespace tavorin
