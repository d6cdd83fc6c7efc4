#include "stowline/backup/content/ContentSealer.h"

#include "stowline/backup/content/SideBySide.h"

#include <algorithm>

namespace stowline::backup {

ContentSealer::ContentSealer(const MasterKey& key, const SealingPlan& plan, ContentSink sink)
    : compression_(plan.compression), head_{.chunkExponent = plan.chunkExponent,
                                            .keyName = key.name(),
                                            .identifier =
                                                platform::randomText(kContentIdentifierSize)},
      contentKey_(key.contentKey(head_.identifier)), sealer_(head_, contentKey_),
      sink_(std::move(sink))
{
    const unsigned threads = std::clamp(plan.threads, 1U, kMostContentThreads);
    for (unsigned i = 0; i < threads; ++i)
        lanes_.push_back({.packer = ChunkPacker(compression_), .payload = {}, .frame = {}});
    sink_(head_.bytes());
}

void ContentSealer::write(std::string_view bytes)
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

void ContentSealer::finish()
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
    sideBySide(static_cast<std::size_t>(count),
               [&](std::size_t number) { sealChunk(lanes_[number], number, count, isEnd); });
    for (std::size_t i = 0; i < count; ++i)
        handOver(lanes_[i]);
    waiting_.clear();
}

void ContentSealer::sealChunk(Lane& lane, std::size_t number, std::size_t count, bool isEnd) const
{
    const std::size_t size = head_.chunkSize();
    const std::string_view chunk = std::string_view(waiting_).substr(number * size, size);
    lane.form = lane.packer.pack(chunk, lane.payload, lane.isTried);
    lane.frame.clear();
    const bool isLast = isEnd && number + 1 == count;
    sealer_.append(lane.frame, isLast ? FrameMark::lastChunk : FrameMark::chunk, chunks_ + number,
                   lane.payload);
}

void ContentSealer::handOver(const Lane& lane)
{
    if (lane.isTried && lane.form != ChunkForm::zeros) {
        ++tally_.tried;
        hope_.learn(lane.form == ChunkForm::packed);
    }
    ++(lane.form == ChunkForm::packed  ? tally_.packed
       : lane.form == ChunkForm::zeros ? tally_.zeros
                                       : tally_.plain);
    appendNumber(lengths_, lane.frame.size(), 4);
    ++chunks_;
    sink_(lane.frame);
}

} // namespace stowline::backup
