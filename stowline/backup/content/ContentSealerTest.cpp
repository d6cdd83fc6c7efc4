#include "stowline/backup/content/ContentTest.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

using Mode = Compression::Mode;
constexpr std::size_t kChunk = std::size_t(1) << kLeastChunkExponent;
const Compression kOff{.mode = Mode::off};

TEST(SealedContent, ComesBackWhateverItsSize)
{
    const MasterKey key = MasterKey::make();
    for (const std::size_t size : {std::size_t(0), std::size_t(1), kChunk - 1, kChunk, kChunk + 1,
                                   3 * kChunk, 4 * kChunk - 1, 4 * kChunk, 9 * kChunk + 5}) {
        for (const unsigned threads : {1U, 4U}) {
            const std::string content = prose(size / 2) + noise(size - size / 2);
            const SealingPlan plan{.threads = threads, .chunkExponent = kLeastChunkExponent};
            const Sealed one = sealed(key, content, plan, size % 7 == 0 ? 1 : 100000);
            const Opened back = opened(key, one.head.identifier, one.bytes, 333, threads);
            EXPECT_FALSE(back.fault) << size;
            EXPECT_TRUE(back.content == content) << size << " bytes, " << threads << " threads";
        }
    }
}

TEST(SealedContent, ComesBackInChunksOfTheUsualSize)
{
    const MasterKey key = MasterKey::make();
    const std::string content = prose(5 << 20) + std::string(3 << 20, '\0') + noise(1 << 20);
    const Sealed one = sealed(key, content, {.threads = 2}, 1 << 16);
    EXPECT_EQ(one.head.chunkExponent, 20U);
    const Opened back = opened(key, one.head.identifier, one.bytes, 1 << 16, 3);
    EXPECT_FALSE(back.fault);
    EXPECT_TRUE(back.content == content);
}

TEST(SealedContent, ShowsNothingOfItself)
{
    const MasterKey key = MasterKey::make();
    const std::string canary = "a canary that sings in the mine";
    const Sealed one = sealed(key, noise(100) + canary + noise(9000),
                              {.compression = kOff, .chunkExponent = kLeastChunkExponent});
    EXPECT_EQ(one.bytes.find(canary), std::string::npos);
    EXPECT_EQ(one.bytes.find(key.bytes().view()), std::string::npos);
}

TEST(SealedContent, NeverLooksTheSameTwice)
{
    const MasterKey key = MasterKey::make();
    const Sealed one = sealed(key, prose(5000));
    const Sealed two = sealed(key, prose(5000));
    EXPECT_NE(one.head.identifier, two.head.identifier);
    ASSERT_EQ(one.bytes.size(), two.bytes.size());
    std::size_t same = 0;
    for (std::size_t i = kSealedHeadSize; i < one.bytes.size(); ++i)
        same += one.bytes[i] == two.bytes[i] ? 1 : 0;
    // By chance one in 256, and the few bytes of lengths and marks.
    EXPECT_LT(same, 60U) << "of " << one.bytes.size();
}

TEST(SealedContent, TakesNoRoomForZeros)
{
    const MasterKey key = MasterKey::make();
    const Sealed one = sealed(key, std::string(100 * kChunk, '\0'),
                              {.compression = kOff, .chunkExponent = kLeastChunkExponent});
    EXPECT_EQ(one.tally.zeros, 100U);
    EXPECT_EQ(one.bytes.size(), kSealedHeadSize + 100 * (5 + 40 + 5) + 5 + 40 + 100 * 4);
}

TEST(SealedContent, ShrinksWhenItsContentDoes)
{
    const MasterKey key = MasterKey::make();
    const Sealed one = sealed(key, prose(20 * kChunk));
    EXPECT_EQ(one.tally.packed, 20U);
    EXPECT_LT(one.bytes.size(), 10 * kChunk);
    const Sealed off = sealed(key, prose(20 * kChunk),
                              {.compression = kOff, .chunkExponent = kLeastChunkExponent});
    EXPECT_EQ(off.tally.plain, 20U);
    EXPECT_EQ(off.tally.tried, 0U);
}

