#include "stowline/util/StringMethods.h"

#include "stowline/util/SOAPSerializer.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace stowline {
namespace {

using namespace StringMethods;

TEST(EscapeXml, ReplacesTheThreeCharactersOnly)
{
    EXPECT_EQ(StringMethods::TW_escapeXMLEntities("a&b<c>\"d'é\x01"), "a&amp;b&lt;c&gt;\"d'é\x01");
    EXPECT_EQ(StringMethods::TW_escapeXMLEntities(""), "");
}

TEST(EscapeXml, EscapesWhatIsEscapedAgain)
{
    EXPECT_EQ(StringMethods::TW_escapeXMLEntities("&lt;"), "&amp;lt;");
}

TEST(XmlString, WritesARunOfElements)
{
    EXPECT_EQ(SOAPSerializer::TW_xmlString({{"a", "1&2"}, {"b", Dictionary{{"c", "<"}}}}),
              "<a>1&amp;2</a><b><c>&lt;</c></b>");
    EXPECT_EQ(SOAPSerializer::TW_xmlString({}), "");
    EXPECT_EQ(SOAPSerializer::TW_xmlString({{"n", 42}, {"e", Dictionary{}}}), "<e></e><n>42</n>");
}

TEST(ParseBool, KnowsFourWordsInAnyCase)
{
    for (const char* yes : {"yes", "True", "TRUE", "YeS"})
        EXPECT_TRUE(TW_parseBool(yes)) << yes;
    for (const char* no : {"NO", "no", "False"})
        EXPECT_FALSE(TW_parseBool(no)) << no;
}

TEST(ParseBool, TakesAnythingElseAsANumber)
{
    for (const char* yes : {"1", "-2", "2", " 7 apples", "\n\t+3", "99999999999999999999"})
        EXPECT_TRUE(TW_parseBool(yes)) << yes;
    for (const char* no : {"0", "", "Y", "on", "abc", " yes", "yes ", "-0", "- 1", "0x1", "\xff"})
        EXPECT_FALSE(TW_parseBool(no)) << no;
}

TEST(HasSpaces, CountsTheSpaceOnly)
{
    EXPECT_TRUE(TW_hasSpaces("a b"));
    EXPECT_FALSE(TW_hasSpaces("a\tb\nc\u00a0d"));
    EXPECT_FALSE(TW_hasSpaces(""));
}

TEST(Strip, Letters)
{
    EXPECT_EQ(TW_stripLetters("A1b2 c"), "12 ");
    EXPECT_EQ(TW_stripLetters("äЖ漢ا1e\u0301!"), "1!");
    EXPECT_EQ(TW_stripLetters(""), "");
}

TEST(Strip, LettersAndDigits)
{
    EXPECT_EQ(TW_stripAlphaNumeric("a1-b2 c"), "- ");
    EXPECT_EQ(TW_stripAlphaNumeric("٣Ⅷ½x+€ ."), "+€ .");
}

TEST(Strip, GivenCharacters)
{
    EXPECT_EQ(TW_stripCharacters("a-b_c", "-_"), "abc");
    EXPECT_EQ(TW_stripCharacters("a😀b", "😀"), "ab");
    EXPECT_EQ(TW_stripCharacters("abc", ""), "abc");
    EXPECT_EQ(TW_stripCharacters(std::string_view("a\0b", 3), std::string_view("\0", 1)), "ab");
}

TEST(Strip, KeepsBytesThatAreNoText)
{
    EXPECT_EQ(TW_stripLetters("a\xff"
                              "b\xe2\x82"),
              "\xff\xe2\x82");
    EXPECT_EQ(TW_stripCharacters("a\xff"
                                 "b",
                                 "\xef\xbf\xbd"),
              "a\xff"
              "b");
}

TEST(FirstLetters, CountsUtf16Units)
{
    EXPECT_EQ(TW_FirstLetters("abcdef", 2), "ab");
    EXPECT_EQ(TW_FirstLetters("abcdef", 6), "abcdef");
    EXPECT_EQ(TW_FirstLetters("äöü", 2), "äö");
    EXPECT_EQ(TW_FirstLetters("😀bc", 2), "😀");
    EXPECT_EQ(TW_FirstLetters("😀bc", 3), "😀b");
    EXPECT_EQ(TW_FirstLetters("😀bc", 1), "\ufffd");
    EXPECT_EQ(TW_FirstLetters("abc", 0), "");
}

TEST(FirstLetters, OfOneOrNoLetterIsTheTextItself)
{
    EXPECT_EQ(TW_FirstLetters("a", 5), "a");
    EXPECT_EQ(TW_FirstLetters("a", 0), "a");
    EXPECT_EQ(TW_FirstLetters("", 5), "");
}

TEST(FirstLetters, BeyondTheLengthIsARangeError)
{
    EXPECT_THROW((void)TW_FirstLetters("abc", 5), std::out_of_range);
    EXPECT_THROW((void)TW_FirstLetters("😀", 3), std::out_of_range);
    EXPECT_THROW((void)TW_FirstLetters("abc", SIZE_MAX), std::out_of_range);
}

TEST(TrimFirstLetters, GivesTheRest)
{
    EXPECT_EQ(TW_TrimFirstLetters("abcdef", 2), "cdef");
    EXPECT_EQ(TW_TrimFirstLetters("abc", 3), "");
    EXPECT_EQ(TW_TrimFirstLetters("😀bc", 2), "bc");
    EXPECT_EQ(TW_TrimFirstLetters("", 0), "");
    EXPECT_EQ(TW_TrimFirstLetters("a", 1), "");
    EXPECT_THROW((void)TW_TrimFirstLetters("a", 2), std::out_of_range);
    EXPECT_THROW((void)TW_TrimFirstLetters("", 1), std::out_of_range);
}

} // namespace
} // namespace stowline
