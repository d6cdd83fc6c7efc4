// The stamps of files, of any year that a file system keeps.
#pragma once

#include <compare>
#include <cstdint>

namespace stowline::platform {

/// Seconds since 1970 in universal time, may be negative, and nanoseconds. (One number of
/// nanoseconds would end in the year 2262.)
struct StatusTime {
    std::int64_t seconds = 0;
    std::uint32_t nanoseconds = 0;
    auto operator<=>(const StatusTime&) const = default;
};

} // namespace stowline::platform
