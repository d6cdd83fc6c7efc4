// Packing and unpacking of whole blocks in the Zstandard format (RFC 8878), by way of libzstd.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace stowline::platform {

/// The levels that may be asked for; more make it slower and smaller.
constexpr int kLeastZstdLevel = 1;
constexpr int kMostZstdLevel = 19;
constexpr int kUsualZstdLevel = 3;

/// Packs block after block. Not for several threads at once. Throws std::bad_alloc without memory.
class ZstdPacker {
public:
    explicit ZstdPacker(int level);
    ZstdPacker(ZstdPacker&&) noexcept;
    ZstdPacker& operator=(ZstdPacker&&) noexcept;
    ~ZstdPacker();

    /// Packs a block into one frame that tells its size.
    /// @param to its room, of `capacity` bytes
    /// @return bytes of the frame; absent when it does not fit into the room
    [[nodiscard]] std::optional<std::size_t> pack(std::string_view block, char* to,
                                                  std::size_t capacity);

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Unpacks a block that is exactly one frame and tells its size. Memory is bounded by
/// `mostBytes`, whatever the frame says. Any thread. Throws std::bad_alloc without memory.
/// @return absent when it is anything else, damaged, or of more bytes than are allowed
[[nodiscard]] std::optional<std::string> unpackedZstd(std::string_view frame,
                                                      std::size_t mostBytes);

} // namespace stowline::platform
