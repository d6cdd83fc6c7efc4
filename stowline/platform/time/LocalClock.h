// The time of day as log lines show it.
#pragma once

#include "stowline/platform/time/Date.h"

#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// A moment in the local time zone as "2013-06-01 09:30:00:125" (a colon before the milliseconds);
/// with another character between year, month and day when one is given. Any thread; quick for
/// moments of the same second. A change of the zone shows within a minute.
[[nodiscard]] std::string localClockText(Date moment, char dateSeparator = '-');

} // namespace stowline::platform
#pragma GCC visibility pop
