#pragma once
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tavorin {

// The tagged value every report is built from. Cases, in order: string, int,
// double, bool, array, object, null.
class JSONValue {
 public:
  using Array = std::vector<JSONValue>;
  using Object = std::map<std::string, JSONValue>;
  enum class Kind { string, integer, real, boolean, array, object, null };

  JSONValue() : value_(nullptr) {}
  JSONValue(std::nullptr_t) : value_(nullptr) {}
  JSONValue(std::string s) : value_(std::move(s)) {}
  JSONValue(std::string_view s) : value_(std::string(s)) {}
  JSONValue(const char* s) : value_(std::string(s)) {}
  JSONValue(bool b) : value_(b) {}
  JSONValue(int i) : value_(static_cast<std::int64_t>(i)) {}
  JSONValue(long i) : value_(static_cast<std::int64_t>(i)) {}
  JSONValue(long long i) : value_(static_cast<std::int64_t>(i)) {}
  JSONValue(unsigned i) : value_(static_cast<std::int64_t>(i)) {}
  JSONValue(unsigned long i) : value_(static_cast<std::int64_t>(i)) {}
  JSONValue(double d) : value_(d) {}
  JSONValue(Array a) : value_(std::move(a)) {}
  JSONValue(Object o) : value_(std::move(o)) {}
  // An object from key-value pairs: JSONValue::object({{"ok", true}}).
  static JSONValue object(std::initializer_list<std::pair<const std::string, JSONValue>> members) {
    return JSONValue(Object(members));
  }
  static JSONValue array(std::initializer_list<JSONValue> items) { return JSONValue(Array(items)); }
  // A time in a report: rounded to hundredths.
  static JSONValue seconds(double x);
  // A missing optional becomes null.
  template <class T>
  static JSONValue optional(const std::optional<T>& v) {
    return v ? JSONValue(*v) : JSONValue();
  }

  Kind kind() const { return static_cast<Kind>(value_.index()); }
  bool isNull() const { return kind() == Kind::null; }

  std::optional<std::string> stringValue() const;
  std::optional<std::int64_t> intValue() const;
  // A double's payload, or an int widened.
  std::optional<double> doubleValue() const;
  std::optional<bool> boolValue() const;
  const Array* arrayValue() const;
  const Object* objectValue() const;
  Array* arrayValue();
  Object* objectValue();
  // The member of an object; nothing for a missing key or for any other case.
  const JSONValue* operator[](std::string_view key) const;

  // Sets a member, turning a null into an object first.
  JSONValue& set(const std::string& key, JSONValue value);
  // Appends, turning a null into an array first.
  void push(JSONValue value);

  // The bare JSON text, compact. Throws std::runtime_error when a string is not UTF-8.
  std::string encode() const;
  // Pretty-printed with two-space indentation, for people.
  std::string pretty() const;
  // Decodes in the order null, bool, int, double, string, array, object; a whole
  // number written with a fraction (1.0) is an int. Throws std::runtime_error.
  static JSONValue decode(std::string_view text);

  bool operator==(const JSONValue& other) const { return value_ == other.value_; }

 private:
  std::variant<std::string, std::int64_t, double, bool, Array, Object, std::nullptr_t> value_;
};

}  // namespace tavorin
