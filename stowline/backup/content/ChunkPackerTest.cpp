#include "stowline/backup/content/ChunkPacker.h"

#include "stowline/backup/content/ContentTest.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

using Mode = Compression::Mode;

ChunkForm formOf(const Compression& compression, std::string_view chunk, bool mayPack = true)
{
    ChunkPacker packer(compression);
    std::string payload = "rest of an earlier one";
    const ChunkForm form = packer.pack(chunk, payload, mayPack);
    EXPECT_EQ(static_cast<ChunkForm>(payload.front()), form);
    EXPECT_EQ(unpackedChunk(payload, chunk.size()), chunk);
    EXPECT_TRUE(chunk.empty() || !unpackedChunk(payload, chunk.size() - 1));
    return form;
}

TEST(Compression, IsReadFromItsWord)
{
    EXPECT_EQ(Compression::parsed("off"), (Compression{.mode = Mode::off}));
    EXPECT_EQ(Compression::parsed("auto"), Compression());
    EXPECT_EQ(Compression::parsed("1"), (Compression{.mode = Mode::level, .level = 1}));
    EXPECT_EQ(Compression::parsed("19"), (Compression{.mode = Mode::level, .level = 19}));
    for (const char* word : {"", "on", "0", "20", "-1", "3x", " 3", "99999999999999999999"})
        EXPECT_FALSE(Compression::parsed(word)) << word;
}

TEST(ChunkPacker, PacksWhatShrinks)
{
    EXPECT_EQ(formOf({}, prose(5000)), ChunkForm::packed);
    EXPECT_EQ(formOf({.mode = Mode::level, .level = 19}, prose(5000)), ChunkForm::packed);
}

TEST(ChunkPacker, LeavesWhatDoesNotShrinkAsItIs)
{
    EXPECT_EQ(formOf({}, noise(5000)), ChunkForm::plain);
    EXPECT_EQ(formOf({}, ""), ChunkForm::plain);
    EXPECT_EQ(formOf({}, "a"), ChunkForm::plain);
}

TEST(ChunkPacker, PacksNothingWhereItIsNotTo)
{
    EXPECT_EQ(formOf({.mode = Mode::off}, prose(5000)), ChunkForm::plain);
    EXPECT_EQ(formOf({}, prose(5000), false), ChunkForm::plain);
}

TEST(ChunkPacker, TellsZerosByTheirNumber)
{
    EXPECT_EQ(formOf({.mode = Mode::off}, std::string(5000, '\0')), ChunkForm::zeros);
    EXPECT_EQ(formOf({}, std::string(1, '\0')), ChunkForm::zeros);
    EXPECT_EQ(formOf({.mode = Mode::off}, std::string(4999, '\0') + "x"), ChunkForm::plain);
    EXPECT_EQ(formOf({.mode = Mode::off}, "x" + std::string(4999, '\0')), ChunkForm::plain);
}

TEST(UnpackedChunk, IsAbsentForWhatIsNoPayload)
{
    EXPECT_FALSE(unpackedChunk("", 100));
    EXPECT_FALSE(unpackedChunk("\x03 some", 100));
    EXPECT_FALSE(unpackedChunk("\x01 no frame", 100));
    EXPECT_FALSE(unpackedChunk(std::string("\x02\x01\x00\x00", 4), 100));
    EXPECT_FALSE(unpackedChunk(std::string("\x02\xff\xff\xff\xff", 5), 100));
}

TEST(PackingHope, TriesOnlyEachSixteenthOfWhatDoesNotShrink)
{
    PackingHope hope;
    std::string tries;
    for (int i = 0; i < 40; ++i) {
        const bool isTried = hope.next();
        tries += isTried ? 'x' : '.';
        if (isTried)
            hope.learn(false);
    }
    EXPECT_EQ(tries, "xxxx...............x...............x....");
}

TEST(PackingHope, HopesAgainAfterOneThatShrank)
{
    PackingHope hope;
    for (int i = 0; i < 4; ++i)
        hope.learn(false);
    EXPECT_FALSE(hope.next());
    hope.learn(true);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(hope.next());
        hope.learn(false);
    }
    EXPECT_FALSE(hope.next());
}

} // namespace
} // namespace stowline::backup
