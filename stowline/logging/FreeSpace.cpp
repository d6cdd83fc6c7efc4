#include "stowline/logging/FreeSpace.h"

#include "stowline/platform/files/FileStatus.h"

namespace stowline {

bool FreeSpace::isMoreThan(std::uint64_t bytes, platform::TimerClock::Moment now)
{
    constexpr std::uint64_t margin = 64 << 20;
    constexpr std::chrono::milliseconds goodFor{20};
    if (free_ < margin + bytes || now - asked_ > goodFor) {
        free_ = platform::freeSpaceAt("/").value_or(UINT64_MAX);
        asked_ = now;
    }
    if (free_ <= bytes)
        return false;
    free_ -= bytes;
    return true;
}

} // namespace stowline
