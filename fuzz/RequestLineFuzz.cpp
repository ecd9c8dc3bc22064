// A request line as a local client may send it, before the token is checked.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "operator/JSONValue.hpp"
#include "operator/OperatorWire.hpp"

using namespace tavorin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  try {
    const OperatorRequest request = OperatorWire::decodeRequest(line);
    // What decodes must encode again and mean the same.
    const OperatorRequest again = OperatorWire::decodeRequest(OperatorWire::encodeLine(request));
    if (again.token != request.token || again.command.verb != request.command.verb ||
        again.command.args != request.command.args)
      __builtin_trap();
  } catch (const OperatorWire::WireError&) {
  }
  try {
    const JSONValue value = JSONValue::decode(line);
    if (JSONValue::decode(value.encode()) != value) __builtin_trap();
  } catch (const std::runtime_error&) {
  }
  return 0;
}
