#pragma once
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// One message from the browser's DevTools pipe: an answer (with the id of the
// command it answers) or an event (with its method). What the browser sends is
// outside input, read defensively: anything but a JSON object is no message.
struct DevToolsMessage {
  std::optional<long long> id;
  std::string method;
  std::optional<std::string> error;  // the error's message, for a refused command
  std::string result = "{}";         // the answer's result (or an event's params), as JSON text
  std::string sessionId;

  static std::optional<DevToolsMessage> decode(std::string_view text);
  // Takes every whole message (closed by a NUL) off the front of `buffer`.
  static std::vector<std::string> frames(std::string& buffer);
};

}  // namespace tavorin
