// What a service, or whoever reaches its disk, may do to sealed content: each is refused.
#include "stowline/backup/content/ContentTest.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

using Kind = ContentFault::Kind;
constexpr std::size_t kChunk = std::size_t(1) << kLeastChunkExponent;

/// The head and the frames of what is stored, apart.
std::vector<std::string> pieces(std::string_view stored)
{
    std::vector<std::string> all{std::string(stored.substr(0, kSealedHeadSize))};
    for (stored.remove_prefix(kSealedHeadSize); !stored.empty();) {
        const std::size_t size =
            kFrameHeadSize + static_cast<std::size_t>(numberOf(stored.substr(1, 4)));
        all.emplace_back(stored.substr(0, size));
        stored.remove_prefix(size);
    }
    return all;
}

std::string joined(const std::vector<std::string>& pieces)
{
    std::string all;
    for (const std::string& piece : pieces)
        all += piece;
    return all;
}

class HostileService : public testing::Test {
protected:
    /// What comes of other bytes in the place of those that were stored: a refusal, and before it
    /// nothing but the beginning of the content.
    void expectRefused(std::string_view stored, Kind kind, const std::string& how) const
    {
        const Opened back = opened(key, one.head.identifier, stored);
        EXPECT_EQ(back.fault, kind) << how;
        EXPECT_TRUE(content.starts_with(back.content)) << how;
    }

    const MasterKey key = MasterKey::make();
    const std::string content = prose(2 * kChunk) + noise(kChunk) + "the end";
    const Sealed one = sealed(key, content);
};

TEST_F(HostileService, ChangesAnyByte)
{
    for (std::size_t i = 0; i < one.bytes.size(); ++i) {
        std::string changed = one.bytes;
        changed[i] = static_cast<char>(changed[i] ^ 0x20);
        const Opened back = opened(key, one.head.identifier, changed, changed.size());
        ASSERT_TRUE(back.fault) << i;
        ASSERT_TRUE(content.starts_with(back.content)) << i;
    }
}

TEST_F(HostileService, CutsItOffAnywhere)
{
    for (std::size_t size = 0; size < one.bytes.size(); ++size) {
        const Opened back = opened(key, one.head.identifier,
                                   std::string_view(one.bytes).substr(0, size), one.bytes.size());
        ASSERT_EQ(back.fault, Kind::damaged) << size;
        ASSERT_TRUE(content.starts_with(back.content)) << size;
    }
}

TEST_F(HostileService, LeavesOutDoublesOrSwapsChunks)
{
    const auto stored = pieces(one.bytes);
    ASSERT_EQ(stored.size(), 6U); // head, four chunks, table
    for (std::size_t i = 1; i < stored.size(); ++i) {
        auto without = stored;
        without.erase(without.begin() + static_cast<std::ptrdiff_t>(i));
        expectRefused(joined(without), Kind::damaged, "without " + std::to_string(i));
        auto twice = stored;
        twice.insert(twice.begin() + static_cast<std::ptrdiff_t>(i), stored[i]);
        expectRefused(joined(twice), Kind::damaged, "twice " + std::to_string(i));
        for (std::size_t j = i + 1; j < stored.size(); ++j) {
            auto swapped = stored;
            std::swap(swapped[i], swapped[j]);
            expectRefused(joined(swapped), Kind::damaged,
                          "swapped " + std::to_string(i) + " and " + std::to_string(j));
        }
    }
}

TEST_F(HostileService, AddsSomethingAtTheEnd)
{
    expectRefused(one.bytes + "x", Kind::damaged, "a byte");
    expectRefused(one.bytes + pieces(one.bytes).back(), Kind::damaged, "the table again");
    expectRefused(one.bytes + one.bytes, Kind::damaged, "all of it");
}

TEST_F(HostileService, SaysThatAnotherChunkIsTheLast)
{
    auto stored = pieces(one.bytes);
    stored[2][0] = static_cast<char>(FrameMark::lastChunk);
    expectRefused(joined(stored), Kind::damaged, "an earlier one");
    stored = pieces(one.bytes);
    stored[4][0] = static_cast<char>(FrameMark::chunk);
    expectRefused(joined(stored), Kind::damaged, "none");
    stored = pieces(one.bytes);
    stored[2][0] = static_cast<char>(FrameMark::table);
    expectRefused(joined(stored), Kind::damaged, "a chunk for the table");
}

