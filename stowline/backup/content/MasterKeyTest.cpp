#include "stowline/backup/content/ContentTest.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

// A key of no bytes would seal with what everybody can make.
TEST(MasterKeys, HaveThirtyTwoBytes)
{
    for (const std::size_t size : {0U, 1U, 31U, 33U, 65U})
        EXPECT_THROW(MasterKey(platform::SecretBytes(size)), std::invalid_argument) << size;
    EXPECT_NO_THROW(MasterKey(platform::SecretBytes(32)));
}

TEST(MasterKeys, AreNoneOnceTheyWereMovedFrom)
{
    MasterKey one = MasterKey::make();
    MasterKey other = MasterKey::make();
    const std::string name = one.name();
    other = std::move(one);
    EXPECT_EQ(other.name(), name);
    EXPECT_THROW((void)one.bytes(), std::logic_error); // NOLINT(bugprone-use-after-move)
    EXPECT_THROW((void)one.name(), std::logic_error);
    EXPECT_THROW((void)one.contentKey(std::string(kContentIdentifierSize, 'i')), std::logic_error);
    EXPECT_THROW(sealed(one, "content"), std::logic_error);
}

} // namespace
} // namespace stowline::backup
