#include "stowline/platform/time/LocalTime.h"

#include "stowline/platform/time/DateText.h"

#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <array>
#include <cstdio>
#include <limits>
#include <memory>

namespace stowline::platform {

namespace {

constexpr int kMicrosecondsPerHundredth = 10000;

/// The Gregorian calendar in the current zone, without the Julian one before 1582.
std::unique_ptr<icu::GregorianCalendar> calendar()
{
    UErrorCode status = U_ZERO_ERROR;
    auto made = std::make_unique<icu::GregorianCalendar>(icu::TimeZone::createDefault(),
                                                         icu::Locale::getRoot(), status);
    made->setGregorianChange(-std::numeric_limits<UDate>::max(), status);
    made->setRepeatedWallTimeOption(UCAL_WALLTIME_LAST);
    made->setSkippedWallTimeOption(UCAL_WALLTIME_LAST);
    return made;
}

} // namespace

CalendarTime localTime(Date moment)
{
    const auto whole = std::chrono::floor<std::chrono::milliseconds>(moment);
    UErrorCode status = U_ZERO_ERROR;
    const auto shown = calendar();
    shown->setTime(static_cast<UDate>(whole.time_since_epoch().count()), status);
    const auto field = [&](UCalendarDateFields which) { return shown->get(which, status); };
    return {field(UCAL_EXTENDED_YEAR),
            field(UCAL_MONTH) + 1,
            field(UCAL_DATE),
            field(UCAL_HOUR_OF_DAY),
            field(UCAL_MINUTE),
            field(UCAL_SECOND),
            field(UCAL_MILLISECOND) * 1000 + static_cast<int>((moment - whole).count())};
}

Date dateFromLocalTime(const CalendarTime& time)
{
    UErrorCode status = U_ZERO_ERROR;
    const auto shown = calendar();
    shown->clear();
    shown->set(UCAL_EXTENDED_YEAR, time.year);
    shown->set(UCAL_MONTH, time.month - 1);
    shown->set(UCAL_DATE, time.day);
    shown->set(UCAL_HOUR_OF_DAY, time.hour);
    shown->set(UCAL_MINUTE, time.minute);
    shown->set(UCAL_SECOND, time.second);
    const auto seconds = static_cast<std::int64_t>(shown->getTime(status) / 1000);
    return Date(std::chrono::seconds(seconds) + std::chrono::microseconds(time.microsecond));
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
