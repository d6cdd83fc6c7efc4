#include "stowline/platform/text/HostName.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

TEST(HostName, LettersBeyondAsciiAreWrittenInIt)
{
    EXPECT_EQ(asciiHostName("plain.example"), "plain.example");
    EXPECT_EQ(asciiHostName("Plain_1.example"), "Plain_1.example");
    EXPECT_EQ(asciiHostName("grün.example"), "xn--grn-ioa.example");
    EXPECT_EQ(asciiHostName("GRÜN.example"), "xn--grn-ioa.example");
    EXPECT_EQ(asciiHostName("straße.example"), "xn--strae-oqa.example"); // not "strasse"
    EXPECT_EQ(asciiHostName("例え.テスト"), "xn--r8jz45g.xn--zckzah");
}

TEST(HostName, WhatIsNoNameStaysAsItIs)
{
    for (const char* name : {"\xff\xfe", "ü..ü", "-ü"})
        EXPECT_EQ(asciiHostName(name), name);
    const std::string tooLong = std::string(300, 'u') + "ü";
    EXPECT_EQ(asciiHostName(tooLong), tooLong);
}

TEST(HostName, OfAnAddressTheHostAloneIsChanged)
{
    EXPECT_EQ(withAsciiHost("https://ä:ö@grün.example:8443/ü?ü#ü"),
              "https://ä:ö@xn--grn-ioa.example:8443/ü?ü#ü");
    EXPECT_EQ(withAsciiHost("http://127.0.0.1/ü"), "http://127.0.0.1/ü");
    EXPECT_EQ(withAsciiHost("http://[::1]:80/ü"), "http://[::1]:80/ü");
    EXPECT_EQ(withAsciiHost("grün.example"), "grün.example");
    EXPECT_EQ(withAsciiHost(""), "");
    EXPECT_EQ(addressForCalls("http://grün.example/grün 1"),
              "http://xn--grn-ioa.example/gr%C3%BCn%201");
}

} // namespace
} // namespace stowline::platform
