// Dates as text in universal time: no locale, no zone database.
#pragma once

#include "stowline/platform/time/Date.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// "2026-01-31 23:59:59 +0000". Fractions of a second are dropped. Reentrant.
[[nodiscard]] std::string universalTimeText(Date moment);

/// "2026-01-31T23:59:59Z", the form of XML property lists (ISO 8601). Fractions are dropped.
[[nodiscard]] std::string internetTimeText(Date moment);

/// Reads exactly the form that internetTimeText() writes.
/// @return absent for any other text, also for a day that the month does not have.
[[nodiscard]] std::optional<Date> dateFromInternetTimeText(std::string_view text);

/// The numbers of a text of a fixed form, field by field: a pattern holds '0' where the text has a
/// digit, and everything else as it stands. At most eight fields, of at most nine digits.
/// @return absent when the text is not of the form
[[nodiscard]] std::optional<std::array<int, 8>> numbersInPattern(std::string_view text,
                                                                 std::string_view pattern);

} // namespace stowline::platform
#pragma GCC visibility pop
