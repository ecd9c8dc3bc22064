#include "operator/OperatorWire.hpp"

namespace tavorin::OperatorWire {

bool isUTF8(std::string_view s) {
  std::size_t i = 0;
  const std::size_t n = s.size();
  while (i < n) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      ++i;
      continue;
    }
    int extra;
    std::uint32_t cp;
    if ((c & 0xE0) == 0xC0) extra = 1, cp = c & 0x1F;
    else if ((c & 0xF0) == 0xE0) extra = 2, cp = c & 0x0F;
    else if ((c & 0xF8) == 0xF0) extra = 3, cp = c & 0x07;
    else return false;
    if (i + static_cast<std::size_t>(extra) >= n) return false;  // sequence cut short
    for (int k = 1; k <= extra; ++k) {
      const unsigned char cc = static_cast<unsigned char>(s[i + k]);
      if ((cc & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
    if ((extra == 1 && cp < 0x80) || (extra == 2 && cp < 0x800) || (extra == 3 && cp < 0x10000)) return false;
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += extra + 1;
  }
  return true;
}

std::string_view trimNewlines(std::string_view t) {
  auto isNewline = [](std::string_view s, std::size_t at, bool fromEnd) -> std::size_t {
    // One-byte newlines, and NEL / LS / PS in UTF-8.
    if (fromEnd) {
      if (s.empty()) return 0;
      const char c = s.back();
      if (c == '\n' || c == '\r' || c == '\v' || c == '\f') return 1;
      if (s.size() >= 2 && s.substr(s.size() - 2) == "\xC2\x85") return 2;
      if (s.size() >= 3 && (s.substr(s.size() - 3) == "\xE2\x80\xA8" || s.substr(s.size() - 3) == "\xE2\x80\xA9"))
        return 3;
      return 0;
    }
    if (at >= s.size()) return 0;
    const char c = s[at];
    if (c == '\n' || c == '\r' || c == '\v' || c == '\f') return 1;
    if (s.substr(at, 2) == "\xC2\x85") return 2;
    if (s.substr(at, 3) == "\xE2\x80\xA8" || s.substr(at, 3) == "\xE2\x80\xA9") return 3;
    return 0;
  };
  while (std::size_t k = isNewline(t, 0, false)) t.remove_prefix(k);
  while (std::size_t k = isNewline(t, 0, true)) t.remove_suffix(k);
  return t;
}

std::string encodeLine(const JSONValue& value) {
  std::string text;
  try {
    text = value.encode();
  } catch (const std::exception&) {
    throw WireError();
  }
  if (!isUTF8(text)) throw WireError();
  text.push_back('\n');
  return text;
}

JSONValue toJSON(const OperatorResult& r) {
  JSONValue::Object o{{"ok", JSONValue(r.ok)}};
  if (r.data) o.emplace("data", *r.data);
  if (r.error) o.emplace("error", JSONValue(*r.error));
  return JSONValue(std::move(o));
}

JSONValue toJSON(const OperatorRequest& r) {
  JSONValue::Object args;
  for (const auto& [k, v] : r.command.args) args.emplace(k, JSONValue(v));
  return JSONValue::object({{"token", JSONValue(r.token)},
                            {"command", JSONValue::object({{"verb", JSONValue(r.command.verb)},
                                                           {"args", JSONValue(std::move(args))}})}});
}

std::string encodeLine(const OperatorRequest& request) { return encodeLine(toJSON(request)); }
std::string encodeLine(const OperatorResult& result) { return encodeLine(toJSON(result)); }

JSONValue decodeLine(std::string_view text) {
  try {
    return JSONValue::decode(trimNewlines(text));
  } catch (const std::exception&) {
    throw WireError();
  }
}

OperatorRequest decodeRequest(std::string_view text) {
  const JSONValue v = decodeLine(text);
  const JSONValue* token = v["token"];
  const JSONValue* command = v["command"];
  if (!token || !command || !token->stringValue()) throw WireError();
  const JSONValue* verb = (*command)["verb"];
  const JSONValue* args = (*command)["args"];
  if (!verb || !verb->stringValue() || !args || !args->objectValue()) throw WireError();
  OperatorRequest request;
  request.token = *token->stringValue();
  request.command.verb = *verb->stringValue();
  for (const auto& [k, value] : *args->objectValue()) {
    auto s = value.stringValue();
    if (!s) throw WireError();
    request.command.args.emplace(k, *s);
  }
  return request;
}

OperatorResult decodeResult(std::string_view text) {
  const JSONValue v = decodeLine(text);
  const JSONValue* ok = v["ok"];
  if (!ok || !ok->boolValue()) throw WireError();
  OperatorResult r;
  r.ok = *ok->boolValue();
  if (const JSONValue* data = v["data"]; data && !data->isNull()) r.data = *data;
  if (const JSONValue* error = v["error"]; error && !error->isNull()) {
    if (!error->stringValue()) throw WireError();
    r.error = *error->stringValue();
  }
  return r;
}

}  // namespace tavorin::OperatorWire
