#include "stowline/platform/files/GzipStream.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using namespace stowline::platform;

std::string packed(std::string_view bytes)
{
    std::string result;
    GzipWriter writer([&result](std::string_view piece) { result += piece; });
    writer.write(bytes);
    writer.finish();
    return result;
}

std::string unpacked(std::string_view bytes, std::size_t pieceSize, std::uint64_t most = 1U << 30)
{
    std::string result;
    GzipReader reader([&result](std::string_view piece) { result += piece; }, most);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), pieceSize)))
        reader.feed(bytes.substr(0, pieceSize));
    reader.finish();
    return result;
}

std::string someBytes()
{
    std::minstd_rand random(7);
    std::string bytes(300000, 'a');
    for (std::size_t at = 0; at < 150000; ++at)
        bytes[at] = static_cast<char>(random());
    return bytes;
}

TEST(GzipStream, GivesBackWhatWasPackedInPiecesOfAnySize)
{
    const std::string bytes = someBytes();
    const std::string box = packed(bytes);
    EXPECT_LT(box.size(), bytes.size() * 2 / 3);
    for (const std::size_t piece : {std::size_t{1}, std::size_t{1000}, box.size()})
        EXPECT_EQ(unpacked(box, piece), bytes) << piece;
    EXPECT_EQ(unpacked(packed(""), 100), "");
}

TEST(GzipStream, RefusesWhatIsCutOffDamagedOrFollowedByMore)
{
    const std::string box = packed(someBytes());
    EXPECT_THROW(unpacked(box.substr(0, box.size() - 1), 4096), GzipFault);
    EXPECT_THROW(unpacked("", 1), GzipFault);
    EXPECT_THROW(unpacked(box + "x", 4096), GzipFault);
    EXPECT_THROW(unpacked(box + box, box.size()), GzipFault);
    EXPECT_THROW(unpacked("no gzip at all", 4), GzipFault);
    for (const std::size_t at : {std::size_t{0}, box.size() / 2, box.size() - 5}) {
        std::string damaged = box;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
        EXPECT_THROW(unpacked(damaged, 4096), GzipFault) << at;
    }
}

TEST(GzipStream, UnpacksNoMoreThanIsAllowed)
{
    const std::string box = packed(std::string(1 << 20, '\0'));
    EXPECT_LT(box.size(), 2000U);
    EXPECT_THROW(unpacked(box, 100, (1 << 20) - 1), GzipFault);
    EXPECT_EQ(unpacked(box, 100, 1 << 20).size(), std::size_t{1} << 20);
}

} // namespace
