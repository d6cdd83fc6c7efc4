#include "stowline/platform/desktop/PassphraseText.h"

#include <gtest/gtest.h>

namespace stowline::platform {
namespace {

std::string composed(std::string_view passphrase)
{
    const auto text = composedPassphrase(passphrase);
    return text ? std::string(text->view()) : "none";
}

TEST(ComposedPassphrase, IsTheSameFromEveryKeyboard)
{
    EXPECT_EQ(composed("Z\xc3\xbcrich"), "Z\xc3\xbcrich");
    EXPECT_EQ(composed("Zu\xcc\x88rich"), "Z\xc3\xbcrich");
    // A mark on a mark, syllables of three letters, and text that grows as far as text can.
    EXPECT_EQ(composed("a\xcc\x82\xcc\x81"), "\xe1\xba\xa5");
    EXPECT_EQ(composed("\xe1\x84\x92\xe1\x85\xa1\xe1\x86\xab"), "\xed\x95\x9c");
    EXPECT_EQ(composed("\xf0\x9d\x85\xa0"), "\xf0\x9d\x85\x98\xf0\x9d\x85\xa5\xf0\x9d\x85\xae");
}

TEST(ComposedPassphrase, KeepsEverythingElse)
{
    EXPECT_EQ(composed(""), "");
    EXPECT_EQ(composed(" A b\t"), " A b\t");
    EXPECT_EQ(composed("\xef\xac\x81"), "\xef\xac\x81") << "a ligature is not another spelling";
}

TEST(ComposedPassphrase, IsAbsentForWhatIsNotUtf8)
{
    EXPECT_EQ(composed("\xff"), "none");
    EXPECT_EQ(composed("caf\xe9"), "none");
    EXPECT_EQ(composed("\xed\xa0\x80"), "none");
}

TEST(DifferentCharacters, AreCodePoints)
{
    EXPECT_EQ(differentCharacters(""), 0U);
    EXPECT_EQ(differentCharacters("abcab"), 3U);
    EXPECT_EQ(differentCharacters("\xc3\xa4\xc3\xb6\xc3\xa4"), 2U);
}

} // namespace
} // namespace stowline::platform
