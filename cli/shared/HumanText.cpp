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
    const std::time_t moment =
        system_clock::to_time_t(sys_days(date) + hours(hour) + minutes(minute) + seconds(second));
    const std::tm* local = std::localtime(&moment); // NOLINT(concurrency-mt-unsafe): one thread
    std::array<char, 64> text{};
    const std::size_t length =
        local ? std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S %Z", local) : 0;
    return length == 0 ? std::string(serviceTime) : std::string(text.data(), length);
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
