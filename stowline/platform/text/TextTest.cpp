#include "stowline/platform/text/Text.h"

#include "stowline/platform/text/Credentials.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/platform/text/Url.h"
#include "stowline/platform/time/DateText.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

TEST(Utf8, AcceptsWhatIsValidAndNothingElse)
{
    EXPECT_TRUE(isValidUtf8("grüße 😀"));
    EXPECT_FALSE(isValidUtf8("\xff"));
    EXPECT_FALSE(isValidUtf8("\xc0\xaf"));         // overlong
    EXPECT_FALSE(isValidUtf8("\xed\xa0\x80"));     // surrogate
    EXPECT_FALSE(isValidUtf8("\xf4\x90\x80\x80")); // beyond U+10FFFF
    EXPECT_EQ(validUtf8PrefixLength("ab\xe2\x82"), 2U);
}

TEST(Xml, NamesTheCharacterItCannotCarry)
{
    EXPECT_FALSE(characterXmlCannotCarry("tab\tline\nreturn\ré"));
    EXPECT_EQ(characterXmlCannotCarry(std::string_view("a\0b", 3)), "the control character U+0000");
    EXPECT_EQ(characterXmlCannotCarry("\x1b[31m"), "the control character U+001B");
    EXPECT_EQ(characterXmlCannotCarry("\xff"), "bytes that are not UTF-8");
    EXPECT_TRUE(characterXmlCannotCarry("\xef\xbf\xbf"));
}

TEST(LeadingInteger, ReadsTheNumberATextStartsWith)
{
    EXPECT_EQ(leadingInteger("  42 apples"), 42);
    EXPECT_EQ(leadingInteger("-7"), -7);
    EXPECT_EQ(leadingInteger("apples"), 0);
    EXPECT_EQ(leadingInteger(""), 0);
    EXPECT_EQ(leadingInteger("99999999999999999999"), INT64_MAX);
    EXPECT_EQ(leadingInteger("-99999999999999999999"), INT64_MIN);
}

TEST(Replacing, ReplacesFromLeftToRightWithoutOverlap)
{
    EXPECT_EQ(replacingOccurrences("aaa", "aa", "b"), "ba");
    EXPECT_EQ(replacingOccurrences("abc", "", "x"), "abc");
    EXPECT_EQ(replacingOccurrences("", "a", "x"), "");
}

TEST(HexadecimalText, HasTwoDigitsForEachByte)
{
    EXPECT_EQ(hexadecimalText({0x00, 0x0f, 0xa5}), "000fa5");
    EXPECT_EQ(hexadecimalText({}), "");
}

TEST(AsciiCase, LeavesOtherLettersAlone)
{
    EXPECT_EQ(asciiLowercase("ÄB"), "Äb");
    EXPECT_TRUE(equalsIgnoringAsciiCase("Content-Type", "content-TYPE"));
    EXPECT_FALSE(equalsIgnoringAsciiCase("a", "ab"));
}

TEST(UnicodeText, KnowsCaseBeyondAscii)
{
    EXPECT_TRUE(isUppercaseLetter(U'Ä'));
    EXPECT_FALSE(isUppercaseLetter(U'ä'));
    EXPECT_FALSE(isUppercaseLetter(U'5'));
    EXPECT_EQ(capitalized("éCOLE"), "École");
    EXPECT_EQ(capitalized(""), "");
    EXPECT_TRUE(equalsIgnoringCase("STRASSE", "straße"));
}

TEST(PercentEscape, EscapesWhatNoUrlMayHold)
{
    EXPECT_EQ(percentEscaped("http://h/a b?q=ü#f"), "http://h/a%20b?q=%C3%BC#f");
    EXPECT_EQ(percentEscaped("\"<>\\^`{|}"), "%22%3C%3E%5C%5E%60%7B%7C%7D");
    EXPECT_EQ(percentEscaped("http://[::1]:80/~x!$&'()*+,;=@"), "http://[::1]:80/~x!$&'()*+,;=@");
}

TEST(PercentEscape, KeepsEscapesAndEscapesABarePercentSign)
{
    EXPECT_EQ(percentEscaped("a%20b"), "a%20b");
    EXPECT_EQ(percentEscaped("100%"), "100%25");
    EXPECT_EQ(percentEscaped("%zz"), "%25zz");
}

TEST(Url, IsAReferenceThatHoldsOnlyWhatUrlsMayHold)
{
    for (const char* url :
         {"https://h/p?q=%20#f", "mailto:a@b.c", "/relative", "page", "?q", "a/b:c"})
        EXPECT_EQ(Url::fromText(url).value().text(), url);
    for (const char* wrong : {"", "not an address", "a%2", "100%", "ü", "1http://h", ":x", "<a>"})
        EXPECT_FALSE(Url::fromText(wrong)) << wrong;
}

