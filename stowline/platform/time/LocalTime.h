// Moments as the calendar and the clock on the wall show them.
#pragma once

#include "stowline/platform/time/Date.h"

#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// A day of the Gregorian calendar (also before its introduction, as ISO 8601 has it) and a time of
/// day.
struct CalendarTime {
    int year = 1970;
    int month = 1; ///< 1 to 12
    int day = 1;
    int hour = 0; ///< 0 to 23
    int minute = 0;
    int second = 0;
    int microsecond = 0;
    bool operator==(const CalendarTime&) const = default;
};

/// In the process's current time zone (TZ, also one that is set meanwhile, else that of the
/// machine) as the C library knows it. Reentrant.
[[nodiscard]] CalendarTime localTime(Date moment);

/// By how much the clock on the wall is ahead of UTC at a moment.
[[nodiscard]] std::chrono::seconds localOffset(Date moment);

/// The moment at which the clock shows a time. One that a clock change repeats is the later of the
/// two; one that it skips is moved on by as much as the clock was.
[[nodiscard]] Date dateFromLocalTime(const CalendarTime& time);

/// "yyyy-MM-ddTHH:mm:ss.SS", hundredths of a second truncated.
[[nodiscard]] std::string textOf(const CalendarTime& time);

/// Reads exactly that form, with a year from 0001 to 9999.
/// @return absent for any other text, for days that the month does not have and times beyond
///         23:59:59.
[[nodiscard]] std::optional<CalendarTime> calendarTimeFromText(std::string_view text);

} // namespace stowline::platform
#pragma GCC visibility pop
