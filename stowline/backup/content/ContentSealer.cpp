#include "stowline/backup/content/ContentSealer.h"

#include "stowline/backup/content/SideBySide.h"

#include <algorithm>
#include <stdexcept>

namespace stowline::backup {

namespace {

constexpr std::string_view kDigestPurpose = "stowline: digest of a chunk";
constexpr std::size_t kInnerDigestSize = 32;

} // namespace

ContentSealer::ContentSealer(const MasterKey& key, SealedHead head, const SealingPlan& plan,
                             ContentSink sink)
    : compression_(plan.compression), isNoted_(plan.isNoted), head_(std::move(head)),
      contentKey_(key.contentKey(head_.identifier)),
      digestKey_(platform::derivedKey(contentKey_, kDigestPurpose)), sealer_(head_, contentKey_),
      sink_(std::move(sink))
{
    if (head_.chunkExponent < kLeastChunkExponent || head_.chunkExponent > kMostChunkExponent ||
        head_.identifier.size() != kContentIdentifierSize)
        throw std::invalid_argument("a head that no reader takes");
    const unsigned threads = std::clamp(plan.threads, 1U, kMostContentThreads);
    for (unsigned i = 0; i < threads; ++i)
        lanes_.push_back(
            {.packer = ChunkPacker(compression_), .payload = {}, .frame = {}, .sealed = {}});
}

ContentSealer::ContentSealer(const MasterKey& key, const SealingPlan& plan, ContentSink sink)
    : ContentSealer(key,
                    SealedHead{.chunkExponent = plan.chunkExponent,
                               .keyName = key.name(),
                               .identifier = platform::randomText(kContentIdentifierSize)},
                    plan, std::move(sink))
{
    sink_(head_.bytes());
}

ContentSealer::ContentSealer(const MasterKey& key, const UnfinishedContent& earlier,
                             const SealingPlan& plan, ContentSink sink)
    : ContentSealer(key, earlier.head, plan, std::move(sink))
{
    if (head_.keyName != key.name())
        throw ContentFault(ContentFault::Kind::otherKey, "It is sealed with another key.");
    isNoted_ = true;
    sealed_ = earlier.chunks;
    stored_ = sealed_.size();
    for (const SealedChunk& chunk : sealed_)
        appendNumber(lengths_, chunk.frameSize, 4);
}

void ContentSealer::write(std::string_view bytes)
{
    guard_.piece([&] { take(bytes); });
}

void ContentSealer::finish()
{
    guard_.last([&] { end(); });
}

void ContentSealer::take(std::string_view bytes)
{
    const std::size_t room = head_.chunkSize() * lanes_.size();
    while (!bytes.empty()) {
        // A chunk is known not to be the last one only when another byte comes.
        if (waiting_.size() == room)
            sealWaiting(false);
        const std::string_view taken = bytes.substr(0, room - waiting_.size());
        waiting_ += taken;
        bytes.remove_prefix(taken.size());
    }
}

void ContentSealer::end()
{
    sealWaiting(true);
    std::string frame;
    sealer_.append(frame, FrameMark::table, chunks_, lengths_);
    sink_(frame);
}

void ContentSealer::sealWaiting(bool isEnd)
{
    const std::uint64_t count = chunkCount(head_, waiting_.size());
    if (chunks_ + count > kMostChunks)
        throw ContentFault(ContentFault::Kind::tooLarge, "It is too large to be sealed.");
    for (std::size_t i = 0; i < count; ++i)
        lanes_[i].isTried = compression_.mode == Compression::Mode::level ||
                            (compression_.mode == Compression::Mode::automatic && hope_.next());
    for (std::size_t i = 0; i < count; ++i)
        lanes_[i].isLast = isEnd && i + 1 == count;
    sideBySide(static_cast<std::size_t>(count),
               [&](std::size_t number) { sealChunk(lanes_[number], number); });
    for (std::size_t i = 0; i < count; ++i)
        handOver(lanes_[i]);
    waiting_.clear();
}

void ContentSealer::sealChunk(Lane& lane, std::size_t number) const
{
    const std::size_t size = head_.chunkSize();
    const std::string_view chunk = std::string_view(waiting_).substr(number * size, size);
    const std::uint64_t position = chunks_ + number;
    if (isNoted_)
        lane.sealed.digest = digestOf(chunk, position);
    if (position < stored_)
        return; // compared, not sealed again
    lane.form = lane.packer.pack(chunk, lane.payload, lane.isTried);
    lane.frame.clear();
    sealer_.append(lane.frame, lane.isLast ? FrameMark::lastChunk : FrameMark::chunk, position,
                   lane.payload);
    lane.sealed.frameSize = static_cast<std::uint32_t>(lane.frame.size());
}

std::array<char, kChunkDigestSize> ContentSealer::digestOf(std::string_view chunk,
                                                           std::uint64_t position) const
{
    std::string placed;
    appendNumber(placed, position, 8);
    placed += platform::keyedBlake2b(digestKey_, chunk, kInnerDigestSize);
    std::array<char, kChunkDigestSize> digest{};
    std::ranges::copy(platform::keyedBlake2b(digestKey_, placed, digest.size()), digest.begin());
    return digest;
}

/// Of a chunk that is stored already.
void ContentSealer::compare(const Lane& lane) const
{
    if (lane.isLast || lane.sealed.digest != sealed_[static_cast<std::size_t>(chunks_)].digest)
        throw ContentFault(ContentFault::Kind::changed,
                           "It is another content than that which was begun to be stored.");
}

void ContentSealer::handOver(const Lane& lane)
{
    if (chunks_ < stored_) {
        compare(lane);
        ++chunks_;
        return;
    }
    if (lane.isTried && lane.form != ChunkForm::zeros) {
        ++tally_.tried;
        hope_.learn(lane.form == ChunkForm::packed);
    }
    ++(lane.form == ChunkForm::packed  ? tally_.packed
       : lane.form == ChunkForm::zeros ? tally_.zeros
                                       : tally_.plain);
    appendNumber(lengths_, lane.frame.size(), 4);
    if (isNoted_ && !lane.isLast)
        sealed_.push_back(lane.sealed);
    ++chunks_;
    sink_(lane.frame);
}

} // namespace stowline::backup
