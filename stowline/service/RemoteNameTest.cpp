#include "stowline/service/RemoteName.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

TEST(RemoteName, OnlyNamesThatXmlCannotCarryAreEncoded)
{
    EXPECT_EQ(remotePath("/home/ann/Grüße & more.txt"), "/home/ann/Grüße & more.txt");
    EXPECT_EQ(remotePath("/a/\x01/b"), "/a/=b64=AQ==/b");
    EXPECT_EQ(remotePath("/\xff\xfe\xff"), "/=b64=__7_");
    EXPECT_EQ(remotePath("=b64=x"), "=b64=PWI2ND14");
    EXPECT_EQ(remotePath("/=stowline=/x"), "/=b64=PXN0b3dsaW5lPQ==/x");
    for (const std::string path :
         {"", "/", "//a", "/a/\xff/b\n", "=b64=", "/x/=b64=AQ==", "/=stowline=/records"})
        EXPECT_EQ(localPath(remotePath(path)), path);
}

} // namespace
} // namespace stowline
