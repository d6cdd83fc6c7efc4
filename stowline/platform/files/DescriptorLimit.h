// How many descriptors this process may have open.
#pragma once

#include "stowline/platform/threads/StopRequest.h"

#include <cerrno>
#include <chrono>
#include <cstddef>

namespace stowline::platform {

/// RLIMIT_NOFILE as it is now, but at most `atMost`, which also stands for no limit.
[[nodiscard]] std::size_t descriptorLimit(std::size_t atMost);

/// Whether so many more could be opened just now.
[[nodiscard]] bool areDescriptorsFree(std::size_t count);

/// Opens something; where no descriptor is left, again for up to five seconds, for what other
/// threads close. Any thread.
/// @param open gives something that is false where it failed, and then sets the error
template <class Open>
[[nodiscard]] auto openedPatiently(const Open& open, const int& error, const StopRequest& stop)
{
    constexpr std::chrono::milliseconds between{20};
    constexpr int mostTries = 250;
    auto opened = open();
    for (int tries = 1; !opened && (error == EMFILE || error == ENFILE) && tries < mostTries &&
                        !stop.waitFor(between);
         ++tries)
        opened = open();
    return opened;
}

} // namespace stowline::platform
