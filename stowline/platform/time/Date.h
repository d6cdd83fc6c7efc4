// A moment in time.
#pragma once

#include <chrono>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// A moment in time, without a zone, to the microsecond.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

[[nodiscard]] inline Date currentDate()
{
    return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

} // namespace stowline::platform

namespace stowline {
using platform::Date;
} // namespace stowline
#pragma GCC visibility pop
