// Helpers on dates.
#pragma once

#include "stowline/platform/values/Value.h"

#include <string>

#pragma GCC visibility push(default)
namespace stowline::DateMethods {

/// A moment as "2012-03-05T14:07:09.25": Gregorian calendar, the process's current time zone, no
/// zone designator, hundredths of a second (what is finer is dropped). Years beyond 9999 take more
/// digits; such text, and that of years before 1, cannot be read back. The digits are always ASCII,
/// because services read them. Reentrant.
///
/// StringMethods::TW_dateFromISO8601DateTime() reads it. A local time that a clock change repeats
/// is read as the later of the two moments; one that it skips as the moment as long after the
/// change as the text is after the skipped time's beginning (02:30 in spring is 03:30).
[[nodiscard]] std::string TW_ISO8601DateTimeFromDate(Date date);

} // namespace stowline::DateMethods
#pragma GCC visibility pop
