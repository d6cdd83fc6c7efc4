// CRC-32 of bytes, by way of ISA-L, which knows what each processor does fastest.
#pragma once

#include <cstddef>
#include <cstdint>

namespace stowline::platform {

/// The CRC-32 of IEEE 802.3 (register and result inverted) of what gave `running`, followed by
/// these bytes. Start with 0. Any thread.
/// @param bytes may be null when the length is 0
[[nodiscard]] std::uint32_t continuedCrc32(std::uint32_t running, const void* bytes,
                                           std::size_t length);

} // namespace stowline::platform
