#include "devserver/page/Html.h"

#include "stowline/platform/text/Text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>

namespace stowline::devserver {

namespace {

std::string validUtf8(std::string_view text)
{
    std::string valid;
    while (!text.empty()) {
        const std::size_t length = platform::validUtf8PrefixLength(text);
        valid += text.substr(0, length);
        if (length < text.size())
            valid += "\xEF\xBF\xBD";
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return valid;
}

std::string headOf(const std::vector<Column>& columns)
{
    std::string html = "<thead role=\"rowgroup\"><tr role=\"row\">";
    for (const Column& column : columns)
        html += fmt::format("<th scope=\"col\" role=\"columnheader\"{}>{}</th>",
                            column.isNumber ? " class=\"number\"" : "", column.heading);
    return html + "</tr></thead>\n";
}

std::string cellOf(const Column& column, const std::string& html, bool isNaming)
{
    return fmt::format("<{0} data-label=\"{1}\"{2}><div>{3}</div></{4}>",
                       isNaming ? "th scope=\"row\" role=\"rowheader\"" : "td role=\"cell\"",
                       column.heading, column.isNumber ? " class=\"number\"" : "", html,
                       isNaming ? "th" : "td");
}

} // namespace

std::string htmlText(std::string_view text)
{
    return platform::escapedForHtml(platform::withoutControls(validUtf8(text)));
}

std::string htmlName(std::string_view name)
{
    return "<bdi>" + htmlText(name) + "</bdi>";
}

std::string sizeText(std::uint64_t bytes)
{
    constexpr std::array<const char*, 6> units{"KB", "MB", "GB", "TB", "PB", "EB"};
    constexpr double step = 1024;
    if (bytes < static_cast<std::uint64_t>(step))
        return fmt::format("{} B", bytes);
    double size = static_cast<double>(bytes) / step;
    std::size_t unit = 0;
    for (; size >= step && unit + 1 < units.size(); ++unit)
        size /= step;
    return fmt::format("{:.1f} {}", size, units.at(unit));
}

std::string momentText(std::int64_t seconds)
{
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::gmtime(static_cast<std::time_t>(seconds)));
}

std::optional<std::int64_t> secondsOf(const std::string& moment)
{
    std::tm fields{};
    const char* end = ::strptime(moment.c_str(), "%Y-%m-%d %H:%M:%S", &fields);
    return end != nullptr && *end == '\0' ? std::optional<std::int64_t>(::timegm(&fields))
                                          : std::nullopt;
}

std::string htmlTime(std::string_view moment)
{
    constexpr std::string_view form = "0000-00-00 00:00:00";
    const bool isMoment = std::ranges::equal(moment, form, [](char c, char like) {
        return like == '0' ? c >= '0' && c <= '9' : c == like;
    });
    if (!isMoment)
        return htmlText(moment);
    return fmt::format("<time datetime=\"{}T{}Z\">{}</time>", moment.substr(0, 10),
                       moment.substr(11), moment);
}

std::string agoText(std::int64_t seconds)
{
    constexpr std::int64_t day = 86400;
    if (seconds < 0)
        return "";
    if (seconds < day)
        return "less than a day ago";
    return platform::countText(static_cast<std::uint64_t>(seconds / day), "day", "days") + " ago";
}

std::string htmlTable(std::string_view labelledBy, const std::vector<Column>& columns,
                      const std::vector<Row>& rows, std::size_t naming)
{
    std::string html = fmt::format("<table role=\"table\" aria-labelledby=\"{}\">", labelledBy) +
                       headOf(columns) + "<tbody role=\"rowgroup\">\n";
    for (const Row& row : rows) {
        html += fmt::format("<tr role=\"row\" data-key=\"{}\">", htmlText(row.key));
        for (std::size_t i = 0; i < columns.size(); ++i)
            html += cellOf(columns[i], row.cells.at(i), i == naming);
        html += "</tr>\n";
    }
    return html + "</tbody></table>\n";
}

} // namespace stowline::devserver
