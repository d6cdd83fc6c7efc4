// How much may still be written.
#pragma once

#include "stowline/platform/threads/Timer.h"

#include <cstdint>

namespace stowline {

/// Free space of the root file system, asked for seldom while there is plenty. Not for several
/// threads at once.
///
/// Below the margin it is asked for before every line. Above it an answer is good for a while in
/// which nothing but this logger could use up the margin: that would take 3 GB a second. Space that
/// the system does not tell of is plenty.
class FreeSpace {
public:
    /// Whether so many bytes fit; if so they are taken to be written.
    [[nodiscard]] bool isMoreThan(std::uint64_t bytes, platform::TimerClock::Moment now);

private:
    std::uint64_t free_ = 0;
    platform::TimerClock::Moment asked_{};
};

} // namespace stowline
