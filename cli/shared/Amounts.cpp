#include "cli/shared/Amounts.h"

#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"

#include <array>
#include <cctype>

namespace stowline::cli {

namespace {

constexpr std::array kUnitsOfBytes{std::pair('k', 1ULL << 10), std::pair('m', 1ULL << 20),
                                   std::pair('g', 1ULL << 30), std::pair('t', 1ULL << 40)};
constexpr std::array kUnitsOfTime{std::pair('h', std::chrono::seconds(std::chrono::hours(1))),
                                  std::pair('d', std::chrono::seconds(std::chrono::days(1))),
                                  std::pair('w', std::chrono::seconds(std::chrono::weeks(1)))};

char lastLetterOf(std::string_view text)
{
    return text.empty() ? '\0'
                        : static_cast<char>(std::tolower(static_cast<unsigned char>(text.back())));
}

} // namespace

std::optional<double> parseShare(std::string_view text)
{
    constexpr double percent = 100;
    if (!text.ends_with('%'))
        return std::nullopt;
    const auto number = platform::realNumber(text.substr(0, text.size() - 1));
    if (!number || !(*number > 0 && *number <= percent))
        return std::nullopt;
    return *number / percent;
}

std::optional<std::uint64_t> parseBytes(std::string_view text)
{
    constexpr double most = 1e15;
    double unit = 1;
    for (const auto& [letter, bytes] : kUnitsOfBytes) {
        if (lastLetterOf(text) != letter)
            continue;
        unit = static_cast<double>(bytes);
        text.remove_suffix(1);
        break;
    }
    const auto number = platform::realNumber(text);
    if (!number || !(*number * unit >= 1 && *number * unit <= most))
        return std::nullopt;
    return static_cast<std::uint64_t>(*number * unit);
}

std::optional<SelfTestAmount> parseSelfTestAmount(std::string_view text)
{
    const auto comma = text.find(',');
    const auto share = parseShare(text.substr(0, comma));
    const auto bytes = comma == std::string_view::npos ? std::optional<std::uint64_t>(INT64_MAX)
                                                       : parseBytes(text.substr(comma + 1));
    if (!share || !bytes)
        return std::nullopt;
    return SelfTestAmount{*share, *bytes};
}

std::optional<std::chrono::seconds> parseSpan(std::string_view text)
{
    constexpr std::uint64_t most = 36500ULL * 86400; // seconds
    std::chrono::seconds unit = std::chrono::days(1);
    for (const auto& [letter, seconds] : kUnitsOfTime) {
        if (lastLetterOf(text) != letter)
            continue;
        unit = seconds;
        text.remove_suffix(1);
        break;
    }
    const auto number = platform::wholeNumber<std::uint64_t>(text);
    if (!number || *number == 0 || *number > most / static_cast<std::uint64_t>(unit.count()))
        return std::nullopt;
    return unit * *number;
}

std::string spanText(std::chrono::seconds span)
{
    constexpr std::chrono::seconds day = std::chrono::days(1);
    if (span % day == std::chrono::seconds(0) || span >= 3 * day)
        return platform::countText(static_cast<std::uint64_t>(span / day), "day", "days");
    return platform::countText(static_cast<std::uint64_t>(span / std::chrono::hours(1)), "hour",
                               "hours");
}

std::string faultInSelfTestAmount(const std::string& text)
{
    return parseSelfTestAmount(text)
               ? ""
               : "This must be a share and a size, such as 1%,200M, not \"" + text + "\"";
}

std::string faultInSpan(const std::string& text)
{
    return parseSpan(text)
               ? ""
               : "This must be a span of time of an hour or more, such as 36h, 3d or 2w, "
                 "not \"" +
                     text + "\"";
}

} // namespace stowline::cli
