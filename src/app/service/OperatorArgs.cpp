#include "app/service/OperatorArgs.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "app/model/AppModelFailure.hpp"
#include "base/Text.hpp"
#include "platform/TavorinPaths.hpp"

namespace tavorin {

namespace {
std::string trimmed(const std::string& s, std::string_view space = " \t\r\n") { return std::string(Text::trim(s, space)); }
}  // namespace

std::optional<double> OperatorArgs::parseNumber(const std::string& text) {
  std::string_view s = text;
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  if (s.empty()) return std::nullopt;  // from_chars itself refuses a second sign
  double value = 0;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (ec != std::errc() || end != s.data() + s.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<long long> OperatorArgs::parseInteger(const std::string& text) {
  std::string_view s = text;
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  if (s.empty()) return std::nullopt;
  long long value = 0;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return value;
}

std::optional<double> OperatorArgs::number(const std::string& name) const {
  auto t = text(name);
  if (!t) return std::nullopt;
  if (auto v = parseNumber(*t)) return v;
  throw AppModelFailure::badValue(name, *t);
}

std::optional<long long> OperatorArgs::integer(const std::string& name) const {
  auto t = text(name);
  if (!t) return std::nullopt;
  if (auto v = parseInteger(*t)) return v;
  throw AppModelFailure::badValue(name, *t);
}

std::optional<double> OperatorArgs::fraction(const std::string& name) const {
  auto t = text(name);
  if (!t) return std::nullopt;
  if (auto v = parseNumber(trimmed(*t))) return v;
  throw AppModelFailure::badValue(name, *t);
}

std::vector<std::string> OperatorArgs::idList(const std::string& name) const {
  std::vector<std::string> ids;
  auto t = text(name);
  if (!t) return ids;
  std::size_t from = 0;
  while (from <= t->size()) {
    const auto comma = t->find(',', from);
    const auto piece = trimmed(t->substr(from, comma == std::string::npos ? std::string::npos : comma - from), " ");
    if (!piece.empty()) ids.push_back(piece);
    if (comma == std::string::npos) break;
    from = comma + 1;
  }
  return ids;
}

std::optional<bool> OperatorArgs::parseSwitch(const std::string& text) {
  const auto v = Text::lower(trimmed(text));
  if (v == "1" || v == "true" || v == "yes" || v == "on") return true;
  if (v == "0" || v == "false" || v == "no" || v == "off") return false;
  return std::nullopt;
}

std::optional<bool> OperatorArgs::flag(const std::string& name) const {
  auto t = text(name);
  if (!t) return std::nullopt;
  if (auto v = parseSwitch(*t)) return v;
  throw AppModelFailure::badChoice(*t, "switch for " + name, "1 or 0");
}

std::optional<bool> OperatorArgs::lenient(const std::string& name) const {
  auto t = text(name);
  if (!t) return std::nullopt;
  const auto v = Text::lower(*t);
  return !(v == "0" || v == "false");
}

std::optional<std::filesystem::path> OperatorArgs::path(const std::string& name) const {
  auto t = text(name);
  if (!t) return std::nullopt;
  return Environment::expandTilde(*t);
}

}  // namespace tavorin
