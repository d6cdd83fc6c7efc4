#include "stowline/util/Base64.h"

#include "stowline/platform/text/Text.h"

#include <gtest/gtest.h>

#include <random>

namespace stowline::Base64 {
namespace {

std::string decoded(std::optional<std::string_view> text)
{
    return platform::textFromData(dataWithBase64EncodedString(text));
}

TEST(Base64Encode, PadsTheLastGroup)
{
    EXPECT_EQ(base64EncodingWithLineLength("abc", 0), "YWJj");
    EXPECT_EQ(base64EncodingWithLineLength("ab", 0), "YWI=");
    EXPECT_EQ(base64EncodingWithLineLength("a", 0), "YQ==");
    EXPECT_EQ(base64EncodingWithLineLength("", 76), "");
    EXPECT_EQ(base64EncodingWithLineLength(Data{0xFB, 0xFF, 0xFE}, 0), "+//+");
}

TEST(Base64Encode, BreaksAfterTheFirstGroupThatFillsTheLine)
{
    const std::string line(76, 'A');
    EXPECT_EQ(base64EncodingWithLineLength(std::string(57, '\0'), 76), line + "\n");
    EXPECT_EQ(base64EncodingWithLineLength(std::string(12, '\0'), 10), "AAAAAAAAAAAA\nAAAA");
    EXPECT_EQ(base64EncodingWithLineLength(std::string(6, '\0'), 1), "AAAA\nAAAA\n");
}

TEST(Base64Encode, ColumnCounterIsSixteenBitsWide)
{
    const std::string bytes(24576 + 3, '\0'); // 32768 characters and one group more
    const std::string broken = std::string(32768, 'A') + "\nAAAA";
    EXPECT_EQ(base64EncodingWithLineLength(bytes, 32768), broken);
    EXPECT_EQ(base64EncodingWithLineLength(bytes, 32769), broken);
    EXPECT_EQ(base64EncodingWithLineLength(bytes, 2147483647), broken);
    EXPECT_EQ(base64EncodingWithLineLength(bytes, 4294934528U), broken);
}

TEST(Base64Encode, TheLargestLineLengthsNeverBreak)
{
    const std::string bytes(300000, '\0');
    EXPECT_EQ(base64EncodingWithLineLength(bytes, kNeverBreaks), std::string(400000, 'A'));
    EXPECT_EQ(base64EncodingWithLineLength(bytes, 0), std::string(400000, 'A'));
}

TEST(Base64Encode, AboveTheHighestBreakingLengthTheWrappedCounterCountsOn)
{
    // The counter climbs from -32768 and reaches 4294934532 (-32764) one group later.
    const std::string bytes(24576 + 6, '\0');
    EXPECT_EQ(base64EncodingWithLineLength(bytes, 4294934532U), std::string(32772, 'A') + "\nAAAA");
}

TEST(Base64Decode, ReadsPaddedText)
{
    EXPECT_EQ(decoded("YWI="), "ab");
    EXPECT_EQ(decoded("YQ=="), "a");
    EXPECT_EQ(decoded("YWJj"), "abc");
    EXPECT_EQ(decoded(""), "");
}

TEST(Base64Decode, SkipsWhatIsNotOfTheAlphabet)
{
    EXPECT_EQ(decoded("YW I=\n"), "ab");
    EXPECT_EQ(decoded("Y-W_J\x01j"), "abc");
}

TEST(Base64Decode, DropsAnUnpaddedTail)
{
    EXPECT_EQ(decoded("YWI"), "");
    EXPECT_EQ(decoded("YWJjYW"), "abc");
}

TEST(Base64Decode, StopsAtTheFirstPadding)
{
    EXPECT_EQ(decoded("YWJj=garbage"), "abc");
    EXPECT_EQ(decoded("=YWJj"), "");
}

TEST(Base64Decode, CombinesALoneValueWithAStaleOne)
{
    EXPECT_EQ(decoded("YWJjY="), "abca");
    EXPECT_EQ(decoded("Y="), std::string("\x60", 1)); // no group before it: zero
}

TEST(Base64Decode, GivesNothingForTextOutsideAscii)
{
    EXPECT_EQ(decoded("YWJjé"), "");
    EXPECT_EQ(decoded(std::nullopt), "");
}

TEST(Base64, EveryLengthComesBack)
{
    std::mt19937 random(1);
    for (std::size_t length = 0; length < 300; ++length) {
        std::string bytes(length, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        for (const std::uint32_t lineLength : {0U, 10U, 76U, kNeverBreaks})
            ASSERT_EQ(decoded(base64EncodingWithLineLength(bytes, lineLength)), bytes);
    }
}

} // namespace
} // namespace stowline::Base64
