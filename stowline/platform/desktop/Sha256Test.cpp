#include "stowline/platform/desktop/Sha256.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

// The examples of FIPS 180-4.
TEST(Sha256, DigestsTheExamplesOfItsStandard)
{
    EXPECT_EQ(Sha256::of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(Sha256::of("abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Sha256, GoesOnAfterItWasLookedAt)
{
    Sha256 digest;
    digest.update("a");
    EXPECT_EQ(digest.hexadecimal(), Sha256::of("a"));
    digest.update("bc");
    EXPECT_EQ(digest.hexadecimal(), Sha256::of("abc"));
}

} // namespace
} // namespace stowline::platform
