#include "stowline/backup/content/ContentUnsealer.h"

#include "stowline/backup/content/SideBySide.h"

#include <algorithm>

namespace stowline::backup {

namespace {

constexpr std::size_t kFormSize = 1;
constexpr std::size_t kLengthSize = 4;

[[noreturn]] void throwDamaged(const std::string& sentence = "It is not what was sealed.")
{
    throw ContentFault(ContentFault::Kind::damaged, sentence);
}

} // namespace

ContentUnsealer::ContentUnsealer(const MasterKey& key, std::string identifier, ContentSink sink,
                                 unsigned threads)
    : key_(key), identifier_(std::move(identifier)), sink_(std::move(sink)),
      threads_(std::clamp(threads, 1U, kMostContentThreads))
{
}

ContentUnsealer::ContentUnsealer(const MasterKey& key, const SealedHead& head, std::uint64_t chunk,
                                 ContentSink sink, unsigned threads)
    : ContentUnsealer(key, head.identifier, std::move(sink), threads)
{
    takeHead(head);
    firstChunk_ = chunks_ = chunk;
}

void ContentUnsealer::takeHead(const SealedHead& head)
{
    if (head.keyName != key_.name())
        throw ContentFault(ContentFault::Kind::otherKey, "It is sealed with another key.");
    if (head.identifier != identifier_)
        throw ContentFault(ContentFault::Kind::otherFile,
                           "It is sealed content, but not that which was stored here.");
    head_ = head;
    contentKey_ = key_.contentKey(head.identifier);
    sealer_.emplace(head, contentKey_);
}

void ContentUnsealer::feed(std::string_view stored)
{
    guard_.piece([&] { take(stored); });
}

void ContentUnsealer::take(std::string_view stored)
{
    while (!stored.empty()) {
        if (isAtEnd_)
            throwDamaged("Something follows its end.");
        const std::string_view taken = stored.substr(0, wantedBytes() - buffer_.size());
        buffer_ += taken;
        stored.remove_prefix(taken.size());
        if (buffer_.size() < wantedBytes())
            continue;
        if (!head_)
            takeHead(SealedHead::parsed(buffer_));
        else
            takeFrame();
        buffer_.clear();
    }
}

/// Bytes of what is being read, as far as that is known yet.
std::size_t ContentUnsealer::wantedBytes() const
{
    if (!head_)
        return kSealedHeadSize;
    return buffer_.size() < kFrameHeadSize ? kFrameHeadSize : kFrameHeadSize + boxSize();
}

/// What the frame that is being read says of its box; refused when such a box cannot stand here.
std::size_t ContentUnsealer::boxSize() const
{
    const auto mark = static_cast<FrameMark>(buffer_.front());
    const std::uint64_t size = numberOf(std::string_view(buffer_).substr(1, kLengthSize));
    const bool isRight =
        mark == FrameMark::table
            ? hasLastChunk_ && size == tableFrameSize(chunks_) - kFrameHeadSize
            : (mark == FrameMark::chunk || mark == FrameMark::lastChunk) && !hasLastChunk_ &&
                  chunks_ < kMostChunks && size > platform::kSealingOverhead &&
                  size <= platform::kSealingOverhead + kFormSize + head_->chunkSize();
    if (!isRight)
        throwDamaged();
    return static_cast<std::size_t>(size);
}

void ContentUnsealer::takeFrame()
{
    const auto mark = static_cast<FrameMark>(buffer_.front());
    if (mark == FrameMark::table) {
        checkTable(std::string_view(buffer_).substr(kFrameHeadSize));
        isAtEnd_ = true;
        return;
    }
    appendNumber(lengths_, buffer_.size(), kLengthSize);
    waiting_.push_back(
        {.mark = mark, .position = chunks_++, .box = buffer_.substr(kFrameHeadSize), .chunk = {}});
    hasLastChunk_ = mark == FrameMark::lastChunk;
    if (hasLastChunk_ || waiting_.size() == threads_)
        openWaiting();
}

void ContentUnsealer::openWaiting()
{
    sideBySide(waiting_.size(), [this](std::size_t number) { openFrame(waiting_[number]); });
    for (const Frame& frame : waiting_)
        sink_(frame.chunk);
    waiting_.clear();
}

void ContentUnsealer::openFrame(Frame& frame) const
{
    std::string payload;
    if (!sealer_->open(payload, frame.mark, frame.position, frame.box))
        throwDamaged();
    auto chunk = unpackedChunk(payload, head_->chunkSize());
    // Each chunk but the last is full; only the content of no bytes has an empty one.
    const bool isRight =
        chunk && (chunk->size() == head_->chunkSize() ||
                  (frame.mark == FrameMark::lastChunk && (!chunk->empty() || frame.position == 0)));
    if (!isRight)
        throwDamaged();
    frame.chunk = std::move(*chunk);
}

void ContentUnsealer::checkTable(std::string_view box) const
{
    std::string lengths;
    if (!sealer_->open(lengths, FrameMark::table, chunks_, box) ||
        lengths.substr(static_cast<std::size_t>(firstChunk_) * kLengthSize) != lengths_)
        throwDamaged();
}

void ContentUnsealer::finish()
{
    guard_.last([&] {
        if (!isAtEnd_)
            throwDamaged("Its end is missing.");
    });
}

} // namespace stowline::backup
