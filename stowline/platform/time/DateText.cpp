#include "stowline/platform/time/DateText.h"

#include <cstdio>

namespace stowline::platform {

namespace {

struct CivilTime {
    std::chrono::year_month_day day;
    std::chrono::hh_mm_ss<std::chrono::seconds> time;
};

CivilTime civilTime(Date moment)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(moment);
    const auto day = std::chrono::floor<std::chrono::days>(seconds);
    return {std::chrono::year_month_day(day), std::chrono::hh_mm_ss(seconds - day)};
}

std::string civilText(Date moment, char separator, const char* ending)
{
    const CivilTime civil = civilTime(moment);
    std::array<char, 64> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%04d-%02u-%02u%c%02d:%02d:%02d%s",
                      int(civil.day.year()), unsigned(civil.day.month()), unsigned(civil.day.day()),
                      separator, int(civil.time.hours().count()), int(civil.time.minutes().count()),
                      int(civil.time.seconds().count()), ending);
    return {text.data(), static_cast<std::size_t>(length)};
}

} // namespace

std::optional<std::array<int, 8>> numbersInPattern(std::string_view text, std::string_view pattern)
{
    if (text.size() != pattern.size())
        return std::nullopt;
    std::array<int, 8> numbers{};
    std::size_t field = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (pattern[i] != '0') {
            if (text[i] != pattern[i])
                return std::nullopt;
            ++field;
            continue;
        }
        if (text[i] < '0' || text[i] > '9')
            return std::nullopt;
        numbers.at(field) = numbers.at(field) * 10 + (text[i] - '0');
    }
    return numbers;
}

std::string universalTimeText(Date moment)
{
    return civilText(moment, ' ', " +0000");
}

std::string internetTimeText(Date moment)
{
    return civilText(moment, 'T', "Z");
}

std::optional<Date> dateFromInternetTimeText(std::string_view text)
{
    using namespace std::chrono;
    const auto numbers = numbersInPattern(text, "0000-00-00T00:00:00Z");
    if (!numbers)
        return std::nullopt;
    const auto& n = *numbers;
    const year_month_day date{year(n[0]), month(static_cast<unsigned>(n[1])),
                              day(static_cast<unsigned>(n[2]))};
    if (!date.ok() || n[3] > 23 || n[4] > 59 || n[5] > 59)
        return std::nullopt;
    return sys_days(date) + hours(n[3]) + minutes(n[4]) + seconds(n[5]);
}

} // namespace stowline::platform
