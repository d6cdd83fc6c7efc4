#include "stowline/platform/text/XmlText.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

TEST(EscapedForXml, LeavesQuotationMarksAndEverythingElse)
{
    EXPECT_EQ(escapedForXml("a&b<c>\"d'é\r\x01"), "a&amp;b&lt;c&gt;\"d'é\r\x01");
    EXPECT_EQ(escapedForXml("&lt;"), "&amp;lt;");
    EXPECT_EQ(escapedForXml(""), "");
}

} // namespace
} // namespace stowline::platform
