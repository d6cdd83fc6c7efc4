#include "stowline/util/StringMethods.h"

#include "stowline/util/SOAPSerializer.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

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

} // namespace
} // namespace stowline
