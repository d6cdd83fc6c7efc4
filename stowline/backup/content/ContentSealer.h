// Content on its way to the service: packed and sealed, chunk by chunk.
#pragma once

#include "stowline/backup/content/ChunkPacker.h"
#include "stowline/backup/content/MasterKey.h"
#include "stowline/backup/content/OnceFailed.h"
#include "stowline/backup/content/SealedForm.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// Where sealed or opened bytes go.
using ContentSink = std::function<void(std::string_view)>;

/// Chunks that are worked on at the same time.
constexpr unsigned kMostContentThreads = 16;

/// Bytes of a chunk's keyed digest.
constexpr std::size_t kChunkDigestSize = 16;

struct SealingPlan {
    Compression compression;
    /// 1 to kMostContentThreads. Each takes three chunks of memory and what libzstd takes, which is
    /// more at higher levels.
    unsigned threads = 1;
    unsigned chunkExponent = kUsualChunkExponent; ///< kLeastChunkExponent to kMostChunkExponent
    bool isNoted = false; ///< whether chunks() is kept: a digest more for each chunk
};

/// What became of the chunks of a content.
struct PackingTally {
    std::uint64_t packed = 0;
    std::uint64_t plain = 0;
    std::uint64_t zeros = 0;
    std::uint64_t tried = 0; ///< to be packed
};

/// A chunk that was sealed and that others follow, as it is noted so that the sealing can go on
/// another time. The digest is keyed: without the master key it tells nothing of the chunk.
struct SealedChunk {
    std::uint32_t frameSize = 0; ///< bytes of its whole frame
    std::array<char, kChunkDigestSize> digest{};

    [[nodiscard]] bool operator==(const SealedChunk&) const = default;
};

/// A content whose sealing was cut off after a chunk: what is stored ends with that chunk's frame.
struct UnfinishedContent {
    SealedHead head;
    std::vector<SealedChunk> chunks; ///< all that are stored, from the first
};

/// Seals one content under a fresh identifier and fresh nonces: the same bytes never look the same
/// twice. Beside its threads' memory it takes 4 bytes for each chunk of the content, twice that at
/// its end (128 MiB for the largest), and 20 more for each that is noted. Not for several threads
/// at once. Every operation throws ContentFault (tooLarge, changed), std::bad_alloc without memory,
/// and what the sink throws; after that, and after finish(), each further write() or finish()
/// throws std::logic_error.
class ContentSealer {
public:
    /// Both throw std::invalid_argument for chunks of a size, or an identifier, that no reader
    /// takes.
    /// @param key lives as long as this
    ContentSealer(const MasterKey& key, const SealingPlan& plan, ContentSink sink);
    /// Goes on with a content that was cut off, with nonces as fresh as ever. It is written from
    /// its first byte on, and nothing is handed over until the chunks that are stored have gone by;
    /// where one of them is another than was stored, throws ContentFault (changed): then it is to
    /// be sealed anew under another identifier. Of the plan the size of chunks is the earlier one.
    /// Throws ContentFault (otherKey) when it was another key.
    ContentSealer(const MasterKey& key, const UnfinishedContent& earlier, const SealingPlan& plan,
                  ContentSink sink);
    ContentSealer(const ContentSealer&) = delete;
    ContentSealer& operator=(const ContentSealer&) = delete;

    /// What the content is known by; whoever opens it must name the identifier.
    [[nodiscard]] const SealedHead& head() const { return head_; }

    void write(std::string_view bytes);

    /// Hands over what is left and the end. Nothing may be written after it; what was sealed
    /// without it is refused as cut off.
    void finish();

    [[nodiscard]] const PackingTally& tally() const { return tally_; }

    /// The chunks so far that others follow, with those of an earlier time: what is to be noted
    /// once their frames are stored. None unless the plan says so; of what goes on, always.
    [[nodiscard]] const std::vector<SealedChunk>& chunks() const { return sealed_; }

private:
    struct Lane {
        ChunkPacker packer;
        std::string payload;
        std::string frame;
        ChunkForm form = ChunkForm::plain;
        SealedChunk sealed;
        bool isTried = false;
        bool isLast = false;
    };

    ContentSealer(const MasterKey& key, SealedHead head, const SealingPlan& plan, ContentSink sink);

    void take(std::string_view bytes);
    void end();
    void sealWaiting(bool isEnd);
    void sealChunk(Lane& lane, std::size_t number) const;
    [[nodiscard]] std::array<char, kChunkDigestSize> digestOf(std::string_view chunk,
                                                              std::uint64_t position) const;
    void compare(const Lane& lane) const;
    void handOver(const Lane& lane);

    OnceFailed guard_;
    const Compression compression_;
    bool isNoted_;
    const SealedHead head_;
    const platform::SecretBytes contentKey_;
    const platform::SecretBytes digestKey_;
    const FrameSealer sealer_;
    const ContentSink sink_;
    std::vector<Lane> lanes_;
    PackingHope hope_;
    PackingTally tally_;
    std::string waiting_; ///< at most a chunk for each lane
    std::string lengths_; ///< of the frames so far, as the table has them
    std::uint64_t chunks_ = 0;
    std::vector<SealedChunk> sealed_;
    std::uint64_t stored_ = 0; ///< of them, from an earlier time
};

} // namespace stowline::backup
