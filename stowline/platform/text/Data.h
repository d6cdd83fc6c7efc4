// Bytes that are not text.
#pragma once

#include <cstdint>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Bytes that are not text.
using Data = std::vector<std::uint8_t>;

} // namespace stowline::platform

namespace stowline {
using platform::Data;
} // namespace stowline
#pragma GCC visibility pop
