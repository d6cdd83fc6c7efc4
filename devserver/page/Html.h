// Pieces of the page's HTML. Whatever comes from outside goes through these.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::devserver {

/// Text from outside as it may stand in an element or between quotes: escaped, "?" for controls and
/// for what turns text around, U+FFFD for bytes that are not UTF-8.
[[nodiscard]] std::string htmlText(std::string_view text);

/// A name from outside, kept apart from the direction of what stands beside it.
[[nodiscard]] std::string htmlName(std::string_view name);

/// "0 B", "1.5 MB": of 1024 each.
[[nodiscard]] std::string sizeText(std::uint64_t bytes);

/// "2026-01-31 23:59:59", universal time.
[[nodiscard]] std::string momentText(std::int64_t seconds);

/// Seconds since 1970 of a moment of that form; absent for other text.
[[nodiscard]] std::optional<std::int64_t> secondsOf(const std::string& moment);

/// A moment of that form as an element that programs understand; other text as it is.
[[nodiscard]] std::string htmlTime(std::string_view moment);

/// "less than a day ago", "3 days ago" by the seconds that have passed; "" for a moment to come.
[[nodiscard]] std::string agoText(std::int64_t seconds);

struct Column {
    const char* heading;
    bool isNumber = false;
};

/// One row: the same key each time that the page tells of the same thing, and HTML for each column.
struct Row {
    std::string key;
    std::vector<std::string> cells;
};

/// A table whose rows are named by the cells of a column. Roles are said, for a narrow page shows
/// it otherwise than as a table; there each cell says its heading.
/// @param labelledBy identifier of the element that names it
[[nodiscard]] std::string htmlTable(std::string_view labelledBy, const std::vector<Column>& columns,
                                    const std::vector<Row>& rows, std::size_t naming);

} // namespace stowline::devserver
