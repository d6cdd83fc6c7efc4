// Sockets of this process that a library opened.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace stowline::platform {

/// Finds the open TCP connection of this process whose other end has this port and sets it to be
/// torn down (RST) instead of closed in order, once its owner closes it.
void resetOnClose(std::uint16_t remotePort);

/// Sets a socket that is about to listen to take its port for itself: one that somebody listens on
/// is refused, one whose last connections are still being forgotten is not.
void takePortAlone(int socket);

/// How many connections a listening socket lets wait until somebody takes them.
void letConnectionsWait(int socket, int atMost);

/// Waits until bytes can be read from a socket (or it has ended), or be written to it.
/// @return false when the time is over
[[nodiscard]] bool awaitReadable(int socket, std::chrono::milliseconds atMost);
[[nodiscard]] bool awaitWritable(int socket, std::chrono::milliseconds atMost);

/// What can be read or written now. @return bytes; 0 at the end, -1 on a failure
[[nodiscard]] std::ptrdiff_t receiveFrom(int socket, char* bytes, std::size_t size);
[[nodiscard]] std::ptrdiff_t sendTo(int socket, const char* bytes, std::size_t size);

/// Ends a connection in order.
void endConnection(int socket);

/// An end of a connection in numbers.
struct SocketAddress {
    std::string host; ///< empty when it cannot be told
    int port = 0;
};
[[nodiscard]] SocketAddress remoteAddressOf(int socket);
[[nodiscard]] SocketAddress localAddressOf(int socket);

} // namespace stowline::platform
