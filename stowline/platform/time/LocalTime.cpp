#include "stowline/platform/time/LocalTime.h"

#include "stowline/platform/threads/ForkSafety.h"
#include "stowline/platform/time/DateText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace stowline::platform {

namespace {

using std::chrono::seconds;

constexpr int kMicrosecondsPerHundredth = 10000;
constexpr std::int64_t kSecondsPerDay = 86400;

/// By the C library, whose zone data are the system's; libraries that carry their own fall behind.
std::tm partsAt(std::int64_t second)
{
    const LibraryCall call(LibraryCall::To::timeZone);
    ::tzset(); // localtime_r() does not look for a new zone by itself
    const std::time_t time = second;
    std::tm parts{};
    ::localtime_r(&time, &parts);
    return parts;
}

std::int64_t offsetAt(std::int64_t second)
{
    return partsAt(second).tm_gmtoff;
}

} // namespace

CalendarTime localTime(Date moment)
{
    const auto whole = std::chrono::floor<seconds>(moment);
    const std::tm parts = partsAt(whole.time_since_epoch().count());
    return {parts.tm_year + 1900,
            parts.tm_mon + 1,
            parts.tm_mday,
            parts.tm_hour,
            parts.tm_min,
            parts.tm_sec,
            static_cast<int>((moment - whole).count())};
}

seconds localOffset(Date moment)
{
    return seconds(offsetAt(std::chrono::floor<seconds>(moment).time_since_epoch().count()));
}

Date dateFromLocalTime(const CalendarTime& time)
{
    const std::chrono::sys_days day = std::chrono::year_month_day(
        std::chrono::year(time.year), std::chrono::month(static_cast<unsigned>(time.month)),
        std::chrono::day(static_cast<unsigned>(time.day)));
    const std::int64_t shown =
        seconds(day.time_since_epoch()).count() + time.hour * 3600 + time.minute * 60 + time.second;
    // No zone is a day away from UTC, so these are the offsets around the time that is shown.
    const std::int64_t before = offsetAt(shown - kSecondsPerDay);
    const std::int64_t after = offsetAt(shown + kSecondsPerDay);
    const bool isBefore = offsetAt(shown - before) == before;
    const bool isAfter = offsetAt(shown - after) == after;
    std::int64_t second = shown - before; // alone, or of a time that was skipped
    if (isAfter)
        second = isBefore ? std::max(shown - before, shown - after) : shown - after;
    return Date(seconds(second) + std::chrono::microseconds(time.microsecond));
}

std::string textOf(const CalendarTime& time)
{
    std::array<char, 64> text{};
    const int length = std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%02d",
                                     time.year, time.month, time.day, time.hour, time.minute,
                                     time.second, time.microsecond / kMicrosecondsPerHundredth);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::optional<CalendarTime> calendarTimeFromText(std::string_view text)
{
    const auto numbers = numbersInPattern(text, "0000-00-00T00:00:00.00");
    if (!numbers)
        return std::nullopt;
    const auto& n = *numbers;
    const CalendarTime time{n[0], n[1], n[2], n[3], n[4], n[5], n[6] * kMicrosecondsPerHundredth};
    const std::chrono::year_month_day date{std::chrono::year(time.year),
                                           std::chrono::month(static_cast<unsigned>(time.month)),
                                           std::chrono::day(static_cast<unsigned>(time.day))};
    if (time.year == 0 || !date.ok() || time.hour > 23 || time.minute > 59 || time.second > 59)
        return std::nullopt;
    return time;
}

} // namespace stowline::platform
