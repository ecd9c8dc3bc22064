#pragma once
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tavorin {

// Dates as the production's files write them, always in UTC.
namespace IsoDate {

using Clock = std::chrono::system_clock;

// 2026-02-16T09:45:01Z
std::string format(Clock::time_point t);
// yyyyMMdd-HHmmss
std::string stamp(Clock::time_point t);
// ISO 8601 date-time with "Z" or a numeric offset; fractions of a second are read
// and dropped. Nothing for anything else.
std::optional<Clock::time_point> parse(std::string_view text);

}  // namespace IsoDate

}  // namespace tavorin
