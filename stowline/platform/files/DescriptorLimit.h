// How many descriptors this process may have open.
#pragma once

#include <cstddef>

namespace stowline::platform {

/// RLIMIT_NOFILE as it is now, but at most `atMost`, which also stands for no limit.
[[nodiscard]] std::size_t descriptorLimit(std::size_t atMost);

/// Whether so many more could be opened just now.
[[nodiscard]] bool areDescriptorsFree(std::size_t count);

} // namespace stowline::platform
