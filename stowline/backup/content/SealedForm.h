// The form of sealed content: its head, its frames, and where they lie
// (docs/formats/sealed-content.md).
#pragma once

#include "stowline/backup/content/ContentFault.h"
#include "stowline/platform/desktop/SealedBox.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

constexpr std::size_t kSealedHeadSize = 64;
/// Before each box: its mark and its length.
constexpr std::size_t kFrameHeadSize = 5;

/// Chunks have two to the power of this many bytes of the content.
constexpr unsigned kLeastChunkExponent = 12;
constexpr unsigned kUsualChunkExponent = 20;
constexpr unsigned kMostChunkExponent = 24;
/// So that the table of their lengths stays below 64 MiB.
constexpr std::uint64_t kMostChunks = std::uint64_t(1) << 24;

/// What stands before the first chunk, and is authenticated with each.
struct SealedHead {
    unsigned chunkExponent = kUsualChunkExponent;
    std::string keyName;    ///< of the master key, kKeyNameSize bytes
    std::string identifier; ///< of the content, kContentIdentifierSize bytes

    [[nodiscard]] std::size_t chunkSize() const { return std::size_t(1) << chunkExponent; }
    /// kSealedHeadSize bytes.
    [[nodiscard]] std::string bytes() const;
    /// Throws ContentFault: notSealed, tooNew, damaged.
    /// @param bytes kSealedHeadSize of them
    [[nodiscard]] static SealedHead parsed(std::string_view bytes);

    [[nodiscard]] bool operator==(const SealedHead&) const = default;
};

/// What a frame is; authenticated with it.
enum class FrameMark : std::uint8_t {
    chunk = 0,     ///< a chunk that others follow
    lastChunk = 1, ///< the end of the content
    table = 2,     ///< the lengths of all frames before it, 4 bytes each
};

/// How a chunk's bytes stand in its box; the first byte in it.
enum class ChunkForm : std::uint8_t {
    plain = 0,  ///< as they are
    packed = 1, ///< one Zstandard frame
    zeros = 2,  ///< none; their number in 4 bytes
};

/// A number in so many bytes, the lowest first.
void appendNumber(std::string& to, std::uint64_t number, std::size_t size);
[[nodiscard]] std::uint64_t numberOf(std::string_view bytes);

/// Makes frames, and opens them. Any thread.
class FrameSealer {
public:
    /// @param contentKey lives as long as this
    FrameSealer(const SealedHead& head, const platform::SecretBytes& contentKey)
        : head_(head.bytes()), key_(contentKey)
    {
    }

    /// Adds a frame to a text: mark, length of the box, box.
    /// @param position number of the chunk, from 0; of a table, the number of chunks
    void append(std::string& to, FrameMark mark, std::uint64_t position,
                std::string_view payload) const;

    /// Puts what is in a frame's box in place of a text.
    /// @return false: it is not this content's frame of that mark and position, or was changed
    [[nodiscard]] bool open(std::string& payload, FrameMark mark, std::uint64_t position,
                            std::string_view box) const;

private:
    [[nodiscard]] std::string associated(FrameMark mark, std::uint64_t position) const;

    const std::string head_;
    const platform::SecretBytes& key_;
};

/// Chunks of a content of so many bytes: one at least.
[[nodiscard]] std::uint64_t chunkCount(const SealedHead& head, std::uint64_t contentSize);

/// Bytes of the frame with the table of so many chunks. It is the last frame.
[[nodiscard]] std::uint64_t tableFrameSize(std::uint64_t chunks);

/// Where each frame lies, so that content can be read from any of its chunks.
class ChunkTable {
public:
    /// Throws ContentFault (damaged) when it is not the table of that content.
    /// @param frame the last tableFrameSize() bytes of what is stored
    [[nodiscard]] static ChunkTable opened(const FrameSealer& sealer, std::uint64_t chunks,
                                           std::string_view frame);

    /// Of a chunk, or just after the last one, in bytes from the start of what is stored.
    [[nodiscard]] std::uint64_t offsetOf(std::uint64_t chunk) const { return offsets_.at(chunk); }

private:
    std::vector<std::uint64_t> offsets_;
};

} // namespace stowline::backup
