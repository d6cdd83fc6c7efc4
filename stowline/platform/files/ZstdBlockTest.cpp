#include "stowline/platform/files/ZstdBlock.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

std::string packed(std::string_view block, std::size_t room = 4096)
{
    ZstdPacker packer(kUsualZstdLevel);
    std::string frame(room, '\0');
    const auto size = packer.pack(block, frame.data(), frame.size());
    frame.resize(size.value_or(0));
    return frame;
}

TEST(ZstdBlock, ComesBack)
{
    const std::string block(100000, 'a');
    const std::string frame = packed(block);
    EXPECT_LT(frame.size(), 100U);
    EXPECT_EQ(unpackedZstd(frame, block.size()), block);
}

TEST(ZstdBlock, SaysWhenItDoesNotFit)
{
    EXPECT_EQ(packed("abcdefghijklmnop", 8), "");
}

TEST(ZstdBlock, IsRefusedWhenItUnpacksToMoreThanIsAllowed)
{
    EXPECT_FALSE(unpackedZstd(packed(std::string(1001, 'a')), 1000));
}

TEST(ZstdBlock, IsRefusedWhenItIsNotExactlyOneFrame)
{
    const std::string frame = packed("some text");
    EXPECT_TRUE(unpackedZstd(frame, 100));
    EXPECT_FALSE(unpackedZstd(frame + frame, 100));
    EXPECT_FALSE(unpackedZstd(frame + "x", 100));
    EXPECT_FALSE(unpackedZstd(frame.substr(0, frame.size() - 1), 100));
    EXPECT_FALSE(unpackedZstd("", 100));
    EXPECT_FALSE(unpackedZstd("no frame at all", 100));
}

TEST(ZstdBlock, IsRefusedWhenItIsOneThatReadersSkip)
{
    EXPECT_FALSE(unpackedZstd(std::string("\x50\x2a\x4d\x18\0\0\0\0", 8), 100));
    EXPECT_FALSE(unpackedZstd(std::string("\x5f\x2a\x4d\x18\1\0\0\0x", 9), 100));
    EXPECT_EQ(unpackedZstd(packed(""), 100), "");
}

} // namespace
} // namespace stowline::platform
