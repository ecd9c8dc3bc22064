#pragma once
#include <cstddef>
#include <string>

namespace tavorin {

// Digest bytes as lower-case hex digits, two a byte.
std::string hexDigits(const unsigned char* bytes, std::size_t count);

}  // namespace tavorin