TEST(WithoutCredentials, LeavesOutWhatStandsBeforeTheHost)
{
    const std::vector<std::pair<std::string, std::string>> texts{
        {"http://ann:pw@host/a", "http://host/a"},
        {"see https://ann@host:80/a?m=x@y.z.", "see https://host:80/a?m=x@y.z."},
        {"'http://ann:p@ss w/o:rd@host:99999' is wrong", "'http://host:99999' is wrong"},
        {"'ann:pw@host:99999' is wrong", "'host:99999' is wrong"},
        {"http://a:b@c and socks5://d:e@f", "http://c and socks5://f"},
        {"http://host:80/ said: ask a@b.c", "http://host:80/ said: ask a@b.c"},
        {"http://[::1]:80/a@b", "http://[::1]:80/a@b"},
        {"ann@example.com at 12:30", "ann@example.com at 12:30"},
        {"://@", "://"},
        {"", ""}};
    for (const auto& [text, shown] : texts)
        EXPECT_EQ(textWithoutCredentials(text), shown) << text;
}

TEST(WithoutCredentials, LeavesOutAllThatAnAddressMayHoldOfThem)
{
    const std::vector<std::pair<std::string, std::string>> addresses{
        {"ann:sec ret@host/", "host/"},
        {"ann: sec ret@host/", "host/"},
        {"ann smith:sec/re@t@host/", "host/"},
        {"http:/ann:pw@host/", "host/"},
        {"http://ann:sec ret@host/", "http://host/"},
        {"ann:pw@host:80/a", "host:80/a"},
        {"host:80/a@b", "host:80/a@b"},
        {"host/a@b", "host/a@b"},
        {"http://host/a@b:c", "http://host/a@b:c"},
        {"", ""}};
    for (const auto& [address, shown] : addresses)
        EXPECT_EQ(addressWithoutCredentials(address), shown) << address;
}

TEST(WithoutControls, LeavesNothingThatMovesOrTurnsTheTextAround)
{
    EXPECT_EQ(withoutControls("a\x1b[1m\x7f\r\n\tb"), "a?[1m??\n\tb");
    EXPECT_EQ(withoutControls("\u0085\u009b"), "??");
    // Arabic letter mark, left-to-right and right-to-left marks, line and paragraph separators,
    // embeddings, overrides, isolates, zero-width space and byte-order mark, tags.
    EXPECT_EQ(withoutControls("\u061c\u200b\u200e\u200f\u2028\u2029\u202a\u202e\u2060\u2066\u2069"
                              "\u206f\ufeff\ufff9\ufffb\U000e0001\U000e007f"),
              std::string(17, '?'));
    // Joiners are part of words and pictures; other letters beside the controls stay.
    EXPECT_EQ(withoutControls("\u200c\u200d\u061b\u2027\u202f\u205f\u2070\ufffc\u00a0é漢"),
              "\u200c\u200d\u061b\u2027\u202f\u205f\u2070\ufffc\u00a0é漢");
    EXPECT_EQ(withoutControls("\xe2\x80"), "\xe2\x80"); // cut off
}

TEST(UrlOrigin, KnowsSchemeHostAndPort)
{
    EXPECT_EQ(originOf("HTTP://Host/x"), (UrlOrigin{"http", "host", 80}));
    EXPECT_EQ(originOf("https://h:8443"), (UrlOrigin{"https", "h", 8443}));
    EXPECT_FALSE(originOf("node7/service"));
    EXPECT_FALSE(originOf("ftp://h/"));
    EXPECT_FALSE(originOf(""));
}

TEST(InternetTime, IsExactBothWays)
{
    const auto moment = dateFromInternetTimeText("2024-02-29T23:59:59Z");
    ASSERT_TRUE(moment);
    EXPECT_EQ(internetTimeText(*moment), "2024-02-29T23:59:59Z");
    for (const char* wrong : {"2023-02-29T00:00:00Z", "2024-13-01T00:00:00Z", "2024-1-1T0:0:0Z",
                              "2024-01-01T24:00:00Z", "2024-01-01T00:00:00Zx", ""})
        EXPECT_FALSE(dateFromInternetTimeText(wrong)) << wrong;
}

TEST(EscapedForHtml, LeavesNothingThatMarksUp)
{
    EXPECT_EQ(escapedForHtml("<a href=\"x\">'&'</a> é"),
              "&lt;a href=&quot;x&quot;&gt;&#39;&amp;&#39;&lt;/a&gt; é");
}

TEST(AssignedValue, ReadsLinesWithAndWithoutQuotes)
{
    const std::string lines = "NAME=Debian\nVERSION_ID=\"12\"\nEMPTY=\nXNAME=other \n";
    EXPECT_EQ(assignedValue(lines, "NAME"), "Debian");
    EXPECT_EQ(assignedValue(lines, "VERSION_ID"), "12");
    EXPECT_EQ(assignedValue(lines, "EMPTY"), std::nullopt);
    EXPECT_EQ(assignedValue(lines, "AME"), std::nullopt);
}

} // namespace
} // namespace stowline::platform
