// One chunk's bytes as they stand in its box: as they are, packed, or as a number of zeros.
#pragma once

#include "stowline/backup/content/Compression.h"
#include "stowline/backup/content/SealedForm.h"
#include "stowline/platform/files/ZstdBlock.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline::backup {

/// Packs chunk after chunk, each by itself. Not for several threads at once.
class ChunkPacker {
public:
    explicit ChunkPacker(const Compression& compression);

    /// Puts a chunk's payload in place of a text: its form, then its bytes. Zeros alone are told by
    /// their number, whatever the compression.
    /// @param mayPack false: it is not tried
    /// @return the form that it has
    ChunkForm pack(std::string_view chunk, std::string& payload, bool mayPack);

private:
    std::optional<platform::ZstdPacker> packer_; ///< absent: nothing is packed
};

/// The chunk of a payload. Memory is bounded by `mostBytes`, whatever the payload says. Any thread.
/// @return absent when it is of no known form, or of more bytes than are allowed
[[nodiscard]] std::optional<std::string> unpackedChunk(std::string_view payload,
                                                       std::size_t mostBytes);

/// Which chunks of a content are worth trying, told by those before it: of content that did not
/// shrink four times one after the other only each sixteenth is tried until one shrinks. One
/// thread.
class PackingHope {
public:
    /// Whether the next chunk is to be tried.
    [[nodiscard]] bool next();
    /// What came of a chunk that was tried.
    void learn(bool hasShrunk) { inVain_ = hasShrunk ? 0 : inVain_ + 1; }

private:
    unsigned inVain_ = 0;  ///< tries without success since the last one with
    unsigned skipped_ = 0; ///< chunks since the last try
};

} // namespace stowline::backup
