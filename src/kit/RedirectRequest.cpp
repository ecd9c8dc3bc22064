#include "kit/RedirectRequest.hpp"

namespace tavorin {

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string RedirectRequest::decode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
    const int low = high >= 0 ? hexValue(text[i + 2]) : -1;
    if (low >= 0) {
      out += char(high * 16 + low);
      i += 2;
    } else {
      out += text[i] == '+' ? ' ' : text[i];
    }
  }
  return out;
}

std::optional<RedirectRequest> RedirectRequest::parse(std::string_view head) {
  const std::string_view line = head.substr(0, head.find("\r\n"));
  const size_t sp1 = line.find(' ');
  if (sp1 == std::string_view::npos) return std::nullopt;
  const size_t sp2 = line.find(' ', sp1 + 1);
  if (sp2 == std::string_view::npos) return std::nullopt;
  RedirectRequest request;
  request.target = std::string(line.substr(sp1 + 1, sp2 - sp1 - 1));
  std::string_view query = request.target;
  const size_t mark = query.find('?');
  if (mark == std::string_view::npos) return request;
  query = query.substr(mark + 1);
  query = query.substr(0, query.find('#'));
  while (!query.empty()) {
    const size_t amp = query.find('&');
    const std::string_view pair = query.substr(0, amp);
    if (!pair.empty()) {
      const size_t eq = pair.find('=');
      request.query.emplace(decode(pair.substr(0, eq)),
                            eq == std::string_view::npos ? std::string() : decode(pair.substr(eq + 1)));
    }
    if (amp == std::string_view::npos) break;
    query = query.substr(amp + 1);
  }
  return request;
}

std::optional<std::string> RedirectRequest::item(const std::string& key) const {
  const auto found = query.find(key);
  if (found == query.end()) return std::nullopt;
  return found->second;
}

}  // namespace tavorin
