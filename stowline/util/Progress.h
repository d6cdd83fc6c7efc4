// How long operations tell how far they are, and are cancelled.
#pragma once

#include <cstdint>
#include <functional>

#pragma GCC visibility push(default)
namespace stowline {

/// Called on the thread of the operation, which waits for it.
/// @param fractionDone from 0.0 to 1.0
/// @param sizeInBytes of the whole
/// @param stop false; set to true to cancel the operation
using ProgressHandler =
    std::function<void(double fractionDone, std::uint64_t sizeInBytes, bool* stop)>;

} // namespace stowline
#pragma GCC visibility pop
