// How many descriptors this process may have open.
#pragma once

#include <algorithm>
#include <cstddef>
#include <sys/resource.h>

namespace stowline::platform {

/// RLIMIT_NOFILE as it is now, but at most `atMost`, which also stands for no limit.
[[nodiscard]] inline std::size_t descriptorLimit(std::size_t atMost)
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return atMost;
    return static_cast<std::size_t>(std::min<rlim_t>(atMost, limit.rlim_cur));
}

} // namespace stowline::platform