TEST(SealedContent, StopsPackingWhatDoesNotShrinkUnlessALevelIsAskedFor)
{
    const MasterKey key = MasterKey::make();
    const std::string content = noise(40 * kChunk);
    const Sealed automatic = sealed(key, content);
    EXPECT_EQ(automatic.tally.tried, 6U);
    EXPECT_EQ(automatic.tally.plain, 40U);
    const Sealed asked = sealed(
        key, content,
        {.compression = {.mode = Mode::level, .level = 1}, .chunkExponent = kLeastChunkExponent});
    EXPECT_EQ(asked.tally.tried, 40U);
    EXPECT_EQ(asked.tally.plain, 40U);
}

TEST(SealedContent, IsReadFromAnyOfItsChunks)
{
    const MasterKey key = MasterKey::make();
    const std::string content = prose(3 * kChunk) + noise(2 * kChunk) + "end";
    const Sealed one = sealed(key, content);
    const auto contentKey = key.contentKey(one.head.identifier);
    const FrameSealer sealer(one.head, contentKey);
    const std::uint64_t chunks = chunkCount(one.head, content.size());
    ASSERT_EQ(chunks, 6U);
    const auto tableSize = static_cast<std::size_t>(tableFrameSize(chunks));
    const ChunkTable table = ChunkTable::opened(
        sealer, chunks, std::string_view(one.bytes).substr(one.bytes.size() - tableSize));
    EXPECT_EQ(table.offsetOf(0), kSealedHeadSize);
    EXPECT_EQ(table.offsetOf(chunks), one.bytes.size() - tableSize);
    for (std::uint64_t chunk = 0; chunk < chunks; ++chunk) {
        std::string rest;
        ContentUnsealer unsealer(key, one.head, chunk,
                                 [&](std::string_view bytes) { rest += bytes; });
        unsealer.feed(
            std::string_view(one.bytes).substr(static_cast<std::size_t>(table.offsetOf(chunk))));
        unsealer.finish();
        EXPECT_TRUE(rest == content.substr(static_cast<std::size_t>(chunk) * kChunk)) << chunk;
    }
}

TEST(SealedContent, HandsOverWhatCameBeforeItsSinkThrew)
{
    const MasterKey key = MasterKey::make();
    int handed = 0;
    ContentSealer sealer(key, {.chunkExponent = kLeastChunkExponent}, [&](std::string_view) {
        if (++handed == 3)
            throw std::runtime_error("full");
    });
    EXPECT_THROW(sealer.write(noise(5 * kChunk)), std::runtime_error);
    EXPECT_EQ(handed, 3);
}

/// Takes what is handed over but for one piece, where it throws.
struct SinkThatFailsOnce {
    int piece;
    std::string taken = {};
    int pieces = 0;

    void operator()(std::string_view bytes)
    {
        if (++pieces == piece)
            throw std::runtime_error("full");
        taken += bytes;
    }
};

// Else what was in the piece that failed is missing, and the rest is genuine without it.
TEST(SealedContent, IsNotGoneOnWithAfterAPieceThatFailed)
{
    const MasterKey key = MasterKey::make();
    SinkThatFailsOnce sink{.piece = 3};
    ContentSealer sealer(key, {.chunkExponent = kLeastChunkExponent}, std::ref(sink));
    EXPECT_THROW(sealer.write(noise(5 * kChunk)), std::runtime_error);
    EXPECT_THROW(sealer.write(prose(kChunk)), std::logic_error);
    EXPECT_THROW(sealer.write(""), std::logic_error);
    EXPECT_THROW(sealer.finish(), std::logic_error);
    EXPECT_TRUE(opened(key, sealer.head().identifier, sink.taken).fault);
}

