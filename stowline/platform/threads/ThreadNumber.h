// Which thread this is, as the kernel counts.
#pragma once

#include <cstdint>

namespace stowline::platform {

/// The kernel's number of the calling thread; right also in the child of a fork().
[[nodiscard]] std::uint32_t currentThreadNumber();

} // namespace stowline::platform
