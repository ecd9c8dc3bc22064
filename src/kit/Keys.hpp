#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// The small grammar of key combinations that a `key` step carries:
// `modifier+...+key`, case and surrounding quotes ignored.
namespace Keys {

enum class Modifier { command, shift, option, control };

// The modifier's own name: "command", "shift", "option", "control".
std::string_view name(Modifier modifier);

struct Combo {
  std::vector<Modifier> modifiers;  // in the order written
  std::string name;                 // the cleaned key name
  std::uint16_t code = 0;           // the virtual key code the desktop presses
  bool operator==(const Combo&) const = default;
};

// Trims blanks, tabs and both kinds of quote from the ends, and lower-cases.
std::string clean(std::string_view text);

std::optional<Modifier> modifier(std::string_view word);
std::optional<std::uint16_t> code(std::string_view name);

// Absent whenever `refusal` would give a reason.
std::optional<Combo> parse(std::string_view text);

// Why the text is no combination, in the words the user reads; nothing when it is one.
std::optional<std::string> refusal(std::string_view text);

// Every key name the table knows, sorted.
std::vector<std::string> names();

// What a refusal offers instead.
const std::vector<std::string>& hint();

}  // namespace Keys

}  // namespace tavorin
