#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace tavorin {

// Edits the one token of a stage script that the timeline may change, the
// `offset` of an anchored block, and leaves every other byte of the text alone.
namespace BlockingRewrite {

// The offset in force for the step with that id: its block's, or a header's own.
std::optional<double> offset(std::string_view source, int ordinal);

// The text with the block's offset set; an offset that rounds to nothing removes
// the token. Absent when the step is unknown or belongs to no block.
std::optional<std::string> setOffset(std::string_view source, int ordinal, double to);

// Thousandths, written as an integer when whole; empty below half a thousandth.
std::string number(double value);

// The header line with its offset rewritten to `number` (empty removes it);
// absent when the line is no `with`, `after` or `at` header.
std::optional<std::string> rewriteHeader(std::string_view line, std::string_view number);

}  // namespace BlockingRewrite

}  // namespace tavorin
