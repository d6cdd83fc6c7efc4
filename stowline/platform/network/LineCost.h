// Whether what goes over the network is paid for by volume.
#pragma once

#pragma GCC visibility push(default)
namespace stowline::platform {

enum class LineCost {
    unknown, ///< nothing on this machine knows: NetworkManager does not run, and no portal answers
    byVolume,
    notByVolume ///< as far as what was asked knows
};

/// The line that this machine's network goes over now, by the word of the desktop's network
/// monitor: what NetworkManager was told of the connection, or guesses of it (a telephone's). Asks
/// over the system bus; may take five seconds. Any thread.
[[nodiscard]] LineCost lineCost();

} // namespace stowline::platform
#pragma GCC visibility pop
