#pragma once

// Dates as text; the time is handed in.

#include <chrono>
#include <string>

namespace pelmar {

using TimePoint = std::chrono::system_clock::time_point;

// Internet date and time in UTC with milliseconds (RFC 3339), such as 2026-03-04T05:06:07.089Z.
std::string iso8601Milliseconds(TimePoint time);

// The UTC date of `time` in the pattern yyyy-MM-dd, in the calendar and digits of the
// user's locale: a Buddhist calendar counts other years.
std::string utcDate(TimePoint time);

}  // namespace pelmar
