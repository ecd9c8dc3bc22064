#pragma once
#include <optional>
#include <string>
#include <variant>

namespace tavorin {

// A field's new value as its reader understood it: text, a number or a switch, or
// nothing, which clears the field to what it inherits. The model takes values
// already read; turning words into these is the caller's work.
class FieldValue {
 public:
  enum class Kind { text, number, truth };

  FieldValue() = default;
  // Empty text is no value: a field cleared in the inspector reads as "".
  FieldValue(std::string text) {
    if (!text.empty()) value_ = std::move(text);
  }
  FieldValue(const char* text) : FieldValue(std::string(text)) {}
  FieldValue(double number) : value_(number) {}
  FieldValue(bool truth) : value_(truth) {}

  bool cleared() const { return std::holds_alternative<std::monostate>(value_); }
  const std::string* text() const { return std::get_if<std::string>(&value_); }
  const double* number() const { return std::get_if<double>(&value_); }
  const bool* truth() const { return std::get_if<bool>(&value_); }
  // As the event feed and refusals print it; empty when cleared.
  std::string display() const;

 private:
  std::variant<std::monostate, std::string, double, bool> value_;
};

}  // namespace tavorin
