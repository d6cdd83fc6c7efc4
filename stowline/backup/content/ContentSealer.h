// Content on its way to the service: packed and sealed, chunk by chunk.
#pragma once

#include "stowline/backup/content/ChunkPacker.h"
#include "stowline/backup/content/MasterKey.h"
#include "stowline/backup/content/SealedForm.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// Where sealed or opened bytes go.
using ContentSink = std::function<void(std::string_view)>;

/// Chunks that are worked on at the same time; more cost memory alone.
constexpr unsigned kMostContentThreads = 16;

struct SealingPlan {
    Compression compression;
    unsigned threads = 1; ///< 1 to kMostContentThreads; each takes about three chunks of memory
    unsigned chunkExponent = kUsualChunkExponent;
};

/// What became of the chunks of a content.
struct PackingTally {
    std::uint64_t packed = 0;
    std::uint64_t plain = 0;
    std::uint64_t zeros = 0;
    std::uint64_t tried = 0; ///< to be packed
};

/// Seals one content under a fresh identifier and fresh nonces: the same bytes never look the same
/// twice. Not for several threads at once. Every operation throws ContentFault (tooLarge),
/// std::bad_alloc without memory, and what the sink throws; after that it is good for nothing.
class ContentSealer {
public:
    /// @param key lives as long as this
    ContentSealer(const MasterKey& key, const SealingPlan& plan, ContentSink sink);
    ContentSealer(const ContentSealer&) = delete;
    ContentSealer& operator=(const ContentSealer&) = delete;

    /// What the content is known by; whoever opens it must name the identifier.
    [[nodiscard]] const SealedHead& head() const { return head_; }

    void write(std::string_view bytes);

    /// Hands over what is left and the end. Nothing may be written after it; what was sealed
    /// without it is refused as cut off.
    void finish();

    [[nodiscard]] const PackingTally& tally() const { return tally_; }

private:
    struct Lane {
        ChunkPacker packer;
        std::string payload;
        std::string frame;
        ChunkForm form = ChunkForm::plain;
        bool isTried = false;
    };

    void sealWaiting(bool isEnd);
    void sealChunk(Lane& lane, std::size_t number, std::size_t count, bool isEnd) const;
    void handOver(const Lane& lane);

    const Compression compression_;
    const SealedHead head_;
    const platform::SecretBytes contentKey_;
    const FrameSealer sealer_;
    const ContentSink sink_;
    std::vector<Lane> lanes_;
    PackingHope hope_;
    PackingTally tally_;
    std::string waiting_; ///< at most a chunk for each lane
    std::string lengths_; ///< of the frames so far, as the table has them
    std::uint64_t chunks_ = 0;
};

} // namespace stowline::backup