TEST(SealedContent, IsNotFinishedTwiceNorWrittenToAfterItsEnd)
{
    const MasterKey key = MasterKey::make();
    for (const int failing : {0, 2, 3}) { // none, the only chunk, the table
        SinkThatFailsOnce sink{.piece = failing};
        ContentSealer sealer(key, {.chunkExponent = kLeastChunkExponent}, std::ref(sink));
        sealer.write("some");
        if (failing == 0)
            sealer.finish();
        else
            EXPECT_THROW(sealer.finish(), std::runtime_error);
        const std::string before = sink.taken;
        EXPECT_THROW(sealer.write("more"), std::logic_error) << failing;
        EXPECT_THROW(sealer.finish(), std::logic_error) << failing;
        EXPECT_EQ(sink.taken, before);
    }
}

TEST(SealedContent, IsNotSaidToBeWholeAfterAPieceThatWasNotTaken)
{
    const MasterKey key = MasterKey::make();
    const Sealed one = sealed(key, prose(2 * kChunk));
    SinkThatFailsOnce sink{.piece = 2};
    ContentUnsealer unsealer(key, one.head.identifier, std::ref(sink));
    const auto tableSize = static_cast<std::size_t>(tableFrameSize(2));
    const std::string_view stored = one.bytes;
    EXPECT_THROW(unsealer.feed(stored.substr(0, stored.size() - tableSize)), std::runtime_error);
    EXPECT_THROW(unsealer.feed(stored.substr(stored.size() - tableSize)), std::logic_error);
    EXPECT_THROW(unsealer.finish(), std::logic_error);
}

// What is wrong after the end is wrong with all of it.
TEST(SealedContent, IsNotSaidToBeWholeAfterARefusal)
{
    const MasterKey key = MasterKey::make();
    const Sealed one = sealed(key, "some");
    ContentUnsealer unsealer(key, one.head.identifier, [](std::string_view) {});
    unsealer.feed(one.bytes);
    EXPECT_THROW(unsealer.feed("more"), ContentFault);
    EXPECT_THROW(unsealer.finish(), std::logic_error);
    ContentUnsealer ended(key, one.head.identifier, [](std::string_view) {});
    ended.feed(one.bytes);
    ended.finish();
    EXPECT_THROW(ended.feed(""), std::logic_error);
    EXPECT_THROW(ended.finish(), std::logic_error);
}

TEST(SealedContent, IsNotMadeInChunksThatNoReaderTakes)
{
    const MasterKey key = MasterKey::make();
    for (const unsigned exponent : {0U, 11U, 25U, 64U}) {
        EXPECT_THROW(ContentSealer(key, {.chunkExponent = exponent}, [](std::string_view) {}),
                     std::invalid_argument);
        const SealedHead head{.chunkExponent = exponent,
                              .keyName = key.name(),
                              .identifier = std::string(kContentIdentifierSize, 'i')};
        EXPECT_THROW(ContentSealer(key, UnfinishedContent{.head = head, .chunks = {}}, {},
                                   [](std::string_view) {}),
                     std::invalid_argument);
    }
    const SealedHead noIdentifier{.keyName = key.name(), .identifier = "short"};
    EXPECT_THROW(ContentSealer(key, UnfinishedContent{.head = noIdentifier, .chunks = {}}, {},
                               [](std::string_view) {}),
                 std::invalid_argument);
    for (const unsigned exponent : {12U, 24U}) {
        const Sealed one = sealed(key, "some", {.chunkExponent = exponent});
        EXPECT_EQ(opened(key, one.head.identifier, one.bytes).content, "some");
    }
}

TEST(ChunkCount, IsOneForNoBytes)
{
    const SealedHead head{.chunkExponent = 12, .keyName = {}, .identifier = {}};
    EXPECT_EQ(chunkCount(head, 0), 1U);
    EXPECT_EQ(chunkCount(head, 1), 1U);
    EXPECT_EQ(chunkCount(head, 4096), 1U);
    EXPECT_EQ(chunkCount(head, 4097), 2U);
}

} // namespace
} // namespace stowline::backup
