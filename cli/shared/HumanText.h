// Numbers and times as people read them.
#pragma once

#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/Date.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace stowline::cli {

/// A moment in the local zone with the zone's name ("2026-02-01 00:59:59 CET"). Any thread.
[[nodiscard]] std::string localTimeText(Date moment);

/// A time of the service ("2026-01-31 23:59:59", in UTC) in the local zone with the zone's name
/// ("2026-02-01 00:59:59 CET"). Any other text comes back as it is. Any thread.
[[nodiscard]] std::string localTimeText(std::string_view serviceTime);

/// A size as the service writes it ("1536") in units ("1.5 kB"); other text comes back as it is.
[[nodiscard]] std::string sizeText(std::string_view serviceSize);

using platform::countText;

} // namespace stowline::cli
