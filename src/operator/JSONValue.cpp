#include "operator/JSONValue.hpp"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace tavorin {

using nlohmann::json;

namespace {

json toNlohmann(const JSONValue& v) {
  switch (v.kind()) {
    case JSONValue::Kind::string: return *v.stringValue();
    case JSONValue::Kind::integer: return *v.intValue();
    case JSONValue::Kind::real: return *v.doubleValue();
    case JSONValue::Kind::boolean: return *v.boolValue();
    case JSONValue::Kind::array: {
      json a = json::array();
      for (const auto& item : *v.arrayValue()) a.push_back(toNlohmann(item));
      return a;
    }
    case JSONValue::Kind::object: {
      json o = json::object();
      for (const auto& [k, item] : *v.objectValue()) o[k] = toNlohmann(item);
      return o;
    }
    case JSONValue::Kind::null: return nullptr;
  }
  return nullptr;
}

// A number written with a fraction decodes as an int when it is whole and fits.
JSONValue fromFloat(double d) {
  if (std::isfinite(d) && std::floor(d) == d && d >= -9.2233720368547758e18 && d < 9.2233720368547758e18)
    return JSONValue(static_cast<std::int64_t>(d));
  return JSONValue(d);
}

JSONValue fromNlohmann(const json& j) {
  switch (j.type()) {
    case json::value_t::null: return JSONValue();
    case json::value_t::boolean: return JSONValue(j.get<bool>());
    case json::value_t::number_integer: return JSONValue(static_cast<long long>(j.get<std::int64_t>()));
    case json::value_t::number_unsigned: {
      auto u = j.get<std::uint64_t>();
      if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return JSONValue(static_cast<long long>(u));
      return JSONValue(static_cast<double>(u));
    }
    case json::value_t::number_float: return fromFloat(j.get<double>());
    case json::value_t::string: return JSONValue(j.get<std::string>());
    case json::value_t::array: {
      JSONValue::Array a;
      a.reserve(j.size());
      for (const auto& item : j) a.push_back(fromNlohmann(item));
      return JSONValue(std::move(a));
    }
    case json::value_t::object: {
      JSONValue::Object o;
      for (auto it = j.begin(); it != j.end(); ++it) o.emplace(it.key(), fromNlohmann(it.value()));
      return JSONValue(std::move(o));
    }
    default: throw std::runtime_error("a JSON value that fits none of the cases");
  }
}

}  // namespace

JSONValue JSONValue::seconds(double x) { return JSONValue(std::round(x * 100) / 100); }

std::optional<std::string> JSONValue::stringValue() const {
  if (auto p = std::get_if<std::string>(&value_)) return *p;
  return std::nullopt;
}

std::optional<std::int64_t> JSONValue::intValue() const {
  if (auto p = std::get_if<std::int64_t>(&value_)) return *p;
  return std::nullopt;
}

std::optional<double> JSONValue::doubleValue() const {
  if (auto p = std::get_if<double>(&value_)) return *p;
  if (auto p = std::get_if<std::int64_t>(&value_)) return static_cast<double>(*p);
  return std::nullopt;
}

std::optional<bool> JSONValue::boolValue() const {
  if (auto p = std::get_if<bool>(&value_)) return *p;
  return std::nullopt;
}

const JSONValue::Array* JSONValue::arrayValue() const { return std::get_if<Array>(&value_); }
const JSONValue::Object* JSONValue::objectValue() const { return std::get_if<Object>(&value_); }
JSONValue::Array* JSONValue::arrayValue() { return std::get_if<Array>(&value_); }
JSONValue::Object* JSONValue::objectValue() { return std::get_if<Object>(&value_); }

const JSONValue* JSONValue::operator[](std::string_view key) const {
  const Object* o = objectValue();
  if (!o) return nullptr;
  auto it = o->find(std::string(key));
  return it == o->end() ? nullptr : &it->second;
}

JSONValue& JSONValue::set(const std::string& key, JSONValue value) {
  if (isNull()) value_ = Object{};
  auto* o = objectValue();
  if (!o) throw std::logic_error("set on a JSON value that is not an object");
  (*o)[key] = std::move(value);
  return *this;
}

void JSONValue::push(JSONValue value) {
  if (isNull()) value_ = Array{};
  auto* a = arrayValue();
  if (!a) throw std::logic_error("push on a JSON value that is not an array");
  a->push_back(std::move(value));
}

std::string JSONValue::encode() const {
  try {
    // The wire writes forward slashes escaped. A slash can only stand inside a
    // string in JSON text, so escaping every one of them is exact.
    const std::string plain = toNlohmann(*this).dump();
    std::string out;
    out.reserve(plain.size());
    for (char c : plain) {
      if (c == '/') out += '\\';
      out += c;
    }
    return out;
  } catch (const json::exception& e) {
    throw std::runtime_error(e.what());
  }
}

std::string JSONValue::pretty() const {
  try {
    return toNlohmann(*this).dump(2, ' ', false, json::error_handler_t::replace);
  } catch (const json::exception& e) {
    throw std::runtime_error(e.what());
  }
}

JSONValue JSONValue::decode(std::string_view text) {
  json j;
  try {
    j = json::parse(text.begin(), text.end());
  } catch (const json::exception& e) {
    throw std::runtime_error(e.what());
  }
  return fromNlohmann(j);
}

}  // namespace tavorin
