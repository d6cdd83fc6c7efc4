#include "cli/shared/HumanText.h"

#include "cli/shared/Progress.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/DateText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>

namespace stowline::cli {

std::string localTimeText(Date moment)
{
    const std::time_t seconds =
        std::chrono::floor<std::chrono::seconds>(moment).time_since_epoch().count();
    std::tm local{};
    ::tzset(); // which localtime_r() need not do
    std::array<char, 64> text{};
    const std::size_t length =
        ::localtime_r(&seconds, &local)
            ? std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S %Z", &local)
            : 0;
    return {text.data(), length};
}

std::string localTimeText(std::string_view serviceTime)
{
    using namespace std::chrono;
    const auto fields = platform::numbersInPattern(serviceTime, "0000-00-00 00:00:00");
    if (!fields)
        return std::string(serviceTime);
    const auto& [year, month, day, hour, minute, second, none, nothing] = *fields;
    const year_month_day date{std::chrono::year(year),
                              std::chrono::month(static_cast<unsigned>(month)),
                              std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok())
        return std::string(serviceTime);
    return localTimeText(Date(sys_days(date) + hours(hour) + minutes(minute) + seconds(second)));
}

std::string sizeText(std::string_view serviceSize)
{
    const bool isNumber = !serviceSize.empty() && std::ranges::all_of(serviceSize, [](char c) {
        return c >= '0' && c <= '9';
    });
    return isNumber ? bytesText(static_cast<double>(platform::leadingInteger(serviceSize)))
                    : std::string(serviceSize);
}

} // namespace stowline::cli
