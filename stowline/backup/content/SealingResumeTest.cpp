// Sealing that was cut off and goes on.
#include "stowline/backup/content/ContentTest.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

using Kind = ContentFault::Kind;
constexpr std::size_t kChunk = std::size_t(1) << kLeastChunkExponent;
constexpr SealingPlan kPlan{.chunkExponent = kLeastChunkExponent, .isNoted = true};

class SealingThatWasCutOff : public testing::Test {
protected:
    /// Seals until so many frames are stored, then no more.
    UnfinishedContent cutOffAfter(std::size_t chunks)
    {
        stored.clear();
        frames = 0;
        ContentSealer sealer(key, kPlan, [&](std::string_view bytes) {
            if (frames++ > chunks)
                return; // the head is the first
            stored += bytes;
        });
        sealer.write(content);
        UnfinishedContent noted{.head = sealer.head(), .chunks = sealer.chunks()};
        EXPECT_GE(noted.chunks.size(), chunks);
        noted.chunks.resize(chunks);
        return noted;
    }

    /// What comes of going on; what it hands over is added to what is stored.
    std::optional<Kind> goOn(const UnfinishedContent& earlier, std::string_view with,
                             const MasterKey& by, unsigned threads = 1)
    {
        try {
            ContentSealer sealer(by, earlier, {.threads = threads},
                                 [&](std::string_view bytes) { stored += bytes; });
            sealer.write(with);
            sealer.finish();
        } catch (const ContentFault& fault) {
            return fault.kind();
        }
        return std::nullopt;
    }

    const MasterKey key = MasterKey::make();
    const std::string content = prose(3 * kChunk) + noise(3 * kChunk) + "the end";
    std::string stored;
    std::size_t frames = 0;
};

TEST_F(SealingThatWasCutOff, GoesOnAfterAnyChunk)
{
    for (const unsigned threads : {1U, 4U}) {
        for (std::size_t chunks = 0; chunks <= 6; ++chunks) {
            const UnfinishedContent earlier = cutOffAfter(std::min<std::size_t>(chunks, 5));
            const std::string before = stored;
            ASSERT_FALSE(goOn(earlier, content, key, threads));
            EXPECT_TRUE(stored.starts_with(before));
            EXPECT_GT(stored.size(), before.size());
            const Opened back = opened(key, earlier.head.identifier, stored);
            EXPECT_FALSE(back.fault) << chunks;
            EXPECT_TRUE(back.content == content) << chunks;
        }
    }
}

TEST_F(SealingThatWasCutOff, IsNotGoneOnWithAnotherContent)
{
    const UnfinishedContent earlier = cutOffAfter(4);
    const std::string before = stored;
    for (const std::size_t place : {std::size_t(0), 4 * kChunk - 1}) {
        std::string changed = content;
        changed[place] = static_cast<char>(changed[place] ^ 1);
        EXPECT_EQ(goOn(earlier, changed, key), Kind::changed) << place;
        EXPECT_EQ(goOn(earlier, changed, key, 8), Kind::changed) << place;
    }
    EXPECT_EQ(stored, before) << "nothing is handed over before it is known to be the same";
}

TEST_F(SealingThatWasCutOff, IsNotGoneOnWithLessThanIsStored)
{
    const UnfinishedContent earlier = cutOffAfter(4);
    const std::string before = stored;
    for (const std::size_t size : {std::size_t(0), std::size_t(1), 4 * kChunk - 1, 4 * kChunk})
        EXPECT_EQ(goOn(earlier, std::string_view(content).substr(0, size), key), Kind::changed)
            << size;
    EXPECT_EQ(stored, before);
    EXPECT_FALSE(goOn(earlier, std::string_view(content).substr(0, 4 * kChunk + 1), key));
}

TEST_F(SealingThatWasCutOff, IsNotGoneOnWithAnotherKey)
{
    EXPECT_EQ(goOn(cutOffAfter(2), content, MasterKey::make()), Kind::otherKey);
}

TEST_F(SealingThatWasCutOff, UsesNoNonceTwice)
{
    const UnfinishedContent earlier = cutOffAfter(2);
    const std::string before = stored;
    ASSERT_FALSE(goOn(earlier, content, key));
    const std::string one = stored.substr(before.size());
    stored = before;
    ASSERT_FALSE(goOn(earlier, content, key));
    const std::string other = stored.substr(before.size());
    ASSERT_EQ(one.size(), other.size());
    EXPECT_NE(one.substr(kFrameHeadSize, 24), other.substr(kFrameHeadSize, 24));
}

TEST_F(SealingThatWasCutOff, IsNotedWithoutTellingAnythingOfTheChunks)
{
    const UnfinishedContent one = cutOffAfter(4);
    const UnfinishedContent other = cutOffAfter(4);
    // The same chunks have other digests in another content, and at another place.
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NE(one.chunks[i].digest, other.chunks[i].digest) << i;
    ContentSealer sealer(key, kPlan, [](std::string_view) {});
    sealer.write(std::string(4 * kChunk, '\0'));
    sealer.finish();
    ASSERT_EQ(sealer.chunks().size(), 3U);
    EXPECT_NE(sealer.chunks()[0].digest, sealer.chunks()[1].digest);
}

} // namespace
} // namespace stowline::backup
