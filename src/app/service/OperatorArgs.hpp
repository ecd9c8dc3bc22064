#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "operator/OperatorCommand.hpp"

namespace tavorin {

// Reads a verb's text arguments by the protocol's conventions. An empty value is
// a missing one; a bad number is refused with the model's badValue words.
class OperatorArgs {
 public:
  explicit OperatorArgs(const OperatorCommand& command) : command_(command) {}

  std::optional<std::string> text(const std::string& name) const { return command_.arg(name); }
  // A 64-bit float from the whole text; white space is not allowed.
  std::optional<double> number(const std::string& name) const;
  // A signed integer from the whole text.
  std::optional<long long> integer(const std::string& name) const;
  // A number with surrounding white space trimmed first; the range is the model's to judge.
  std::optional<double> fraction(const std::string& name) const;
  // Split on ",", each piece trimmed of spaces, empty pieces dropped, order kept.
  std::vector<std::string> idList(const std::string& name) const;
  // A switch: "1" on, "0" off (also true/false, yes/no, on/off); anything else is refused.
  std::optional<bool> flag(const std::string& name) const;
  // Lenient truth: "0" or "false" in any case is false, anything else true.
  std::optional<bool> lenient(const std::string& name) const;
  // A path with a leading tilde expanded.
  std::optional<std::filesystem::path> path(const std::string& name) const;

  static std::optional<double> parseNumber(const std::string& text);
  static std::optional<long long> parseInteger(const std::string& text);
  // "1", true, yes, on / "0", false, no, off, in any case; nothing for other words.
  static std::optional<bool> parseSwitch(const std::string& text);

 private:
  const OperatorCommand& command_;
};

}  // namespace tavorin