TEST_F(HostileService, PutsAnotherFileOrVersionInItsPlace)
{
    expectRefused(sealed(key, "of another file").bytes, Kind::otherFile, "another file");
    expectRefused(sealed(key, content).bytes, Kind::otherFile, "another version");
}

TEST_F(HostileService, PutsChunksOfAnotherVersionBetweenThoseOfThis)
{
    const auto other = pieces(sealed(key, content).bytes);
    for (std::size_t i = 1; i < other.size(); ++i) {
        auto mixed = pieces(one.bytes);
        mixed[i] = other[i];
        expectRefused(joined(mixed), Kind::damaged, std::to_string(i));
    }
    auto mixed = other;
    mixed[0] = pieces(one.bytes)[0];
    expectRefused(joined(mixed), Kind::damaged, "all of them under the head of this");
}

TEST_F(HostileService, GivesWhatAnotherKeySealed)
{
    const MasterKey other = MasterKey::make();
    expectRefused(sealed(other, content).bytes, Kind::otherKey, "another key");
    // With the name of the right key over it.
    std::string renamed = sealed(other, content).bytes;
    renamed.replace(24, 40, one.bytes, 24, 40);
    expectRefused(renamed, Kind::damaged, "under this head");
}

TEST_F(HostileService, GivesWhatWasNeverSealed)
{
    expectRefused(content, Kind::notSealed, "the content in the clear");
    std::string newer = one.bytes;
    newer[16] = 2;
    expectRefused(newer, Kind::tooNew, "another form");
    EXPECT_EQ(opened(key, one.head.identifier, content).content, "");
}

TEST_F(HostileService, NamesALengthThatNoBoxHas)
{
    for (const std::uint64_t size :
         {std::uint64_t(0), std::uint64_t(40), kChunk + 42, std::uint64_t(0xffffffff)}) {
        std::string changed = one.bytes.substr(0, kSealedHeadSize + 1);
        appendNumber(changed, size, 4);
        // Refused by what it says, before a byte of it is waited for.
        ContentUnsealer unsealer(key, one.head.identifier, [](std::string_view) {});
        EXPECT_THROW(unsealer.feed(changed + "x"), ContentFault) << size;
    }
}

TEST_F(HostileService, GivesATableOfOtherLengths)
{
    const auto contentKey = key.contentKey(one.head.identifier);
    const FrameSealer sealer(one.head, contentKey);
    auto stored = pieces(one.bytes);
    stored.back().clear();
    sealer.append(stored.back(), FrameMark::table, 4, std::string(16, 'x'));
    expectRefused(joined(stored), Kind::damaged, "lengths");
    EXPECT_THROW((void)ChunkTable::opened(sealer, 5, stored.back()), ContentFault);
    EXPECT_THROW((void)ChunkTable::opened(sealer, 3, stored.back()), ContentFault);
    EXPECT_THROW((void)ChunkTable::opened(sealer, 0, ""), ContentFault);
    EXPECT_THROW((void)ChunkTable::opened(sealer, 4, stored[1]), ContentFault);
}

// Only who has the key can make these; a reader takes them for damage all the same.
TEST_F(HostileService, SealsChunksOfAnotherSize)
{
    const auto contentKey = key.contentKey(one.head.identifier);
    const FrameSealer sealer(one.head, contentKey);
    const auto withPayload = [&](std::size_t number, FrameMark mark, const std::string& payload) {
        auto stored = pieces(one.bytes);
        stored[number].clear();
        sealer.append(stored[number], mark, number - 1, payload);
        return joined(stored);
    };
    const std::string form(1, '\0');
    expectRefused(withPayload(1, FrameMark::chunk, form + noise(kChunk - 1)), Kind::damaged,
                  "one short");
    expectRefused(withPayload(4, FrameMark::lastChunk, form), Kind::damaged, "an empty last");
    expectRefused(withPayload(1, FrameMark::chunk, std::string("\2\1\20\0\0", 5)), Kind::damaged,
                  "zeros beyond the chunk");
}

} // namespace
} // namespace stowline::backup
