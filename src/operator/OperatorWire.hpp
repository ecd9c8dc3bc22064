#pragma once
#include <stdexcept>
#include <string>
#include <string_view>

#include "operator/OperatorCommand.hpp"

namespace tavorin {

// One JSON object per line, LF-terminated, both ways.
namespace OperatorWire {

// The encoded bytes did not form UTF-8 text, or a line was not the expected JSON.
struct WireError : std::runtime_error {
  WireError() : std::runtime_error("malformed") {}
};

inline constexpr std::string_view malformedText = "malformed request (expected one JSON line)";
inline constexpr std::string_view unauthorizedText = "unauthorized: bad token";
// The one hand-written line: the answer when a result cannot be encoded.
inline constexpr std::string_view encodeFailedLine = "{\"ok\":false,\"error\":\"encode failed\"}\n";

bool isUTF8(std::string_view bytes);
// Trims CR and LF (and the other newline characters) from both ends.
std::string_view trimNewlines(std::string_view text);

std::string encodeLine(const JSONValue& value);
std::string encodeLine(const OperatorRequest& request);
std::string encodeLine(const OperatorResult& result);

JSONValue decodeLine(std::string_view text);
// A request needs a string `token` and a `command` of a string `verb` and an
// `args` object whose every value is a string. Throws WireError otherwise.
OperatorRequest decodeRequest(std::string_view text);
// Throws WireError when the text is not a result.
OperatorResult decodeResult(std::string_view text);

JSONValue toJSON(const OperatorResult& result);
JSONValue toJSON(const OperatorRequest& request);

}  // namespace OperatorWire

}  // namespace tavorin
