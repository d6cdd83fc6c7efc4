// Sockets of this process that a library opened.
#pragma once

#include <cstdint>

namespace stowline::platform {

/// Finds the open TCP connection of this process whose other end has this port and sets it to be
/// torn down (RST) instead of closed in order, once its owner closes it.
void resetOnClose(std::uint16_t remotePort);

} // namespace stowline::platform
