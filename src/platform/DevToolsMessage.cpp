#include "platform/DevToolsMessage.hpp"

#include <nlohmann/json.hpp>

namespace tavorin {

using nlohmann::json;

std::optional<DevToolsMessage> DevToolsMessage::decode(std::string_view text) {
  auto j = json::parse(text, nullptr, false);
  if (j.is_discarded() || !j.is_object()) return std::nullopt;
  DevToolsMessage m;
  if (const auto it = j.find("id"); it != j.end() && it->is_number_integer()) m.id = it->get<long long>();
  if (const auto it = j.find("method"); it != j.end() && it->is_string()) m.method = it->get<std::string>();
  if (const auto it = j.find("sessionId"); it != j.end() && it->is_string()) m.sessionId = it->get<std::string>();
  if (const auto it = j.find("error"); it != j.end()) {
    const auto message = it->is_object() ? it->find("message") : it->end();
    m.error = message != it->end() && message->is_string() ? message->get<std::string>() : "an error";
  }
  for (const char* key : {"result", "params"})
    if (const auto it = j.find(key); it != j.end() && it->is_object()) {
      m.result = it->dump();
      break;
    }
  return m;
}

std::vector<std::string> DevToolsMessage::frames(std::string& buffer) {
  std::vector<std::string> out;
  std::size_t from = 0;
  for (std::size_t nul; (nul = buffer.find('\0', from)) != std::string::npos; from = nul + 1)
    out.emplace_back(buffer, from, nul - from);
  buffer.erase(0, from);
  return out;
}

}  // namespace tavorin
