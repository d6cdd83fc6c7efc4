// Waiting for a descriptor, within a time and until this thread is asked to stop.
#pragma once

#include <chrono>

namespace stowline::platform {

/// How a wait ended.
enum class WaitEnd { ready, timeOver, stopped };

/// Waits until the descriptor is readable (or at its end), the deadline has come, or the stop
/// request of this thread was made, which goes before a ready descriptor: what never falls silent
/// can be stopped too. A descriptor that cannot be waited for counts as ready, so that its next
/// use tells why.
[[nodiscard]] WaitEnd awaitReadable(int descriptor, std::chrono::steady_clock::time_point deadline);

} // namespace stowline::platform
