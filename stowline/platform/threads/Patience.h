// Waiting for what may never answer.
#pragma once

#include <chrono>
#include <functional>

namespace stowline::platform {

/// Has a thread of its own do something that may hang, and waits for it only so long; what takes
/// longer is left to itself. Nothing that is thrown leaves it.
/// @param work owns all that it touches, for it may outlive the caller
/// @return whether it came to its end in time, without throwing
[[nodiscard]] bool isDoneWithin(std::chrono::milliseconds patience, std::function<void()> work);

} // namespace stowline::platform
