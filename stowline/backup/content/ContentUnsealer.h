// Sealed content on its way back: opened and unpacked, chunk by chunk.
#pragma once

#include "stowline/backup/content/ContentSealer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// Opens one content. What it hands over is genuine and in its place, but only when finish()
/// returns was it all: until then the end may be missing. Memory is bounded, whatever is fed: three
/// chunks (of at most 16 MiB) for each thread and one more, 4 bytes for each chunk of the content,
/// and four times that at its end (256 MiB for the largest). Not for several threads at once. Every
/// operation throws ContentFault, std::bad_alloc without memory, and what the sink throws; after
/// that, and after finish(), each further feed() or finish() throws std::logic_error.
class ContentUnsealer {
public:
    /// From the first stored byte on.
    /// @param key lives as long as this
    /// @param identifier of the content that is asked for: another one is refused (otherFile)
    /// @param threads 1 to kMostContentThreads
    ContentUnsealer(const MasterKey& key, std::string identifier, ContentSink sink,
                    unsigned threads = 1);
    /// From the start of a chunk on (ChunkTable::offsetOf()).
    /// @param head of the content, which was compared with the identifier that is asked for
    ContentUnsealer(const MasterKey& key, const SealedHead& head, std::uint64_t chunk,
                    ContentSink sink, unsigned threads = 1);
    ContentUnsealer(const ContentUnsealer&) = delete;
    ContentUnsealer& operator=(const ContentUnsealer&) = delete;

    void feed(std::string_view stored);

    /// Throws (damaged) unless the content came to its end.
    void finish();

private:
    struct Frame {
        FrameMark mark;
        std::uint64_t position;
        std::string box;
        std::string chunk;
    };

    void take(std::string_view stored);
    void takeHead(const SealedHead& head);
    [[nodiscard]] std::size_t wantedBytes() const;
    [[nodiscard]] std::size_t boxSize() const;
    void takeFrame();
    void openWaiting();
    void openFrame(Frame& frame) const;
    void checkTable(std::string_view box) const;

    OnceFailed guard_;
    const MasterKey& key_;
    const std::string identifier_;
    const ContentSink sink_;
    const std::size_t threads_;
    std::optional<SealedHead> head_;
    platform::SecretBytes contentKey_;
    std::optional<FrameSealer> sealer_;
    std::string buffer_; ///< the head, or the frame, that is being read
    std::vector<Frame> waiting_;
    std::string lengths_; ///< of the frames from firstChunk_ on, as the table has them
    std::uint64_t firstChunk_ = 0;
    std::uint64_t chunks_ = 0;
    bool hasLastChunk_ = false;
    bool isAtEnd_ = false;
};

} // namespace stowline::backup
